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
      held_(layout_),
      index_(segment_, stepHook_),
      scratch_(1 + layout_.rowWords) {
  free_.reserve(layout_.shape.capacity);  // a removal must not fail half-way
  recover();
}

// Index, shortcuts, member count and free slots follow from the slots.
void RowWrites::recover() {
  recoverSlots(segment_.load(kSequenceAt));
  rebuildIndex();
  membersIs(layout_.shape.capacity - free_.size());
  storePublished(words_[kSequenceAt], sequence_);
}

// A slot with the sequence after the published one carries the change that the last writer died in: its
// record is in the log, which is written first, so the row remains to be finished, and the change to be
// published. Without such a slot, the change was not made. At most one row is staged, since a row's checksum
// covers its slot.
void RowWrites::recoverSlots(Word published) {
  const Word pending = nextSequence(published);
  bool made = false;
  std::uint32_t staged = RowReads::kNone;
  for (std::uint32_t slot = layout_.shape.capacity; slot-- > 0;) {
    const Word version = reads_.readSlot(slot, scratch_.data());
    if (isAfter(sequenceOf(version), pending)) {
      throwCorruption("published sequence " + std::to_string(published) + ": slot " + std::to_string(slot) +
                          " was changed at " + std::to_string(sequenceOf(version)),
                      {DamagedPlace::slot(slot)});
    }
    made = made || sequenceOf(version) == pending;
    if (isStaged(segment_.load(layout_.slotAt(slot)))) staged = slot;
    if (isOccupied(version)) {
      const Word* const key = scratch_.data() + 1;
      held_.rowIs(slot, key, hashOf(key, layout_.keyWords), sequenceOf(version));
    } else {
      free_.push_back(slot);
    }
  }
  sequence_ = made ? pending : published;
  if (sequence_ != segment_.firstSequence()) checkRecord(segment_, sequence_, scratch_.data());
  if (staged == RowReads::kNone) return;
  reads_.readSlot(staged, scratch_.data());
  finishRow(reads_.sizes(), words_ + layout_.slotAt(staged), scratch_.data(),
            checksumOf(scratch_.data(), layout_.rowWords, staged), [this](WriteStep now) { step(now); });
}

void RowWrites::rebuildIndex() {
  index_.rebuild(held_, [this](std::uint32_t slot, std::uint32_t other) { requireOtherKey(slot, other); });
}

// Two slots with one key would make lookups depend on the order of the index.
void RowWrites::requireOtherKey(std::uint32_t slot, std::uint32_t other) {
  std::vector<Word> row(1 + layout_.rowWords);
  reads_.readSlot(slot, scratch_.data());
  reads_.readSlot(other, row.data());
  if (!reads_.sameKey(&scratch_[1], &row[1])) return;
  throwCorruption("slot " + std::to_string(other) + ": holds the same key as slot " + std::to_string(slot),
                  {DamagedPlace::slot(other), DamagedPlace::slot(slot)});
}

// Finds the slot and the cell of a new row.
void RowWrites::prepareInsertion(RowReads::Probe& place, const Word* key, Word hash) {
  if (free_.empty()) {
    throw Cairn::ResourceExhaustedException("table is full: used " + std::to_string(members_) + " of " +
                                            std::to_string(layout_.shape.capacity));
  }
  if (index_.isCrowded(place.cell)) {
    rebuildIndex();
    place = find(reads_.sizes(), key, hash);
  }
  place.slot = free_.back();
}

void RowWrites::finishInsertion(const RowReads::Probe& place, const Word* key, Word hash) {
  free_.pop_back();
  held_.rowIs(place.slot, key, hash, nextSequence(sequence_));
  index_.put(place.cell, hash, place.slot);
  membersIs(members_ + 1);
}

void RowWrites::finishRemoval(const RowReads::Probe& place) {
  held_.rowDel(place.slot);
  free_.push_back(place.slot);
  index_.take(place.cell);
  membersIs(members_ - 1);
}

void RowWrites::membersIs(std::size_t members) {
  members_ = members;
  segment_.store(kMembersAt, sealed(static_cast<std::uint32_t>(members), kMembersAt));
  step(WriteStep::membersMoved);
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
  restore(kIndexAt, index_.word());
  restore(kStateAt, kLive);
  return wrong;
}

}  // namespace Vesta
