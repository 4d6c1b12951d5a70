#include "vesta/segment/ChangeFollower.h"

#include <algorithm>
#include <iterator>
#include <string>

namespace Vesta {

ChangeFollower::ChangeFollower(const Layout& layout) : layout_(layout) {}

ChangeFollower::ChangeFollower(const ChangeFollower& before, RowReads& reads, InitialRows rows)
    : layout_(before.layout_),
      told_(layout_.shape.capacity, Told{reads.segment().firstSequence(), false}),
      keys_(std::size_t{layout_.shape.capacity} * layout_.keyWords),
      lost_(before.known()),
      row_(1 + layout_.rowWords),
      handled_(reads.segment().firstSequence()),
      attaching_(rows == InitialRows::tell),
      overtaken_(before.overtaken_) {
  if (attaching_) {
    compare(reads);
  } else {
    handled_ = scan(reads, [this](std::uint32_t slot, Word sequence, bool occupied, bool, const Word* key) {
      tell(slot, sequence, occupied, key);
    });
  }
}

// Keys found by a comparison and not yet told are among them: the next segment decides what they are.
auto ChangeFollower::known() const -> std::vector<Key> {
  std::vector<Key> keys = lost_;
  keys.insert(keys.end(), queue_.begin(), queue_.end());
  for (const auto& [sequence, key] : changed_) keys.push_back(key);
  for (const auto& [until, key] : ahead_) keys.push_back(key);
  for (std::size_t slot = 0; slot < told_.size(); ++slot) {
    const Word* key = &keys_[slot * layout_.keyWords];
    if (told_[slot].present) keys.emplace_back(key, key + layout_.keyWords);
  }
  return keys;
}

void ChangeFollower::segmentGone() {
  const Word handled = handled_;
  const std::uint64_t overtaken = overtaken_;
  std::vector<Key> lost = known();
  *this = ChangeFollower(layout_);
  lost_ = std::move(lost);
  handled_ = handled;
  overtaken_ = overtaken;
}

void ChangeFollower::tell(std::uint32_t slot, Word sequence, bool present, const Word* key) {
  told_[slot] = {sequence, present};
  std::copy_n(key, layout_.keyWords, keyOf(slot));
}

// Whether a lookup finds the key of the row in row_.
bool ChangeFollower::isFound(RowReads& reads) {
  std::vector<Word> row(row_.size());
  std::uint32_t slot = 0;
  return reads.lookup(row_.data() + 1, row.data(), slot);
}

// Calls `visit` with each slot. Returns the sequence published before: a change that the slots do not show is
// newer than that, and in the log. A published sequence that no change had is seen by its record, or by a
// slot that is further on.
//
// A row stands in its slot before the index names it and its change is published: a handler called in between
// would not find it. Such a row is `underWay`; its slot is given the sequence before, so that the log's
// record of the change is not left out.
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
    Word sequence = sequenceOf(version);
    bool underWay = false;
    if (isAfter(sequence, published)) {
      const Word newest = segment.load(kSequenceAt);
      if (isAfter(sequence, nextSequence(newest))) {
        reportDamage("published sequence " + std::to_string(newest) + ": slot " + std::to_string(slot) +
                     " was changed at " + std::to_string(sequence));
      }
      underWay = isOccupied(version) && isAfter(sequence, newest) && !isFound(reads);
      if (underWay) sequence = newest;
    }
    visit(slot, sequence, isOccupied(version), underWay, row_.data() + 1);
  }
  return published;
}

bool ChangeFollower::hasPending(const Segment* segment) const {
  if (!queue_.empty() || !lost_.empty() || !changed_.empty()) return true;
  return segment != nullptr && segment->load(kSequenceAt) != handled_;
}

bool ChangeFollower::tellNext(RowReads* reads, const KeyHandler& handler) {
  for (;;) {
    if (!queue_.empty()) {
      const Key key = std::move(queue_.front());
      queue_.pop_front();
      const bool last = queue_.empty();
      tellKey(reads, key, handler);
      if (last && queue_.empty()) {
        handled_ = target_;
        attaching_ = false;
      }
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
    if (!lost_.empty() || !changed_.empty()) {  // of a comparison that a read cut short
      compare(*reads);
      continue;
    }
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
  const Key key(keyOf(record.slot), keyOf(record.slot) + layout_.keyWords);
  tellKey(&reads, key, handler);
  return true;
}

// A handler looks the table up as it is now. Where a key told as gone has come back by then, the handler has
// seen a row that no slot is told of yet; should the log be gone before that row's end is told, the next
// comparison has to tell it.
void ChangeFollower::tellKey(RowReads* reads, const Key& key, const KeyHandler& handler) {
  const Word before = reads != nullptr ? reads->segment().load(kSequenceAt) : handled_;
  handler(key.data());
  while (!ahead_.empty() && !isAfter(ahead_.front().first, handled_)) ahead_.pop_front();
  if (reads != nullptr && maySee(*reads, key, before)) lookOutFor(reads->segment(), key);
}

// Whether a lookup between the load of `before`, the sequence published then, and now may have found `key`.
// The order of the looks is what makes a no certain. A lookup that misses the key because its removal has
// taken place also makes that change's record visible. So either the record is there, or one that overwrote
// it, and whoever has seen that one sees a newer sequence too. A read that fails says nothing: it may.
bool ChangeFollower::maySee(RowReads& reads, const Key& key, Word before) {
  try {
    std::uint32_t slot = 0;
    if (reads.lookup(key.data(), row_.data(), slot)) return true;
  } catch (const Cairn::Exception&) {
    return true;
  }
  if (isBegun(reads.segment(), nextSequence(before))) return true;
  return reads.segment().load(kSequenceAt) != before;
}

// Until the changes that took place so far, of which one may be unpublished, are handled.
void ChangeFollower::lookOutFor(const Segment& segment, Key key) {
  ahead_.emplace_back(nextSequence(segment.load(kSequenceAt)), std::move(key));
}

// A key that is gone from its slot may have come back in another one. Then that slot's change is told, by
// this comparison or from the log, and the key is not told as gone, unless the log is gone before that.
//
// A read may throw at any point. What the slots are told of by then is in changed_ and lost_, so the next
// call goes on from there.
void ChangeFollower::compare(RowReads& reads) {
  for (auto& [until, key] : ahead_) {
    if (isAfter(until, handled_)) lost_.push_back(std::move(key));
  }
  ahead_.clear();
  const auto visit = [&](std::uint32_t slot, Word sequence, bool occupied, bool underWay, const Word* key) {
    const Told told = told_[slot];
    if (!underWay && !isAfter(sequence, told.sequence)) return;
    const bool sameRow = occupied && reads.sameKey(key, keyOf(slot));
    if (told.present && !sameRow) lost_.emplace_back(keyOf(slot), keyOf(slot) + layout_.keyWords);
    if (occupied && !underWay) changed_.emplace_back(sequence, Key(key, key + layout_.keyWords));
    tell(slot, sequence, underWay ? told.present && sameRow : occupied, key);
  };
  const Word target = scan(reads, visit);
  std::sort(lost_.begin(), lost_.end());
  lost_.erase(std::unique(lost_.begin(), lost_.end()), lost_.end());
  const auto cameBack = std::partition(lost_.begin(), lost_.end(), [&](const Key& key) {
    std::uint32_t slot = 0;
    return !reads.lookup(key.data(), row_.data(), slot);
  });
  std::for_each(cameBack, lost_.end(), [&](Key& key) { lookOutFor(reads.segment(), std::move(key)); });
  std::move(lost_.begin(), cameBack, std::back_inserter(queue_));
  lost_.clear();
  const Word origin = handled_;
  std::sort(changed_.begin(), changed_.end(), [origin](const auto& a, const auto& b) {
    return sequenceDistance(origin, a.first) < sequenceDistance(origin, b.first);
  });
  for (auto& [sequence, key] : changed_) queue_.push_back(std::move(key));
  changed_.clear();
  target_ = target;
  if (queue_.empty()) {
    handled_ = target_;
    attaching_ = false;
  }
}

}  // namespace Vesta
