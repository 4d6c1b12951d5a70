// The two tables of one kind as the hardware agent has them: it reads the config table and writes the status
// table.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "apps/hw/AnswerCounters.h"
#include "orrery/Mount.h"
#include "vesta/VestaWriter.h"

namespace HwAgent {

struct TablePlace {
  Quill::Ptr<const Orrery::EntityManager> entityManager;
  std::string name;
  std::string configPath;
  std::string statusPath;
  unsigned capacity;
  AnswerCounters counters{};
};

template <class ConfigEntity, class StatusEntity>
class TablePair {
 public:
  using Key = typename ConfigEntity::Key;
  using Config = typename ConfigEntity::Entry;
  using Status = typename StatusEntity::Entry;

  explicit TablePair(const TablePlace& place)
      : config_(mounted<ConfigEntity>(place, place.configPath, QuillVesta::QuillVestaType::reader)),
        status_(mounted<StatusEntity>(place, place.statusPath, QuillVesta::QuillVestaType::writer)) {}

  const Quill::Ptr<ConfigEntity>& configEntity() const { return config_; }

  /// False once corruption was detected in one of the tables: it then reads as empty whatever it held, and
  /// writes are dropped.
  bool readable() const { return config_->attached() && status_->attached(); }
  /// See TableEntity::displacedFile; of either table.
  std::string displacedFile() const {
    const std::string file = config_->displacedFile();
    return file.empty() ? status_->displacedFile() : file;
  }
  std::optional<Config> config(const Key& key) const { return found<Config>(*config_, key); }
  std::optional<Status> status(const Key& key) const { return found<Status>(*status_, key); }
  void eachConfig(const std::function<void(const Config&)>& visit) const { each(*config_, visit); }
  void eachStatus(const std::function<void(const Status&)>& visit) const { each(*status_, visit); }
  /// Whether the status table has no room for a new key.
  bool full() const { return status_->table().members() == status_->table().capacity(); }
  /// Writes the status row of its key. Throws Cairn::ResourceExhaustedException, and stores nothing, when the
  /// key is new and the table full.
  void statusIs(const Status& status) {
    guarded(*status_, [&] { status_->tableIs(status); });
  }
  void statusDel(const Key& key) {
    guarded(*status_, [&] { status_->tableDel(key); });
  }
  /// How often a damaged segment of the status table has been replaced.
  std::uint64_t statusReplacements() const {
    auto* const attached = status_->table().writer();
    return attached == nullptr ? 0 : attached->writerCounters().replacements;
  }
  const Quill::Ptr<StatusEntity>& statusEntity() const { return status_; }
  /// The number of the status table's last change.
  std::uint64_t statusSequence() const { return writer().sequence(); }
  /// Whether every living reader has handled the status table's changes up to `sequence`. While answers wait
  /// for room, readers that have not moved for a second do not count.
  bool readersHandled(std::uint64_t sequence, bool roomNeeded) const {
    auto* const attached = status_->table().writer();
    if (attached == nullptr) return true;
    return roomNeeded ? attached->movingReadersQuiesced(sequence) : attached->quiesced(sequence);
  }

 private:
  template <class Entity>
  static Quill::Ptr<Entity> mounted(const TablePlace& place, const std::string& path,
                                    QuillVesta::QuillVestaType type) {
    QuillVesta::MountDescription description(type);
    description.collectionIs("table", place.capacity);
    const auto entity = QuillVesta::Mount(place.entityManager)
                            .doMount(path, Quill::String(std::string_view(Entity::kTypeName)), description);
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
    Cairn::require(implementation != nullptr, "status table is not attached", "TablePair");
    return *implementation;
  }

  Quill::Ptr<ConfigEntity> config_;
  Quill::Ptr<StatusEntity> status_;
};

}  // namespace HwAgent
