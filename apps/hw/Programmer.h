// Answers the config rows of one table pair with status rows, as the hardware would.
#pragma once

#include <algorithm>
#include <chrono>
#include <deque>
#include <optional>

#include "apps/hw/AnswerCounters.h"
#include "apps/hw/Faults.h"
#include "cairn/Exception.h"
#include "skein/Skein.h"

namespace HwAgent {

/// Each change of a config row is answered once: the status row then carries the config row's handle and
/// genId, or is marked deleted. Whether a row still needs an answer follows from the two rows alone, so
/// answering is safe to repeat.
///
/// The status row of a deleted entry stays until the readers have handled it. When such rows fill the status
/// table, an answer that needs a row of its own waits until they are removed; other answers do not wait,
/// since those for deleted entries are the ones that free rows.
template <class Pair>
class Programmer {
 public:
  using Key = typename Pair::Key;
  using Config = typename Pair::Config;
  using Status = typename Pair::Status;
  using Clock = std::chrono::steady_clock;

  /// `tables` is not owned. Each answer is given `delay` after its change.
  Programmer(Pair& tables, Faults<Config> faults, Clock::duration delay, AnswerCounters counters = {})
      : tables_(tables), faults_(std::move(faults)), delay_(delay), counters_(std::move(counters)) {}

  /// Answers from now on follow the faults of `table` among these.
  void faultsAre(std::string_view table, std::span<const Fault> faults) { faults_.replace(table, faults); }

  /// Answers every row that needs it: at start, and after changes that may have been missed.
  void reconcile(Clock::time_point now) {
    tables_.eachConfig([&](const Config& config) { changed(config.key(), now); });
    std::deque<Key> gone;
    tables_.eachStatus([&](const Status& status) {
      if (status.deleted) {
        removals_.push_back({status.key(), status.entryHandle, tables_.statusSequence()});
      } else if (!tables_.config(status.key())) {
        gone.push_back(status.key());
      }
    });
    for (const Key& key : gone) changed(key, now);
  }

  /// A config row was written or removed.
  void changed(const Key& key, Clock::time_point now) {
    traceSeen(key);
    const std::uint64_t seen = counters_.seen();
    if (delay_ == Clock::duration::zero()) {
      answer(key, seen);
    } else {
      delayed_.push_back({key, seen, now + delay_});
    }
  }

  /// Does what is due at `now`. Returns whether an answer was given or a row removed.
  bool advance(Clock::time_point now) {
    const std::uint64_t before = moves_;
    while (!delayed_.empty() && delayed_.front().due <= now) {
      const Delayed delayed = delayed_.front();
      delayed_.pop_front();
      answer(delayed.key, delayed.seen);
    }
    const bool room = removeHandled();
    for (std::size_t i = room ? blocked_.size() : 0; i > 0; --i) {
      const Blocked blocked = blocked_.front();
      blocked_.pop_front();
      answer(blocked.key, blocked.seen);
    }
    return moves_ != before;
  }

  /// The time of the next delayed answer; none when no answer is being delayed.
  std::optional<Clock::time_point> nextAnswer() const {
    if (delayed_.empty()) return std::nullopt;
    return delayed_.front().due;
  }
  /// Status rows of deleted entries that wait for the readers.
  std::size_t removals() const { return removals_.size(); }
  /// Answers that wait for a free row in the status table.
  std::size_t blocked() const { return blocked_.size(); }
  std::uint64_t answers() const { return answers_; }

 private:
  struct Blocked {
    Key key;
    std::uint64_t seen;
  };
  struct Delayed {
    Key key;
    std::uint64_t seen;  // Braid::ticks()
    Clock::time_point due;
  };
  struct Removal {
    Key key;
    std::uint64_t entryHandle;
    std::uint64_t sequence;  // of the status row that reported the removal
  };

  void traceSeen(const Key& key) {
    static constinit const Skein::Site written{"./apps/hw/Programmer", 88, "changed", "handle %s genId %s"};
    static constinit const Skein::Site removed{"./apps/hw/Programmer", 89, "changed", "removed handle %s"};
    if (const std::optional<Config> config = tables_.config(key)) {
      Skein::message(written, config->entryHandle, config->genId);
    } else if (const std::optional<Status> status = tables_.status(key)) {
      Skein::message(removed, status->entryHandle);
    }
  }

  void answer(const Key& key, std::uint64_t seen) {
    const std::optional<Config> config = tables_.config(key);
    const std::optional<Status> status = tables_.status(key);
    if (!tables_.readable()) return;  // checked after the reads, which may detect the damage
    if (config) {
      const bool answered = status && !status->deleted && status->entryHandle == config->entryHandle &&
                            status->genId == config->genId;
      if (answered) return;
      if (status || !tables_.full()) return answerPresent(*config, seen);
      blocked_.push_back({key, seen});
    } else if (status && !status->deleted) {
      answerDeleted(*status, seen);
    }
  }

  /// The status table has room. The message comes before the write: once the row is there, the agent's own
  /// message about it may be earlier than any that follows here.
  void answerPresent(const Config& config, std::uint64_t seen) {
    Status status{};
    static_cast<Key&>(status) = config.key();
    status.genId = config.genId;
    status.entryHandle = config.entryHandle;
    status.errorCode = config.valid ? faults_.codeFor(config) : std::uint16_t{0};
    static constinit const Skein::Site site{"./apps/hw/Programmer", 128, "answerPresent",
                                            "handle %s genId %s error %s"};
    Skein::message(site, status.entryHandle, status.genId, status.errorCode);
    tables_.statusIs(status);
    if (config.valid) faults_.answered();
    counters_.answered(status.errorCode, seen);
    ++answers_;
    ++moves_;
  }

  void answerDeleted(Status status, std::uint64_t seen) {
    status.errorCode = 0;
    status.deleted = true;
    static constinit const Skein::Site site{"./apps/hw/Programmer", 143, "answerDeleted", "handle %s"};
    Skein::message(site, status.entryHandle);
    tables_.statusIs(status);
    removals_.push_back({status.key(), status.entryHandle, tables_.statusSequence()});
    counters_.removed(seen);
    ++answers_;
    ++moves_;
  }

  /// Removes the status rows of deleted entries that every reader has handled, unless the key is in use
  /// again.
  bool removeHandled() {
    bool removed = false;
    while (!removals_.empty() && tables_.readersHandled(removals_.front().sequence, !blocked_.empty())) {
      const Removal removal = removals_.front();
      removals_.pop_front();
      const std::optional<Status> status = tables_.status(removal.key);
      if (!status || !status->deleted || status->entryHandle != removal.entryHandle) continue;
      tables_.statusDel(removal.key);
      removed = true;
      ++moves_;
    }
    return removed;
  }

  Pair& tables_;  // not owned
  Faults<Config> faults_;
  Clock::duration delay_;
  std::deque<Delayed> delayed_;
  std::deque<Removal> removals_;  // in order of their sequence
  std::deque<Blocked> blocked_;
  AnswerCounters counters_;
  std::uint64_t answers_ = 0;
  std::uint64_t moves_ = 0;
};

}  // namespace HwAgent
