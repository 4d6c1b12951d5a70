#include "vesta/ChangeFollower.h"

#include <algorithm>
#include <string>

namespace Vesta {

ChangeFollower::ChangeFollower(const Layout& layout)
    : layout_(layout),
      told_(layout.shape.capacity),
      keys_(std::size_t{layout.shape.capacity} * layout.keyWords),
      row_(1 + layout.rowWords) {}

void ChangeFollower::tell(std::uint32_t slot, Word sequence, bool present, const Word* key) {
  told_[slot] = {sequence, present};
  std::copy_n(key, layout_.keyWords, keyOf(slot));
}

void ChangeFollower::segmentIs(RowReads& reads, InitialRows rows) {
  segmentGone();
  const Word first = reads.segment().firstSequence();
  for (Told& told : told_) told = {first, false};
  handled_ = first;
  if (rows == InitialRows::tell) {
    compare(reads);
  } else {
    handled_ = scan(reads, [this](std::uint32_t slot, Word version, const Word* key) {
      tell(slot, sequenceOf(version), isOccupied(version), key);
    });
  }
}

// Calls `visit` with each slot. Returns the sequence published before: a change that the slots do not show is
// newer than that, and in the log. A published sequence that no change had is seen by its record, or by a
// slot that is further on.
template <class Visit>
Word ChangeFollower::scan(RowReads& reads, const Visit& visit) {
  const Segment& segment = reads.segment();
  const Word published = segment.load(kSequenceAt);
  if (published != segment.firstSequence()) {
    ChangeRecord record{};
    readRecord(segment, published, row_.data(), record);
  }
  for (std::uint32_t slot = 0; slot < layout_.shape.capacity; ++slot) {
    const Word version = reads.readSlot(slot, row_.data());
    if (isAfter(sequenceOf(version), nextSequence(published))) {
      const Word newest = segment.load(kSequenceAt);
      if (isAfter(sequenceOf(version), nextSequence(newest))) {
        reportDamage("published sequence " + std::to_string(newest) + ": slot " + std::to_string(slot) +
                     " was changed at " + std::to_string(sequenceOf(version)));
      }
    }
    visit(slot, version, row_.data() + 1);
  }
  return published;
}

// Keys found by a comparison and not yet told are among the lost: the next segment decides what they are.
void ChangeFollower::segmentGone() {
  for (auto& key : queue_) lost_.push_back(std::move(key));
  queue_.clear();
  for (auto& [sequence, key] : ahead_) lost_.push_back(std::move(key));
  ahead_.clear();
  for (std::uint32_t slot = 0; slot < layout_.shape.capacity; ++slot) {
    if (told_[slot].present) lost_.emplace_back(keyOf(slot), keyOf(slot) + layout_.keyWords);
    told_[slot].present = false;
  }
}

bool ChangeFollower::hasPending(const Segment* segment) const {
  if (!queue_.empty()) return true;
  return segment != nullptr ? segment->load(kSequenceAt) != handled_ : !lost_.empty();
}

bool ChangeFollower::tellNext(RowReads* reads, const KeyHandler& handler) {
  for (;;) {
    if (!queue_.empty()) {
      const std::vector<Word> key = std::move(queue_.front());
      queue_.pop_front();
      const bool last = queue_.empty();
      tellGone(reads, key, handler);
      if (last && queue_.empty()) handled_ = target_;
      return true;
    }
    if (reads == nullptr) {
      if (lost_.empty()) return false;
      target_ = handled_;
      std::sort(lost_.begin(), lost_.end());
      lost_.erase(std::unique(lost_.begin(), lost_.end()), lost_.end());
      for (auto& key : lost_) queue_.push_back(std::move(key));
      lost_.clear();
      continue;
    }
    const Segment& segment = reads->segment();
    const Word published = segment.load(kSequenceAt);
    if (published == handled_) return false;
    if (sequenceDistance(handled_, published) > kSequenceMask / 2) {
      reportDamage("published sequence: found " + std::to_string(published) + " after " +
                   std::to_string(handled_));
    }
    if (!inLog(layout_, nextSequence(handled_), published)) {
      ++overtaken_;
      compare(*reads);
    } else if (tellRecord(*reads, handler)) {
      return true;
    }
  }
}

// One record of the log; false when there was nothing to tell after all. Overtaken while reading it: the
// caller's next look at the sequence shows that.
bool ChangeFollower::tellRecord(RowReads& reads, const KeyHandler& handler) {
  const Word sequence = nextSequence(handled_);
  ChangeRecord record{};
  if (readRecord(reads.segment(), sequence, row_.data(), record) == RecordState::overtaken) return false;
  if (!isAfter(sequence, told_[record.slot].sequence)) {
    handled_ = sequence;
    return false;
  }
  tell(record.slot, sequence, record.written, row_.data() + 1);
  handled_ = sequence;
  if (record.written) {
    handler(keyOf(record.slot));
    return true;
  }
  const std::vector<Word> key(keyOf(record.slot), keyOf(record.slot) + layout_.keyWords);
  tellGone(&reads, key, handler);
  return true;
}

// A handler looks the table up as it is now. Where a key told as gone has come back by then, the handler has
// seen a row that no slot is told of yet; should the log be gone before that row's end is told, the next
// comparison has to tell it. What the handler saw is known only if nothing was published meanwhile.
void ChangeFollower::tellGone(RowReads* reads, const std::vector<Word>& key, const KeyHandler& handler) {
  const Word before = reads != nullptr ? reads->segment().load(kSequenceAt) : handled_;
  handler(key.data());
  while (!ahead_.empty() && !isAfter(ahead_.front().first, handled_)) ahead_.pop_front();
  if (reads == nullptr) return;
  const Word published = reads->segment().load(kSequenceAt);
  std::uint32_t slot = 0;
  if (published == handled_) return;
  if (published != before || reads->lookup(key.data(), row_.data(), slot))
    ahead_.emplace_back(published, key);
}

// A key that is gone from its slot may have come back in another one. Then that slot's change is told, by
// this comparison or from the log, and the key is not told as gone.
void ChangeFollower::compare(RowReads& reads) {
  std::vector<std::pair<Word, std::vector<Word>>> changed;
  std::vector<std::vector<Word>> gone = std::move(lost_);
  lost_.clear();
  for (auto& [sequence, key] : ahead_) {
    if (isAfter(sequence, handled_)) gone.push_back(std::move(key));
  }
  ahead_.clear();
  target_ = scan(reads, [&](std::uint32_t slot, Word version, const Word* key) {
    if (!isAfter(sequenceOf(version), told_[slot].sequence)) return;
    const bool otherKey = !isOccupied(version) || !reads.sameKey(key, keyOf(slot));
    if (told_[slot].present && otherKey) gone.emplace_back(keyOf(slot), keyOf(slot) + layout_.keyWords);
    if (isOccupied(version)) {
      changed.emplace_back(sequenceOf(version), std::vector<Word>(key, key + layout_.keyWords));
    }
    tell(slot, sequenceOf(version), isOccupied(version), key);
  });
  std::sort(gone.begin(), gone.end());
  gone.erase(std::unique(gone.begin(), gone.end()), gone.end());
  for (auto& key : gone) {
    std::uint32_t slot = 0;
    if (!reads.lookup(key.data(), row_.data(), slot)) queue_.push_back(std::move(key));
  }
  const Word origin = handled_;
  std::sort(changed.begin(), changed.end(), [origin](const auto& a, const auto& b) {
    return sequenceDistance(origin, a.first) < sequenceDistance(origin, b.first);
  });
  for (auto& [sequence, key] : changed) queue_.push_back(std::move(key));
  if (queue_.empty()) handled_ = target_;
}

}  // namespace Vesta
