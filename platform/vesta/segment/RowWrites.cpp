#include "vesta/segment/RowWrites.h"

#include <algorithm>

#include "cairn/Exception.h"
#include "vesta/segment/ChangeLog.h"

namespace Vesta {

RowWrites::RowWrites(std::shared_ptr<Segment> segment, StepHook stepHook)
    : stepHook_(std::move(stepHook)),
      reads_(std::move(segment)),
      segment_(reads_.segment()),
      layout_(segment_.layout()),
      words_(&segment_.at(0)),
      shortcuts_(reinterpret_cast<std::uint32_t*>(words_ + layout_.shortcutsAt)),
      scratch_(1 + layout_.rowWords) {
  known_.resize(layout_.shape.capacity);
  keys_.resize(std::size_t{layout_.shape.capacity} * layout_.keyWords);
  free_.reserve(layout_.shape.capacity);  // a removal must not fail half-way
  takeOver();
}

// The slots are the truth: index, shortcuts, member count and free slots follow from them. The slot that
// carries the sequence after the published one is the change that the predecessor died in; its record is in
// the log, since that is written first, so it only remains to settle its row and to publish it. Without such
// a slot the change did not take place.
void RowWrites::takeOver() {
  const Word published = segment_.load(kSequenceAt);
  const Word pending = nextSequence(published);
  std::vector<Word> row(1 + layout_.rowWords);
  std::size_t members = 0;
  bool took = false;
  std::uint32_t staged = RowReads::kNone;  // one at most, since the row's checksum knows its slot
  for (std::uint32_t slot = layout_.shape.capacity; slot-- > 0;) {
    const Word version = reads_.readSlot(slot, row.data());
    if (isAfter(sequenceOf(version), pending)) {
      reportDamage("published sequence " + std::to_string(published) + ": slot " + std::to_string(slot) +
                   " was changed at " + std::to_string(sequenceOf(version)));
    }
    took = took || sequenceOf(version) == pending;
    if (isStaged(segment_.load(layout_.slotAt(slot)))) staged = slot;
    if (isOccupied(version)) {
      knownIs(slot, row.data() + 1, hashOf(row.data() + 1, layout_.keyWords), sequenceOf(version));
      ++members;
    } else {
      free_.push_back(slot);
    }
  }
  sequence_ = took ? pending : published;
  if (sequence_ != segment_.firstSequence()) checkRecord(segment_, sequence_, row.data());
  if (staged != RowReads::kNone) {
    reads_.readSlot(staged, row.data());
    settle(reads_.sizes(), row.data(), staged, checksumOf(row.data(), layout_.rowWords, staged));
  }
  const Word indexWord = segment_.load(kIndexAt);
  index_ = static_cast<unsigned>(indexWord) & 1;  // rebuilt whatever it says
  indexGeneration_ = static_cast<std::uint32_t>(indexWord) >> 1;
  rebuildIndex();
  indexRebuilds_ = 0;
  membersIs(members);
  std::atomic_ref<Word>(segment_.at(kSequenceAt)).store(sequence_, std::memory_order_seq_cst);
}

// Two slots with one key would make lookups depend on the order of the index.
void RowWrites::requireOtherKey(std::uint32_t slot, std::uint32_t other) {
  std::vector<Word> row(1 + layout_.rowWords);
  reads_.readSlot(slot, scratch_.data());
  reads_.readSlot(other, row.data());
  if (!reads_.sameKey(&scratch_[1], &row[1])) return;
  reportDamage("slot " + std::to_string(other) + ": holds the same key as slot " + std::to_string(slot));
}

// Where the new row and its cell will stand. Throws when there is no room.
void RowWrites::prepareInsertion(RowReads::Probe& place, const Word* key, Word hash) {
  if (free_.empty()) {
    throw Cairn::ResourceExhaustedException("table is full: used " + std::to_string(members_) + " of " +
                                            std::to_string(layout_.shape.capacity));
  }
  const std::size_t cell = layout_.indexAt(index_) + place.cell;
  if (cellState(segment_.unsealed(cell, "index cell")) == CellState::empty &&
      cellsTaken_ >= layout_.cells / 4 * 3) {
    rebuildIndex();
    place = find(reads_.sizes(), key, hash);
  }
  place.slot = free_.back();
}

void RowWrites::finishInsertion(const RowReads::Probe& place, const Word* key, Word hash) {
  free_.pop_back();
  knownIs(place.slot, key, hash, nextSequence(sequence_));
  putCell(place.cell, usedCell(hash, place.slot));
  membersIs(members_ + 1);
}

void RowWrites::knownIs(std::uint32_t slot, const Word* key, Word hash, Word sequence) {
  known_[slot] = {hash | kKnown, sequence};
  std::copy_n(key, layout_.keyWords, &keys_[std::size_t{slot} * layout_.keyWords]);
}

std::vector<RowWrites::HeldRow> RowWrites::heldRows() const {
  std::vector<HeldRow> rows;
  for (std::size_t slot = 0; slot < known_.size(); ++slot) {
    if (known_[slot].hash == 0) continue;
    const Word* key = &keys_[slot * layout_.keyWords];
    rows.emplace_back(std::vector<Word>(key, key + layout_.keyWords), known_[slot].sequence);
  }
  return rows;
}

void RowWrites::nextSlotsAre(const std::vector<std::uint32_t>& slots) {
  std::vector<bool> wanted(layout_.shape.capacity);
  for (const std::uint32_t slot : slots) wanted[slot] = true;
  std::erase_if(free_, [&](std::uint32_t slot) { return wanted[slot]; });
  free_.insert(free_.end(), slots.rbegin(), slots.rend());
}

bool RowWrites::restoreWords() {
  bool wrong = false;
  const auto restore = [&](std::size_t at, Word value) {
    if (segment_.load(at) == value) return;
    segment_.store(at, value);
    wrong = true;
  };
  for (std::size_t at = 0; at < kHeaderWords; ++at) restore(at, segment_.header()[at]);
  restore(kSequenceAt, sequence_);
  restore(kMembersAt, sealed(static_cast<std::uint32_t>(members_), kMembersAt));
  restore(kIndexAt, sealed(indexGeneration_ << 1 | index_, kIndexAt));
  restore(kStateAt, kLive);
  return wrong;
}

bool RowWrites::remove(const Word* key) {
  const Word hash = hashOf(key, layout_.keyWords);
  const RowReads::Probe found = find(reads_.sizes(), key, hash);
  if (found.slot == RowReads::kNone) return false;
  // The slot keeps the key, under the checksum, so that a reader can tell a vacated slot from a damaged one.
  scratch_.assign(1 + layout_.rowWords, 0);
  for (std::uint32_t i = 0; i < layout_.keyWords; ++i) scratch_[1 + i] = key[i];
  step(WriteStep::begun);
  putRecord(reads_.sizes(), scratch_.data(), found.slot, false);
  putSlot(reads_.sizes(), scratch_.data(), found.slot, false);
  known_[found.slot].hash = 0;
  free_.push_back(found.slot);
  takeCell(found.cell);
  membersIs(members_ - 1);
  publish();
  return true;
}

// A shortcut is put after its cell and taken before it, so that it never names what the index does not.
void RowWrites::putCell(std::uint32_t cell, std::uint32_t value) {
  const std::size_t at = layout_.indexAt(index_) + cell;
  if (cellState(static_cast<std::uint32_t>(segment_.load(at))) == CellState::empty) ++cellsTaken_;
  segment_.store(at, sealed(value, at));
  step(WriteStep::cellMoved);
  storeRelease(shortcuts_[cell], value);
}

// A cell whose successor is empty ends every chain through it, so it may become empty itself, and so may the
// marks before it. Anywhere else a mark has to stay, or the keys behind it would be lost to readers.
void RowWrites::takeCell(std::uint32_t cell) {
  const std::size_t base = layout_.indexAt(index_);
  const std::uint32_t mask = layout_.cells - 1;
  // A damaged cell counts as used, which keeps every chain whole; whoever probes it reports it. The change is
  // half done here and has to be finished.
  const auto state = [&](std::uint32_t at) {
    const Word word = segment_.load(base + at);
    return isSealed(word, base + at) ? cellState(static_cast<std::uint32_t>(word)) : CellState::used;
  };
  const auto put = [&](std::uint32_t at, std::uint32_t value) {
    storeRelease(shortcuts_[at], value);
    segment_.store(base + at, sealed(value, base + at));
  };
  if (state((cell + 1) & mask) != CellState::empty) {
    put(cell, kMarkCell);
  } else {
    do {
      put(cell, kEmptyCell);
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

// Readers go on with the old index until the one store of the index word; those that were in the spare one
// from before its last switch see the word move and start again.
void RowWrites::rebuildIndex() {
  const unsigned spare = 1 - index_;
  const std::size_t base = layout_.indexAt(spare);
  const std::uint32_t mask = layout_.cells - 1;
  for (std::size_t at = base; at < base + layout_.cells; ++at) segment_.store(at, sealed(kEmptyCell, at));
  step(WriteStep::rebuildCleared);
  std::uint32_t taken = 0;
  std::vector<std::uint32_t> filled(
      layout_.cells);  // what is read back comes from here, not from the segment
  for (std::uint32_t slot = 0; slot < layout_.shape.capacity; ++slot) {
    if (slot == layout_.shape.capacity / 2) step(WriteStep::rebuildHalf);
    const Word hash = known_[slot].hash;
    if (hash == 0) continue;
    std::uint32_t at = static_cast<std::uint32_t>(hash) & mask;
    for (; cellState(filled[at]) == CellState::used; at = (at + 1) & mask) {
      if (known_[cellSlot(filled[at])].hash == hash) [[unlikely]]
        requireOtherKey(cellSlot(filled[at]), slot);
    }
    filled[at] = usedCell(hash, slot);
    segment_.store(base + at, sealed(filled[at], base + at));
    ++taken;
  }
  step(WriteStep::rebuildFilled);
  cellsTaken_ = taken;
  index_ = spare;
  indexGeneration_ = (indexGeneration_ + 1) & 0x7fffffff;
  segment_.store(kIndexAt, sealed(indexGeneration_ << 1 | index_, kIndexAt));
  ++indexRebuilds_;
  step(WriteStep::rebuildSwitched);
  for (std::uint32_t cell = 0; cell < layout_.cells; ++cell) storeRelease(shortcuts_[cell], filled[cell]);
}

}  // namespace Vesta
