#pragma once

#include <memory>
#include <vector>

#include "vesta/segment/HeldRows.h"
#include "vesta/segment/IndexWrites.h"
#include "vesta/segment/RowReads.h"

namespace Vesta {

/// Writes rows of a mapped segment. The constructor recovers the segment from whatever step its last writer
/// died at: it checks every slot, rebuilds the index from the slots and publishes a change that was made but
/// not published. It throws SegmentCorruption without having changed a row.
///
/// Between any two steps: every row that readers find was once written whole; the log has the record of the
/// newest published change, and that of the next change before its slot moves.
class RowWrites {
 public:
  explicit RowWrites(std::shared_ptr<Segment> segment, StepHook stepHook = {});

  /// `row` as in RowReads; its version word is overwritten. False when `onlyIfPresent` and the key has no
  /// row. Throws Cairn::ResourceExhaustedException when a new key finds every slot in use. An insertion may
  /// rebuild the index, which takes time in proportion to the capacity.
  template <class Sizes>
  bool write(const Sizes& sizes, Word* row, bool onlyIfPresent);
  bool write(Word* row, bool onlyIfPresent) { return write(reads_.sizes(), row, onlyIfPresent); }
  /// False when the key has no row.
  template <class Sizes>
  bool remove(const Sizes& sizes, const Word* key);

  /// Makes the next insertions use these vacant slots, in this order.
  void nextSlotsAre(const std::vector<std::uint32_t>& slots);
  /// Restores the words that carry no check or that only the writer knows: the header, and the writer's page
  /// except for its pid. False when all were right.
  bool restoreWords();

  Word sequence() const noexcept { return sequence_; }
  std::size_t members() const noexcept { return members_; }
  std::uint64_t indexRebuilds() const noexcept { return index_.rebuilds() - 1; }  // without the recovery's
  const HeldRows& heldRows() const noexcept { return held_; }
  RowReads& reads() noexcept { return reads_; }
  const Layout& layout() const noexcept { return layout_; }
  void step(WriteStep step) const {
    if (stepHook_) [[unlikely]]
      stepHook_(step);
  }

 private:
  void recover();
  void recoverSlots(Word published);
  void rebuildIndex();
  void requireOtherKey(std::uint32_t slot, std::uint32_t other);
  template <class Sizes>
  RowReads::Probe find(const Sizes& sizes, const Word* key, Word hash);
  template <class Sizes>
  bool holds(const Sizes& sizes, std::uint32_t slot, const Word* key, Word hash) const;
  void prepareInsertion(RowReads::Probe& place, const Word* key, Word hash);
  void finishInsertion(const RowReads::Probe& place, const Word* key, Word hash);
  void finishRemoval(const RowReads::Probe& place);
  template <class Sizes>
  void put(const Sizes& sizes, Word* row, std::uint32_t slot, bool occupied);
  void membersIs(std::size_t members);
  void publish();

  StepHook stepHook_;
  RowReads reads_;
  Segment& segment_;
  const Layout layout_;
  Word* const words_;  // the segment's; not owned
  HeldRows held_;
  IndexWrites index_;
  Word sequence_ = 0;
  std::size_t members_ = 0;
  std::vector<std::uint32_t> free_;  // vacant slots; the last is used next
  std::vector<Word> scratch_;        // one row
};

template <class Sizes>
bool RowWrites::write(const Sizes& sizes, Word* row, bool onlyIfPresent) {
  const Word hash = hashOf(row + 1, sizes.keyWords);
  RowReads::Probe place = reads_.shortcut(hash);
  if (place.slot == RowReads::kNone || !holds(sizes, place.slot, row + 1, hash)) [[unlikely]]
    place = find(sizes, row + 1, hash);
  const bool isNew = place.slot == RowReads::kNone;
  if (isNew) [[unlikely]] {
    if (onlyIfPresent) return false;
    prepareInsertion(place, row + 1, hash);
  }
  put(sizes, row, place.slot, true);
  held_.sequenceIs(place.slot, nextSequence(sequence_));
  if (isNew) [[unlikely]]
    finishInsertion(place, row + 1, hash);
  publish();
  return true;
}

template <class Sizes>
bool RowWrites::remove(const Sizes& sizes, const Word* key) {
  const Word hash = hashOf(key, sizes.keyWords);
  RowReads::Probe found = reads_.shortcut(hash);
  if (found.slot == RowReads::kNone || !holds(sizes, found.slot, key, hash) ||
      !index_.names(found.cell, hash, found.slot)) [[unlikely]] {
    found = find(sizes, key, hash);
  }
  if (found.slot == RowReads::kNone) return false;
  // The slot keeps the key, under the checksum, which distinguishes a vacated slot from a damaged one.
  eachWord(sizes.rowWords, [&](std::size_t i) { scratch_[1 + i] = i < sizes.key() ? key[i] : 0; });
  put(sizes, scratch_.data(), found.slot, false);
  finishRemoval(found);
  publish();
  return true;
}

// By memory, and by the key's bytes without the checksum.
template <class Sizes>
bool RowWrites::holds(const Sizes& sizes, std::uint32_t slot, const Word* key, Word hash) const {
  return held_.hasHash(slot, hash) && RowReads::sameKey(sizes, words_ + layout_.slotAt(sizes, slot) + 2, key);
}

// A key counts as absent only if every slot that was compared with it is intact.
template <class Sizes>
RowReads::Probe RowWrites::find(const Sizes& sizes, const Word* key, Word hash) {
  const RowReads::Probe found = reads_.probe(index_.which(), hash, [&](std::uint32_t slot) {
    if (holds(sizes, slot, key, hash)) [[likely]]
      return true;
    reads_.readSlot(slot, scratch_.data());
    return false;
  });
  if (found.isFull) [[unlikely]]
    reads_.throwFullIndex(index_.which());
  return found;
}

/// The log record and the slot of the next change.
template <class Sizes>
[[gnu::always_inline]] inline void RowWrites::put(const Sizes& sizes, Word* row, std::uint32_t slot,
                                                  bool occupied) {
  const auto stepped = [this](WriteStep now) { step(now); };
  const Word sequence = nextSequence(sequence_);
  step(WriteStep::begun);
  Word* const record = words_ + layout_.logAt + (sequence & (layout_.records - 1)) * sizes.record();
  putRecord(sizes, record, sequence, slot, occupied, row, stepped);
  row[0] = makeVersion(sequence, occupied);
  putRow(sizes, words_ + layout_.slotAt(sizes, slot), words_ + layout_.stagingAt, slot, row, stepped);
}

inline void RowWrites::publish() {
  sequence_ = nextSequence(sequence_);
  storePublished(words_[kSequenceAt], sequence_);
  step(WriteStep::published);
}

}  // namespace Vesta
