// Ties a programmer to the entities of one table pair: reads and writes go to them, changes come from them.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "apps/hw/Programmer.h"
#include "apps/hw/Tables.h"

namespace HwAgent {

struct TablePlace {
  Quill::Ptr<const Orrery::EntityManager> entityManager;
  std::string name;
  std::string typePrefix;  ///< of the entity types, without "Config" and "Status"
  std::string path;        ///< of the mounts, without "config" and "status"
  unsigned capacity;
};

template <class ConfigEntity, class StatusEntity>
class EntityPair final : public TablePair<typename ConfigEntity::Key, typename ConfigEntity::Entry,
                                          typename StatusEntity::Entry> {
 public:
  using Key = typename ConfigEntity::Key;
  using Config = typename ConfigEntity::Entry;
  using Status = typename StatusEntity::Entry;

  explicit EntityPair(const TablePlace& place)
      : config_(mounted<ConfigEntity>(place, "Config", "config", QuillVesta::QuillVestaType::reader)),
        status_(mounted<StatusEntity>(place, "Status", "status", QuillVesta::QuillVestaType::writer)) {}

  const Quill::Ptr<ConfigEntity>& configEntity() const { return config_; }
  /// Called when one of the tables is found damaged; may be empty.
  void damagedIs(const std::function<void()>& damaged) const {
    config_->table().readyCallbackIs(damaged);
    status_->table().readyCallbackIs(damaged);
  }

  bool readable() const override { return config_->attached() && status_->attached(); }
  std::optional<Config> config(const Key& key) const override { return found<Config>(*config_, key); }
  std::optional<Status> status(const Key& key) const override { return found<Status>(*status_, key); }
  void eachConfig(const std::function<void(const Config&)>& visit) const override { each(*config_, visit); }
  void eachStatus(const std::function<void(const Status&)>& visit) const override { each(*status_, visit); }
  void statusIs(const Status& status) override {
    guarded(*status_, [&] { status_->tableIs(status); });
  }
  void statusDel(const Key& key) override {
    guarded(*status_, [&] { status_->tableDel(key); });
  }
  std::uint64_t statusSequence() const override { return writer().sequence(); }
  bool readersHandled(std::uint64_t sequence) const override { return writer().quiesced(sequence); }

 private:
  template <class Entity>
  static Quill::Ptr<Entity> mounted(const TablePlace& place, const char* typeSuffix, const char* pathSuffix,
                                    QuillVesta::QuillVestaType type) {
    QuillVesta::MountDescription description(type);
    description.collectionIs("table", place.capacity);
    const auto entity = QuillVesta::Mount(place.entityManager)
                            .doMount(place.path + pathSuffix, place.typePrefix + typeSuffix, description);
    return Quill::ptrCast<Entity>(entity);
  }

  /// Damage is reported to the table, which then reads as empty.
  template <class Entity, class Call>
  static void guarded(const Entity& entity, const Call& call) {
    try {
      call();
    } catch (const Cairn::CorruptionDetectedException& damage) {
      entity.corruptionDetected(damage.message());
    }
  }

  template <class Entry, class Entity>
  static std::optional<Entry> found(const Entity& entity, const Key& key) {
    std::optional<Entry> result;
    guarded(entity, [&] {
      bool present = false;
      const Entry& entry = entity.directLookup(key, present);
      if (present) result = entry;
    });
    return result;
  }

  template <class Entity, class Visit>
  static void each(const Entity& entity, const Visit& visit) {
    guarded(entity, [&] {
      typename Entity::Map::Row row;
      Vesta::IterHint hint;
      auto& map = entity.table();
      for (bool more = map.first(row, hint); more; more = map.next(row.key, row, hint)) visit(row.entry);
    });
  }

  auto& writer() const {
    auto* const implementation = status_->table().implementation();
    Cairn::require(implementation != nullptr, "status table is not attached", "EntityPair");
    return *implementation;
  }

  Quill::Ptr<ConfigEntity> config_;
  Quill::Ptr<StatusEntity> status_;
};

template <class ConfigEntity, class StatusEntity>
class EntityFollower final : public TableFollower {
 public:
  using Pair = EntityPair<ConfigEntity, StatusEntity>;
  using Key = typename Pair::Key;
  using Clock = std::chrono::steady_clock;

  EntityFollower(const TablePlace& place, const Settings& settings, const std::function<void()>& damaged)
      : loop_(place.entityManager->eventLoop()),
        pair_(place),
        programmer_(pair_, Faults<typename Pair::Config>(place.name, settings.fails, settings.failEvery),
                    settings.delay),
        delayed_(settings.delay.count() != 0),
        reactor_(Quill::allocate<Reactor>(*this)) {
    reactor_->notifierIs(pair_.configEntity());
    reactor_->isRegisteredNotifieeIs(true);
    pair_.damagedIs(damaged);
    programmer_.reconcile(Clock::now());
    arm();
  }
  ~EntityFollower() override {
    pair_.damagedIs({});
    reactor_->isRegisteredNotifieeIs(false);
    reactor_->notifierIs(nullptr);
    if (timer_ != 0) loop_.timerDel(timer_);
  }

  std::uint64_t answers() const override { return programmer_.answers(); }
  bool attached() const override { return pair_.readable(); }

 private:
  class Reactor final : public ConfigEntity::NotifieeConst {
   public:
    explicit Reactor(EntityFollower& owner) : owner_(owner) {}
    void onTable(const Key& key) override { owner_.changed(key); }

   private:
    using ConfigEntity::NotifieeConst::onTable;
    EntityFollower& owner_;
  };

  void changed(const Key& key) {
    programmer_.changed(key, delayed_ ? Clock::now() : Clock::time_point{});
    arm();
  }

  /// Sees to it that advance() is called while something waits.
  void arm() {
    const bool waiting = programmer_.removals() != 0 || programmer_.nextAnswer();
    if (timer_ != 0 || !waiting) return;
    Clock::duration pause = programmer_.removals() != 0 ? pause_ : kLongestPause;
    if (const auto next = programmer_.nextAnswer()) pause = std::min(pause, *next - Clock::now());
    timer_ = loop_.timerIs(std::max(pause, Clock::duration::zero()), [this] { advance(); });
  }

  void advance() {
    timer_ = 0;
    if (!pair_.readable()) return;
    // Readers that do not move are asked ever more rarely.
    pause_ = programmer_.advance(Clock::now()) ? kShortestPause : std::min(pause_ * 2, kLongestPause);
    arm();
  }

  static constexpr Clock::duration kShortestPause = std::chrono::milliseconds(1);
  static constexpr Clock::duration kLongestPause = std::chrono::milliseconds(100);

  Quill::EventLoop& loop_;  // not owned
  Pair pair_;
  Programmer<Pair> programmer_;
  bool delayed_;
  Quill::Ptr<Reactor> reactor_;
  Clock::duration pause_ = kShortestPause;
  Quill::EventLoop::TimerId timer_ = 0;
};

template <class ConfigEntity, class StatusEntity>
std::unique_ptr<TableFollower> followEntities(const TablePlace& place, const Settings& settings,
                                              std::function<void()> damaged) {
  return std::make_unique<EntityFollower<ConfigEntity, StatusEntity>>(place, settings, damaged);
}

}  // namespace HwAgent
