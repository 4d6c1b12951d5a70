// How a writer takes a segment over.
#include "vesta/ChangeLog.h"
#include "vesta/RowWrites.h"

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

}  // namespace Vesta
