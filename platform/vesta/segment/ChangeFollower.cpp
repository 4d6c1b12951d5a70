#include "vesta/segment/ChangeFollower.h"

#include <algorithm>
#include <string>
#include <utility>

namespace Vesta {

namespace {

void sortUnique(std::vector<EncodedKey>& keys) {
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
}

}  // namespace

NotifiedSlots::NotifiedSlots(const Layout& layout, Word sequence)
    : keyWords_(layout.keyWords),
      slots_(layout.shape.capacity, Slot{sequence, false}),
      keys_(std::size_t{layout.shape.capacity} * layout.keyWords) {}

void NotifiedSlots::appendKeys(std::vector<EncodedKey>& keys) const {
  for (std::uint32_t slot = 0; slot < slots_.size(); ++slot) {
    if (const Word* const notified = key(slot)) keys.emplace_back(notified, notified + keyWords_);
  }
}

void WatchedKeys::handledIs(Word sequence) {
  while (!keys_.empty() && !isAfter(keys_.front().until, sequence)) keys_.pop_front();
}

void WatchedKeys::appendKeys(std::vector<EncodedKey>& keys) const {
  for (const Watched& watched : keys_) keys.push_back(watched.key);
}

ChangeFollower::ChangeFollower(const Layout& layout)
    : layout_(layout), row_(1 + layout.rowWords), lookedUp_(1 + layout.rowWords) {}

ChangeFollower::ChangeFollower(const ChangeFollower& before, RowReads& reads)
    : ChangeFollower(before.layout_) {
  const Word first = reads.segment().firstSequence();
  slots_ = NotifiedSlots(layout_, first);
  earlier_ = before.knownKeys();
  handled_ = (first - (Word{1} << 60)) & kSequenceMask;
  overruns_ = before.overruns_;
  compare(reads);
}

ChangeFollower ChangeFollower::fromNowOn(RowReads& reads) {
  ChangeFollower follower(reads.segment().layout());
  follower.slots_ = NotifiedSlots(follower.layout_, reads.segment().firstSequence());
  follower.handled_ =
      follower.visitChanges(reads, [&](std::uint32_t slot, Word sequence, bool occupied, const Word* key) {
        follower.slots_.changeIs(slot, sequence, occupied, key);
      });
  return follower;
}

void ChangeFollower::segmentGone() {
  std::deque<Found> found;
  for (EncodedKey& key : knownKeys()) found.push_back({std::move(key), true});
  const Word handled = handled_;
  const std::uint64_t overruns = overruns_;
  *this = ChangeFollower(layout_);
  handled_ = handled;
  overruns_ = overruns;
  foundIs(std::move(found), handled);
}

// Keys that were found but not notified yet are among them: what they are, the next segment decides.
std::vector<EncodedKey> ChangeFollower::knownKeys() const {
  std::vector<EncodedKey> keys = earlier_;
  slots_.appendKeys(keys);
  watched_.appendKeys(keys);
  for (const Found& found : found_) keys.push_back(found.key);
  sortUnique(keys);
  return keys;
}

bool ChangeFollower::hasPending(const Segment* segment) const {
  if (state_ != State::following) return true;
  return segment != nullptr && segment->load(kSequenceAt) != handled_;
}

bool ChangeFollower::notifyNext(RowReads* reads, const KeyHandler& handler) {
  for (;;) {
    if (state_ == State::notifying) return notifyFound(reads, handler);
    if (reads == nullptr) return false;
    if (state_ == State::comparing) {
      compare(*reads);
      continue;
    }
    const Word published = reads->segment().load(kSequenceAt);
    if (published == handled_) {
      if (!watched_.empty()) caughtUp(reads->segment());
      return false;
    }
    if (sequenceDistance(handled_, published) > kSequenceMask / 2) {
      throwCorruption("published sequence: found " + std::to_string(published) + " after " +
                      std::to_string(handled_));
    }
    if (!inLog(layout_, nextSequence(handled_), published)) {
      ++overruns_;
      state_ = State::comparing;
    } else if (notifyRecord(*reads, handler)) {
      return true;
    }
  }
}

bool ChangeFollower::notifyFound(RowReads* reads, const KeyHandler& handler) {
  const Found& next = found_.front();
  if (next.removed && reads != nullptr) {
    notifyRemoval(reads->segment(), next.key.data(), handler);
  } else {
    handler(next.key.data());
  }
  found_.pop_front();
  if (found_.empty()) foundIs({}, target_);
  return true;
}

// False when there was nothing to notify, or when the log has overrun the reader meanwhile: the caller's next
// load of the published sequence shows that.
bool ChangeFollower::notifyRecord(RowReads& reads, const KeyHandler& handler) {
  const Word sequence = nextSequence(handled_);
  ChangeRecord record{};
  if (readRecord(reads.segment(), sequence, row_.data(), record) == RecordState::overrun) return false;
  const bool isNew = slots_.isNewer(record.slot, sequence);  // or a comparison has notified it
  const Word* const key = row_.data() + 1;
  if (isNew) {
    if (record.written) {
      handler(key);
    } else {
      notifyRemoval(reads.segment(), key, handler);
    }
    slots_.changeIs(record.slot, sequence, record.written, key);
  }
  handled_ = sequence;
  watched_.handledIs(sequence);
  return isNew;
}

// The handler of a removal may see a later row of the key. If the log overruns the reader before it has
// handled that row's record, no slot shows that the key has to be notified once it is gone; the comparison
// looks for it. What the handler has seen was published when it returned, or is the one change in progress.
void ChangeFollower::notifyRemoval(const Segment& segment, const Word* key, const KeyHandler& handler) {
  WatchedKeys::Watched& watched = watched_.add(EncodedKey(key, key + layout_.keyWords), handled_);
  handler(key);
  watched.until = nextSequence(segment.load(kSequenceAt));
}

// While no change is in progress either, no handler has seen a row of a later one: it would have seen its log
// record as well, or the record that has overwritten it, and then also a later published sequence.
void ChangeFollower::caughtUp(const Segment& segment) {
  const bool begun = isBegun(segment, nextSequence(handled_));
  if (!begun && segment.load(kSequenceAt) == handled_) watched_.clear();
}

// Calls `visit(slot, sequence, occupied, key)` for each slot that was changed since it was notified. Returns
// the sequence that was published before: the slots show every change up to it. What they show of later
// changes is in the log, too, but not notified again. A published sequence that no change had is found by its
// record, or by a slot that is ahead of it.
//
// A row is in its slot before the index names it and its change is published. Handlers would not find it,
// so it is left to its record; what the slot held before is gone by a published change.
template <class Visit>
Word ChangeFollower::visitChanges(RowReads& reads, const Visit& visit) {
  const Segment& segment = reads.segment();
  const Word published = segment.load(kSequenceAt);
  if (published != segment.firstSequence()) {
    ChangeRecord record{};
    readRecord(segment, published, row_.data(), record);
  }
  const Word* const key = row_.data() + 1;
  for (std::uint32_t slot = 0; slot < layout_.shape.capacity; ++slot) {
    const Word version = reads.readSlot(slot, row_.data());
    Word sequence = sequenceOf(version);
    bool occupied = isOccupied(version);
    if (isAfter(sequence, published)) {
      const Word newest = segment.load(kSequenceAt);
      if (isAfter(sequence, nextSequence(newest))) {
        throwCorruption("published sequence " + std::to_string(newest) + ": slot " + std::to_string(slot) +
                            " was changed at " + std::to_string(sequence),
                        {DamagedPlace::slot(slot)});
      }
      std::uint32_t found = 0;
      if (occupied && isAfter(sequence, newest) && !reads.lookup(key, lookedUp_.data(), found)) {
        sequence = newest;
        occupied = false;
      }
    }
    if (slots_.isNewer(slot, sequence)) visit(slot, sequence, occupied, key);
  }
  return published;
}

// Reads and allocations may throw: nothing is changed before the last of them.
void ChangeFollower::compare(RowReads& reads) {
  struct Change {
    std::uint32_t slot;
    Word sequence;
    bool occupied;
    EncodedKey key;
  };
  std::vector<Change> changes;
  std::vector<EncodedKey> gone = earlier_;
  watched_.appendKeys(gone);
  const Word published =
      visitChanges(reads, [&](std::uint32_t slot, Word sequence, bool occupied, const Word* key) {
        changes.push_back({slot, sequence, occupied, EncodedKey(key, key + layout_.keyWords)});
        const Word* const notified = slots_.key(slot);
        if (notified == nullptr || (occupied && reads.sameKey(key, notified))) return;
        gone.emplace_back(notified, notified + layout_.keyWords);
      });
  sortUnique(gone);
  // A key that is gone from its slot may have a row in another. That row's change is among these, or in the
  // log; the key is watched in case the log overruns the reader before.
  const auto elsewhere = std::partition(gone.begin(), gone.end(), [&](const EncodedKey& key) {
    std::uint32_t slot = 0;
    return !reads.lookup(key.data(), row_.data(), slot);
  });
  const Word seen = nextSequence(reads.segment().load(kSequenceAt));
  WatchedKeys watched;
  for (auto key = elsewhere; key != gone.end(); ++key) watched.add(std::move(*key), seen);

  std::deque<Found> found;
  for (auto key = gone.begin(); key != elsewhere; ++key) found.push_back({std::move(*key), true});
  std::sort(changes.begin(), changes.end(), [origin = handled_](const Change& a, const Change& b) {
    return sequenceDistance(origin, a.sequence) < sequenceDistance(origin, b.sequence);
  });
  for (const Change& change : changes) {
    if (change.occupied) found.push_back({change.key, false});
  }

  for (const Change& change : changes) {
    slots_.changeIs(change.slot, change.sequence, change.occupied, change.key.data());
  }
  earlier_.clear();
  watched_ = std::move(watched);
  foundIs(std::move(found), published);
}

void ChangeFollower::foundIs(std::deque<Found> found, Word target) noexcept {
  found_ = std::move(found);
  target_ = target;
  state_ = found_.empty() ? State::following : State::notifying;
  if (found_.empty()) handled_ = target_;
}

}  // namespace Vesta
