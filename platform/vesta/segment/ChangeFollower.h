#pragma once

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <vector>

#include "vesta/segment/ChangeLog.h"
#include "vesta/segment/RowReads.h"

namespace Vesta {

/// For each slot, the newest change that was notified, and the key of its row if there was one.
class NotifiedSlots {
 public:
  NotifiedSlots() = default;
  /// Every slot is vacant and was last changed at `sequence`.
  NotifiedSlots(const Layout& layout, Word sequence);

  bool isNewer(std::uint32_t slot, Word sequence) const { return isAfter(sequence, slots_[slot].sequence); }
  /// The key of the notified row; null when there is none.
  const Word* key(std::uint32_t slot) const {
    return slots_[slot].occupied ? &keys_[slot * std::size_t{keyWords_}] : nullptr;
  }
  void changeIs(std::uint32_t slot, Word sequence, bool occupied, const Word* key) {
    slots_[slot] = {sequence, occupied};
    std::copy_n(key, keyWords_, &keys_[slot * std::size_t{keyWords_}]);
  }
  void appendKeys(std::vector<EncodedKey>& keys) const;

 private:
  struct Slot {
    Word sequence = 0;
    bool occupied = false;
  };
  std::uint32_t keyWords_ = 0;
  std::vector<Slot> slots_;
  std::vector<Word> keys_;  // by slot
};

/// Keys that may have a row although no slot was notified of it: a handler looks rows up as they are now,
/// ahead of the log. Each is kept until the records of all changes that its handler may have seen have been
/// handled.
class WatchedKeys {
 public:
  struct Watched {
    Word until;
    EncodedKey key;
  };
  /// Keys are added in the order of `until`, which of the last one may be set later.
  Watched& add(EncodedKey key, Word until) { return keys_.emplace_back(Watched{until, std::move(key)}); }
  void handledIs(Word sequence);
  void appendKeys(std::vector<EncodedKey>& keys) const;
  bool empty() const { return keys_.empty(); }
  void clear() { keys_.clear(); }

 private:
  std::deque<Watched> keys_;
};

/// Turns the change log of a segment into calls: one for each change, in order, while the reader keeps up.
/// When the log has overrun the reader, the slots are compared with what was notified of them: each row
/// written since is notified once, and each notified key that is gone at least once; a removal may then be
/// notified again.
///
/// Every key that a handler was called with is accounted for, also if its row was looked up ahead of the log.
/// Rows that the owner looks up under other keys before their changes are notified are not: of those, a
/// removal in an overrun log is not notified.
///
/// Reads may throw Cairn::CorruptionDetectedException and UnsettledException, and any call std::bad_alloc;
/// nothing has been skipped then, and the next call tries again. Handlers must not throw, nor call the
/// follower.
class ChangeFollower {
 public:
  using KeyHandler = std::function<void(const Word* key)>;

  /// Follows no segment.
  explicit ChangeFollower(const Layout& layout);
  /// Follows the segment of `reads` after `before` has followed earlier ones: every row is a change, and so
  /// is every key that `before` may have notified and that has no row now.
  ChangeFollower(const ChangeFollower& before, RowReads& reads);
  /// Follows the segment of `reads` from here on. See above for rows that the owner looks up before the first
  /// notifyNext.
  static ChangeFollower fromNowOn(RowReads& reads);
  /// The segment was removed: every key that may have been notified is gone.
  void segmentGone();

  /// Notifies the next change; false when there is none. `reads`: of the segment followed, null after
  /// segmentGone.
  bool notifyNext(RowReads* reads, const KeyHandler& handler);
  bool hasPending(const Segment* segment) const;

  /// Every change up to this sequence has been notified. Until the rows of a new segment have been, a
  /// sequence before all others: the segment continues the sequences of the one before.
  Word handled() const noexcept { return handled_; }
  std::uint64_t overruns() const noexcept { return overruns_; }

 private:
  enum class State {
    following,  // the next change is in the log
    comparing,  // the slots have to be compared first
    notifying,  // found_ holds what is to be notified first
  };
  struct Found {
    EncodedKey key;
    bool removed;
  };

  std::vector<EncodedKey> knownKeys() const;
  template <class Visit>
  Word visitChanges(RowReads& reads, const Visit& visit);
  void compare(RowReads& reads);
  void foundIs(std::deque<Found> found, Word target) noexcept;
  bool notifyFound(RowReads* reads, const KeyHandler& handler);
  bool notifyRecord(RowReads& reads, const KeyHandler& handler);
  void caughtUp(const Segment& segment);
  void notifyRemoval(const Segment& segment, const Word* key, const KeyHandler& handler);

  Layout layout_;
  State state_ = State::following;
  NotifiedSlots slots_;  // none before the first segment
  WatchedKeys watched_;
  std::vector<EncodedKey> earlier_;  // keys notified in earlier segments, until the first comparison
  std::deque<Found> found_;          // in the order of notification
  Word target_ = 0;                  // handled once found_ has been notified
  Word handled_ = 0;
  std::uint64_t overruns_ = 0;
  std::vector<Word> row_;
  std::vector<Word> lookedUp_;  // a row that is looked up while row_ is in use
};

}  // namespace Vesta
