// Follows the entities of one table pair: their changes go to a programmer, which answers them.
#pragma once

#include <memory>
#include <utility>

#include "apps/counters/SegmentTally.h"
#include "apps/hw/Programmer.h"
#include "apps/hw/TablePair.h"
#include "apps/hw/Tables.h"

namespace HwAgent {

template <class ConfigEntity, class StatusEntity>
class EntityFollower final : public TableFollower {
 public:
  using Pair = TablePair<ConfigEntity, StatusEntity>;
  using Key = typename Pair::Key;
  using Clock = std::chrono::steady_clock;

  EntityFollower(const TablePlace& place, const Settings& settings)
      : loop_(place.entityManager->eventLoop()),
        name_(place.name),
        pair_(place),
        programmer_(pair_, Faults<typename Pair::Config>(place.name, settings.faults, settings.failEvery),
                    settings.delay, place.counters),
        counters_(place.counters),
        delayed_(settings.delay.count() != 0),
        reactor_(Quill::allocate<Reactor>(*this)),
        replacements_(pair_.statusReplacements()) {
    reactor_->notifierIs(pair_.configEntity());
    reactor_->isRegisteredNotifieeIs(true);
    programmer_.reconcile(Clock::now());
    arm();
    count();
  }
  ~EntityFollower() override {
    reactor_->isRegisteredNotifieeIs(false);
    reactor_->notifierIs(nullptr);
    if (timer_ != 0) loop_.timerDel(timer_);
  }

  std::uint64_t answers() const override { return programmer_.answers(); }
  void faultsAre(const std::vector<Fault>& faults) override { programmer_.faultsAre(name_, faults); }
  bool attached() const override { return pair_.readable(); }
  bool configLost() const override { return !pair_.configEntity()->attached(); }
  std::string displacedFile() const override { return pair_.displacedFile(); }
  void maintain(bool changesMissed) override {
    // Status rows that were lost with a damaged segment are answers that the agent may never have seen.
    const std::uint64_t replacements = pair_.statusReplacements();
    if (replacements != replacements_ || changesMissed) programmer_.reconcile(Clock::now());
    replacements_ = replacements;
    arm();
    count();
  }

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

  /// Not after a table was lost: Tables counts that, or the next writer of the status table.
  void count() {
    if (!pair_.readable()) return;
    AnswerCounters::Words& words = counters_.words();
    words.used.set(pair_.statusEntity()->table().members());
    words.blocked.set(programmer_.blocked());
    segments_.copy(*pair_.statusEntity(), *pair_.configEntity(), words.segments);
  }

  /// Has the loop call advance() while an answer or a removal waits.
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
    // Readers that do not move are checked ever more rarely.
    pause_ = programmer_.advance(Clock::now()) ? kShortestPause : std::min(pause_ * 2, kLongestPause);
    arm();
  }

  static constexpr Clock::duration kShortestPause = std::chrono::milliseconds(1);
  static constexpr Clock::duration kLongestPause = std::chrono::milliseconds(100);

  Quill::EventLoop& loop_;  // not owned
  std::string name_;
  Pair pair_;
  Programmer<Pair> programmer_;
  AnswerCounters counters_;
  Counters::SegmentTally segments_;
  bool delayed_;
  Quill::Ptr<Reactor> reactor_;
  Clock::duration pause_ = kShortestPause;
  Quill::EventLoop::TimerId timer_ = 0;
  std::uint64_t replacements_;  // of the status table's segment until the last check
};

template <class ConfigEntity, class StatusEntity>
std::unique_ptr<TableFollower> followEntities(const TablePlace& place, const Settings& settings) {
  return std::make_unique<EntityFollower<ConfigEntity, StatusEntity>>(place, settings);
}

}  // namespace HwAgent
