#include "vesta/RowWrites.h"

#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Vesta {

bool RowWrites::write(Word* row, bool onlyIfPresent) {
  const Word hash = hashOf(row + 1, layout_.keyWords);
  RowReads::Probe found = find(row + 1, hash);
  const bool isNew = found.slot == RowReads::kNone;
  if (isNew) {
    if (onlyIfPresent) return false;
    if (free_.empty()) {
      throw Cairn::ResourceExhaustedException("table is full: used " + std::to_string(members_) + " of " +
                                              std::to_string(layout_.shape.capacity));
    }
    found.slot = free_.back();
    const bool takesEmpty =
        cellState(segment_.unsealed(layout_.indexAt(index_) + found.place, "index cell")) == CellState::empty;
    if (takesEmpty && cellsTaken_ >= layout_.cells / 8 * 5) {
      rebuildIndex();
      found.place = find(row + 1, hash).place;
    }
  }
  step(WriteStep::begun);
  putRecord(row, found.slot, true);
  putSlot(row, found.slot, true);
  if (isNew) {
    free_.pop_back();
    known_[found.slot] = {hash, true};
    putCell(found.place, usedCell(hash, found.slot));
    membersIs(members_ + 1);
  }
  publish();
  return true;
}

bool RowWrites::remove(const Word* key) {
  const Word hash = hashOf(key, layout_.keyWords);
  const RowReads::Probe found = find(key, hash);
  if (found.slot == RowReads::kNone) return false;
  // The slot keeps the key, under the checksum, so that a reader can tell a vacated slot from a damaged one.
  scratch_.assign(1 + layout_.rowWords, 0);
  for (std::uint32_t i = 0; i < layout_.keyWords; ++i) scratch_[1 + i] = key[i];
  step(WriteStep::begun);
  putRecord(scratch_.data(), found.slot, false);
  putSlot(scratch_.data(), found.slot, false);
  known_[found.slot].occupied = false;
  free_.push_back(found.slot);
  takeCell(found.cell);
  membersIs(members_ - 1);
  publish();
  return true;
}

// A key that is here is found by its bytes alone. One that seems not to be here is believed only after the
// checksum of every slot that was compared with it.
RowReads::Probe RowWrites::find(const Word* key, Word hash) {
  return reads_.probe(index_, hash, [&](std::uint32_t slot) {
    const Word version = segment_.load(layout_.slotAt(slot));
    if (isOccupied(version) && reads_.sameKey(&segment_.at(layout_.copyAt(slot, copyOf(version))) + 1, key)) {
      return true;
    }
    reads_.readSlot(slot, scratch_.data());
    return false;
  });
}

// A reader may be copying the record that is overwritten here, which is `records` changes older. It finds out
// by the published sequence: that has come within one of the overwriting change before the first word is
// touched.
void RowWrites::putRecord(Word* row, std::uint32_t slot, bool written) {
  const Word sequence = nextSequence(sequence_);
  row[0] = sequence << 2 | Word{written};
  const Word check = Cairn::checksum(row, (1 + layout_.keyWords) * sizeof(Word), slot);
  const std::size_t record = layout_.recordAt(sequence);
  segment_.store(record, row[0]);
  segment_.store(record + 1, Word{slot} << 32 | check);
  step(WriteStep::recordHalf);
  for (std::uint32_t i = 0; i < layout_.keyWords; ++i) segment_.store(record + 2 + i, row[1 + i]);
  step(WriteStep::recorded);
}

// Pairs with RowReads::readSlot.
void RowWrites::putSlot(Word* row, std::uint32_t slot, bool occupied) {
  const std::size_t versionAt = layout_.slotAt(slot);
  const unsigned copy = 1 - copyOf(segment_.load(versionAt));
  row[0] = makeVersion(nextSequence(sequence_), copy, occupied);
  const std::size_t at = layout_.copyAt(slot, copy);
  segment_.store(at, Cairn::checksum(row, (1 + layout_.rowWords) * sizeof(Word), slot));
  for (std::uint32_t i = 1; i <= layout_.keyWords; ++i) segment_.store(at + i, row[i]);
  step(WriteStep::copyHalf);
  for (std::uint32_t i = 1 + layout_.keyWords; i <= layout_.rowWords; ++i) segment_.store(at + i, row[i]);
  step(WriteStep::copied);
  segment_.store(versionAt, row[0]);
  step(WriteStep::versionMoved);
}

void RowWrites::putCell(std::uint32_t cell, std::uint32_t value) {
  const std::size_t at = layout_.indexAt(index_) + cell;
  if (cellState(static_cast<std::uint32_t>(segment_.load(at))) == CellState::empty) ++cellsTaken_;
  segment_.store(at, sealed(value, at));
  step(WriteStep::cellMoved);
}

// A cell whose successor is empty ends every chain through it, so it may become empty itself, and so may the
// marks before it. Anywhere else a mark has to stay, or the keys behind it would be lost to readers.
void RowWrites::takeCell(std::uint32_t cell) {
  const std::size_t base = layout_.indexAt(index_);
  const std::uint32_t mask = layout_.cells - 1;
  const auto state = [&](std::uint32_t at) { return cellState(segment_.unsealed(base + at, "index cell")); };
  const auto put = [&](std::uint32_t at, std::uint32_t value) {
    segment_.store(base + at, sealed(value, base + at));
  };
  if (state((cell + 1) & mask) != CellState::empty) {
    put(cell, kMarkCell);
  } else {
    do {
      put(cell, 0);
      --cellsTaken_;
      cell = (cell - 1) & mask;
    } while (state(cell) == CellState::mark);
  }
  step(WriteStep::cellMoved);
}

void RowWrites::membersIs(std::size_t members) {
  members_ = members;
  segment_.store(kMembersAt, sealed(static_cast<std::uint32_t>(members), kMembersAt));
  step(WriteStep::membersMoved);
}

// Sequentially consistent, like the look at the sleepers that follows it and like the two accesses of
// SegmentReader::maySleep, its partners: either the reader sees this sequence or the writer sees the reader
// asleep. With anything weaker both may miss the other, and the reader sleeps on a change.
void RowWrites::publish() {
  sequence_ = nextSequence(sequence_);
  std::atomic_ref<Word>(segment_.at(kSequenceAt)).store(sequence_, std::memory_order_seq_cst);
  step(WriteStep::published);
}

// Readers go on with the old index until the one store of the index word; those that were in the spare one
// from before its last switch see the word move and start again.
void RowWrites::rebuildIndex() {
  const unsigned spare = 1 - index_;
  const std::size_t base = layout_.indexAt(spare);
  const std::uint32_t mask = layout_.cells - 1;
  for (std::size_t at = base; at < base + layout_.cells; ++at) segment_.store(at, sealed(0, at));
  step(WriteStep::rebuildCleared);
  cellsTaken_ = 0;
  for (std::uint32_t slot = 0; slot < layout_.shape.capacity; ++slot) {
    if (slot == layout_.shape.capacity / 2) step(WriteStep::rebuildHalf);
    if (!known_[slot].occupied) continue;
    const Word hash = known_[slot].hash;
    std::size_t at = static_cast<std::uint32_t>(hash) & mask;
    while (cellState(static_cast<std::uint32_t>(segment_.load(base + at))) == CellState::used)
      at = (at + 1) & mask;
    segment_.store(base + at, sealed(usedCell(hash, slot), base + at));
    ++cellsTaken_;
  }
  step(WriteStep::rebuildFilled);
  index_ = spare;
  indexGeneration_ = (indexGeneration_ + 1) & 0x7fffffff;
  segment_.store(kIndexAt, sealed(indexGeneration_ << 1 | index_, kIndexAt));
  ++indexRebuilds_;
  step(WriteStep::rebuildSwitched);
}

}  // namespace Vesta
