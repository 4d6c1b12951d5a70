#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vesta/segment/RowReads.h"
#include "vesta/segment/WriteStep.h"

namespace Vesta {

/// Writes rows of a mapped segment. The constructor takes the segment over from a predecessor that may have
/// died at any step: it checks every slot, makes the index anew from the slots and publishes a change that
/// took place but was not published. It throws Cairn::CorruptionDetectedException on damage, having changed
/// no row.
///
/// What holds between any two steps: every row that readers can find was once written whole; the log holds
/// the record of the newest published change, and of the next one before its slot moves.
class RowWrites {
 public:
  explicit RowWrites(std::shared_ptr<Segment> segment, StepHook stepHook = {});

  /// `row` as in RowReads; its version word is overwritten. False when `onlyIfPresent` and the key has no
  /// row. An insertion may rebuild the index, which takes time in proportion to the capacity. Throws
  /// Cairn::ResourceExhaustedException when a new key finds every slot taken.
  template <class Sizes>
  bool write(const Sizes& sizes, Word* row, bool onlyIfPresent);
  bool write(Word* row, bool onlyIfPresent) { return write(reads_.sizes(), row, onlyIfPresent); }
  /// False when the key has no row.
  bool remove(const Word* key);

  /// A row of this writer's: its key and the sequence of its last change.
  using HeldRow = std::pair<std::vector<Word>, Word>;
  /// Every row that this writer has put into the segment or found there, whatever the segment now says.
  std::vector<HeldRow> heldRows() const;
  /// Has the next insertions take these vacant slots, in this order.
  void nextSlotsAre(const std::vector<std::uint32_t>& slots);

  /// Puts the words right that no other operation checks or that only the writer can put right: the header,
  /// and the words of the writer's page but the pid. False when all were right.
  bool restoreWords();

  Word sequence() const noexcept { return sequence_; }
  std::size_t members() const noexcept { return members_; }
  std::uint64_t indexRebuilds() const noexcept { return indexRebuilds_; }
  RowReads& reads() noexcept { return reads_; }
  const Layout& layout() const noexcept { return layout_; }
  void step(WriteStep step) {
    if (stepHook_) [[unlikely]]
      stepHook_(step);
  }

 private:
  // What a slot is known to hold: the key's hash with this bit set, which is neither of its place nor of its
  // tag, 0 for no row; and the sequence of the row's last change.
  static constexpr Word kKnown = Word{1} << 40;
  struct Known {
    Word hash = 0;
    Word sequence = 0;
  };

  void takeOver();
  void requireOtherKey(std::uint32_t slot, std::uint32_t other);
  void rebuildIndex();
  template <class Sizes>
  RowReads::Probe find(const Sizes& sizes, const Word* key, Word hash);
  void prepareInsertion(RowReads::Probe& place, const Word* key, Word hash);
  void finishInsertion(const RowReads::Probe& place, const Word* key, Word hash);
  void knownIs(std::uint32_t slot, const Word* key, Word hash, Word sequence);
  template <class Sizes>
  void putRecord(const Sizes& sizes, Word* row, std::uint32_t slot, bool written);
  template <class Sizes>
  void putSlot(const Sizes& sizes, Word* row, std::uint32_t slot, bool occupied);
  template <class Sizes>
  void settle(const Sizes& sizes, const Word* row, std::uint32_t slot, Word check);
  template <class Sizes>
  bool holds(const Sizes& sizes, std::uint32_t slot, const Word* key, Word hash) const;
  void putCell(std::uint32_t cell, std::uint32_t value);
  void takeCell(std::uint32_t cell);
  void membersIs(std::size_t members);
  void publish();

  StepHook stepHook_;
  RowReads reads_;
  Segment& segment_;
  const Layout layout_;
  Word* const words_;  // the segment's; not owned, and so the next
  std::uint32_t* const shortcuts_;
  Word sequence_ = 0;
  std::size_t members_ = 0;
  unsigned index_ = 0;
  std::uint32_t indexGeneration_ = 0;
  std::uint32_t cellsTaken_ = 0;  // cells of the current index that are not empty
  std::uint64_t indexRebuilds_ = 0;
  std::vector<Known> known_;         // by slot
  std::vector<Word> keys_;           // by slot: of the rows known
  std::vector<std::uint32_t> free_;  // the next to be taken is the last
  std::vector<Word> scratch_;        // one row
};

template <class Sizes>
bool RowWrites::write(const Sizes& sizes, Word* row, bool onlyIfPresent) {
  const Word hash = hashOf(row + 1, sizes.keyWords);
  RowReads::Probe place{reads_.shortcut(hash), RowReads::kNone};
  if (place.slot == RowReads::kNone || !holds(sizes, place.slot, row + 1, hash)) [[unlikely]]
    place = find(sizes, row + 1, hash);
  const bool isNew = place.slot == RowReads::kNone;
  if (isNew) [[unlikely]] {
    if (onlyIfPresent) return false;
    prepareInsertion(place, row + 1, hash);
  }
  step(WriteStep::begun);
  putRecord(sizes, row, place.slot, true);
  putSlot(sizes, row, place.slot, true);
  known_[place.slot].sequence = nextSequence(sequence_);
  if (isNew) [[unlikely]]
    finishInsertion(place, row + 1, hash);
  publish();
  return true;
}

// By memory and by the key's bytes, without the checksum: what is in the segment alone, damaged, may look
// like a row that is not there or like another key's.
template <class Sizes>
bool RowWrites::holds(const Sizes& sizes, std::uint32_t slot, const Word* key, Word hash) const {
  return known_[slot].hash == (hash | kKnown) &&
         RowReads::sameKey(sizes, words_ + layout_.slotAt(sizes, slot) + 2, key);
}

// A key that seems not to be here is believed not to be only after the checksum of every slot that was
// compared with it.
template <class Sizes>
RowReads::Probe RowWrites::find(const Sizes& sizes, const Word* key, Word hash) {
  return reads_.probe(index_, hash, [&](std::uint32_t slot) {
    if (holds(sizes, slot, key, hash)) [[likely]]
      return true;
    reads_.readSlot(slot, scratch_.data());
    return false;
  });
}

// A reader may be copying the record that is overwritten here, which is `records` changes older. It finds out
// by the published sequence: that has come within one of the overwriting change before the first word is
// touched.
template <class Sizes>
void RowWrites::putRecord(const Sizes& sizes, Word* row, std::uint32_t slot, bool written) {
  const Word sequence = nextSequence(sequence_);
  row[0] = sequence << 2 | Word{written};
  const Word check = checksumOf(row, sizes.keyWords, slot);
  Word* record = words_ + layout_.logAt + (sequence & (layout_.records - 1)) * sizes.record();
  storeRelease(record[0], row[0]);
  storeRelease(record[1], Word{slot} << 32 | check);
  step(WriteStep::recordHalf);
  eachWord(sizes.keyWords, [&](std::size_t i) { storeRelease(record[2 + i], row[1 + i]); });
  step(WriteStep::recorded);
}

// Pairs with RowReads::copyOut.
template <class Sizes>
void RowWrites::putSlot(const Sizes& sizes, Word* row, std::uint32_t slot, bool occupied) {
  row[0] = makeVersion(nextSequence(sequence_), occupied);
  const Word check = checksumOf(row, sizes.rowWords, slot);
  Word* staging = words_ + layout_.stagingAt;
  eachWord(sizes.rowWords, [&](std::size_t i) { storeRelease(staging[1 + i], row[1 + i]); });
  step(WriteStep::stagedHalf);
  storeRelease(staging[0], check);
  step(WriteStep::staged);
  storeRelease(words_[layout_.slotAt(sizes, slot)], row[0] | kStaged);
  step(WriteStep::versionMoved);
  settle(sizes, row, slot, check);
}

// The second half of putSlot: from the staging row to the slot.
template <class Sizes>
void RowWrites::settle(const Sizes& sizes, const Word* row, std::uint32_t slot, Word check) {
  Word* words = words_ + layout_.slotAt(sizes, slot);
  eachWord(sizes.rowWords, [&](std::size_t i) { storeRelease(words[2 + i], row[1 + i]); });
  step(WriteStep::rowHalf);
  storeRelease(words[1], check);
  step(WriteStep::rowMoved);
  storeRelease(words[0], row[0]);
  step(WriteStep::versionSettled);
}

// Sequentially consistent, like the look at the sleepers that follows it and like the two accesses of
// SegmentReader::maySleep, its partners: either the reader sees this sequence or the writer sees the reader
// asleep. With anything weaker both may miss the other, and the reader sleeps on a change.
inline void RowWrites::publish() {
  sequence_ = nextSequence(sequence_);
  std::atomic_ref<Word>(words_[kSequenceAt]).store(sequence_, std::memory_order_seq_cst);
  step(WriteStep::published);
}

}  // namespace Vesta
