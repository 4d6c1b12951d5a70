#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "vesta/segment/ChangeLog.h"
#include "vesta/segment/RowReads.h"

namespace Vesta {

/// Whether a reader is told of the rows that are there when it attaches, as if they were just written. One
/// that skips them and walks the table instead should follow soon: see ChangeFollower for what it may have
/// read ahead.
enum class InitialRows { tell, skip };

/// Turns the change log into calls, one for each change, in order. When the log has gone past it, it compares
/// the slots with what it has told of them: it tells each row changed since, and each key told of that is
/// gone, and no other; a key that changes while its own handler runs may be told once more.
///
/// What handlers look up under the key they were called with is accounted for. Other rows that the owner
/// happens to read ahead of their changes are not: of those, a removal in an overtaken log goes untold.
///
/// For each slot it keeps the sequence and key of the change last told. A change in the log that is not newer
/// than that was told by such a comparison and is left out.
class ChangeFollower {
 public:
  using KeyHandler = std::function<void(const Word* key)>;

  /// Follows no segment.
  explicit ChangeFollower(const Layout& layout);
  /// Follows `reads`' segment after `before` has followed others. Rows that are there count as told of (skip)
  /// or are told by the next poll, together with the keys that `before` knew of and that are not there.
  /// Throws on damage.
  ChangeFollower(const ChangeFollower& before, RowReads& reads, InitialRows rows);
  /// There is no segment any more: the next poll tells the keys that it held.
  void segmentGone();

  /// Tells the next change, if there is one. The handler must not throw.
  bool tellNext(RowReads* reads, const KeyHandler& handler);
  bool hasPending(const Segment* segment) const;

  /// Every change up to this sequence has been told. While rows that were there at the attach are yet to be
  /// told, a sequence before all others: changes of an earlier segment, whose sequences this one continues,
  /// are among them.
  Word handled() const noexcept {
    return attaching_ ? (handled_ - (Word{1} << 60)) & kSequenceMask : handled_;
  }
  std::uint64_t overtaken() const noexcept { return overtaken_; }

 private:
  using Key = std::vector<Word>;
  struct Told {
    Word sequence = 0;
    bool present = false;  // it held a row, whose key is in keys_
  };

  Word* keyOf(std::uint32_t slot) { return &keys_[std::size_t{slot} * layout_.keyWords]; }
  std::vector<Key> known() const;
  void tell(std::uint32_t slot, Word sequence, bool present, const Word* key);
  template <class Visit>
  Word scan(RowReads& reads, const Visit& visit);
  bool isFound(RowReads& reads);
  void compare(RowReads& reads);
  bool tellRecord(RowReads& reads, const KeyHandler& handler);
  void tellKey(RowReads* reads, const Key& key, const KeyHandler& handler);
  bool maySee(RowReads& reads, const Key& key, Word before);
  void lookOutFor(const Segment& segment, Key key);

  Layout layout_;
  std::vector<Told> told_;                     // by slot; empty before the first segment
  std::vector<Word> keys_;                     // by slot
  std::deque<Key> queue_;                      // found by a comparison, not yet told
  std::vector<Key> lost_;                      // told keys that the next comparison has to look for
  std::vector<std::pair<Word, Key>> changed_;  // rows that a comparison under way has found changed
  // Keys that came back, or may have, in changes not yet told, with the newest such change: told as gone, but
  // the handler may have seen the next row already, or found elsewhere by a comparison and not told as gone.
  std::deque<std::pair<Word, Key>> ahead_;
  std::vector<Word> row_;
  Word target_ = 0;  // handled once the queue is empty
  Word handled_ = 0;
  bool attaching_ = false;
  std::uint64_t overtaken_ = 0;
};

}  // namespace Vesta
