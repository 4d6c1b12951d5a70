#include "vesta/SegmentWriter.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "cairn/Exception.h"
#include "vesta/segment/ReaderLine.h"

namespace Vesta {

namespace {

const char* const kLost = "its file was truncated";

}  // namespace

SegmentWriter::SegmentWriter(const Shape& shape, const AttachOptions& options)
    : layout_(shape), options_(options), files_(options.path) {
  takeTable();
}

SegmentWriter::~SegmentWriter() { detach(); }

// The writer's lock is taken under the creation lock: a holder of that lock who finds neither segment nor
// writer knows that no writer is about to create one. A predecessor may have died between publishing a change
// and waking its readers, so all are woken once.
void SegmentWriter::takeTable() {
  {
    const CreationLock creation(files_.lock(), files_.path().text());
    if (!files_.lock().tryLock(LockFile::kWriter)) {
      throw Cairn::Exception(files_.path().text() + " has a writer already: process " +
                             std::to_string(files_.writerProcess()));
    }
    IntactSegment found = intactSegment(files_, layout_, options_);
    counters_.replacements += found.wasDamaged ? 1 : 0;
    rowsAre(std::move(found.rows));
  }
  files_.wakeEveryone(segment());
}

void SegmentWriter::rowsAre(std::unique_ptr<RowWrites> rows) {
  rows_ = std::move(rows);
  writerProcessIs(getpid());
}

void SegmentWriter::writerProcessIs(pid_t process) {
  segment().store(kWriterProcessAt, sealed(static_cast<std::uint32_t>(process), kWriterProcessAt));
}

void SegmentWriter::refuse() const {
  throw Cairn::NoPermissionException("write to detached Vesta table " + files_.path().text());
}

bool SegmentWriter::wakeSleepers() {
  std::atomic_ref<Word> sleepers(segment().at(kSleepersAt));
  const Word asleep = sleepers.exchange(0, std::memory_order_seq_cst);
  rows_->step(WriteStep::sleepersCleared);
  wake(asleep);
  rows_->step(WriteStep::woken);
  if ((asleep & kDamageReported) == 0) return false;
  const bool lost = segment().lostMemory();
  if (lost) {
    replaceSegment(kLost, CreationLock::kUsualBound);
  } else {
    replaceIfDamaged();
  }
  return lost;
}

void SegmentWriter::replaceIfTruncated(const Cairn::CorruptionDetectedException& corruption) {
  damagedPlaces_ = placesOf(corruption);
  if (!segment().lostMemory() && !files_.sizeFault(segment())) throw;
  replaceSegment(kLost, CreationLock::kUsualBound);
}

void SegmentWriter::wake(Word sleepers) {
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    if ((sleepers >> reader & 1) == 0) continue;
    const Word identity = segment().load(readerLineAt(reader) + kReaderIdentityAt);
    ReaderState& state = readerStates_[reader];
    if (state.fifoOwner != identity || identity == 0 || !state.fifo) {
      state.fifoOwner = identity;
      counters_.systemCalls += 2;
      if (!WakeFifo::forWriter(files_.folder(), files_.fifoName(reader), state.fifo)) {
        std::atomic_ref<Word>(segment().at(kSleepersAt)).fetch_or(Word{1} << reader);
      }
    }
    if (!state.fifo) continue;
    state.fifo.wake();
    ++counters_.wakeups;
    ++counters_.systemCalls;
  }
}

// A word that was wrong may have kept a reader asleep.
void SegmentWriter::monitor() {
  if (!rows_) return;
  writerProcessIs(getpid());
  const bool restored = rows_->restoreWords();
  if (files_.sizeFault(segment()) || segment().lostMemory()) {
    replaceIfDamaged();
  } else if (restored || (sleepers() & kDamageReported) != 0) {
    wakeSleepers();
  }
}

void SegmentWriter::wakeDeferred() noexcept {
  try {
    if (rows_ && sleepers() != 0) wakeSleepers();
  } catch (const std::exception& failure) {
    logError(options_, failure.what());
  }
}

void SegmentWriter::requireIntact() {
  if (const SegmentFault fault = files_.sizeFault(segment())) throwCorruption(fault.text);
  if (segment().lostMemory()) throwCorruption(kLost);
  rows_->reads().validate();
}

// A reader has reported damage, which may be that of an earlier segment. The change before this has been
// made, so a replacement that fails is left to the next change or monitor(), also when a reader, which may
// have been stopped, holds the creation lock.
void SegmentWriter::replaceIfDamaged() {
  try {
    requireIntact();
  } catch (const Cairn::CorruptionDetectedException& damage) {
    try {
      replaceSegment(damage.message(), std::chrono::milliseconds(0));
    } catch (const std::exception& failure) {
      if (std::exchange(loggedFailure_, failure.what()) != failure.what()) logError(options_, failure.what());
      std::atomic_ref<Word>(segment().at(kSleepersAt)).fetch_or(kDamageReported);
    }
  }
}

// Sequences continue, since the owner waits for readers to have handled them.
void SegmentWriter::replaceSegment(const std::string& reason, std::chrono::milliseconds lockBound) {
  AttachOptions with = options_;
  with.firstSequence = rows_->sequence();
  try {
    const CreationLock creation(files_.lock(), files_.path().text(), lockBound);
    std::vector<SlotRow> intact = intactRows(sharedSegment());
    std::vector<EncodedKey> changed = changedKeys(*rows_, intact);
    changed.insert(changed.end(), changedKeys_.begin(), changedKeys_.end());
    std::sort(changed.begin(), changed.end());
    changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
    rowsAre(replaceDamaged(files_, layout_, std::move(intact), reason, with));
    ++counters_.replacements;
    changedKeys_ = std::move(changed);
    loggedFailure_.clear();
    files_.wakeEveryone(segment());
  } catch (const Cairn::Exception& failure) {
    throw Cairn::CorruptionDetectedException(reason + "; could not be replaced: " + failure.message());
  }
}

EncodedKey SegmentWriter::takeChangedKey() {
  EncodedKey key = std::move(changedKeys_.back());
  changedKeys_.pop_back();
  return key;
}

void SegmentWriter::changedKeyDel(const Word* key) {
  std::erase_if(changedKeys_,
                [key](const EncodedKey& changed) { return std::equal(changed.begin(), changed.end(), key); });
}

bool SegmentWriter::rowFrom(std::uint32_t& slot, Word* row) {
  try {
    return rows_ && rows_->reads().rowFrom(slot, row);
  } catch (const Cairn::CorruptionDetectedException& corruption) {
    replaceIfTruncated(corruption);
    return rows_->reads().rowFrom(slot, row);
  }
}

void SegmentWriter::detach() {
  if (!rows_) return;
  if (DeferredWakeups::forget(*this)) wakeDeferred();
  writerProcessIs(0);
  rows_.reset();
  files_.lock().unlock(LockFile::kWriter);
}

// Also after a detach, as long as no other process writes.
void SegmentWriter::cleanup() {
  const CreationLock creation(files_.lock(), files_.path().text());
  if (!rows_ && !files_.lock().tryLock(LockFile::kWriter)) {
    throw Cairn::Exception(files_.path().text() + " has a writer: process " +
                           std::to_string(files_.writerProcess()));
  }
  rows_.reset();
  try {
    files_.remove();
  } catch (...) {
    files_.lock().unlock(LockFile::kWriter);
    throw;
  }
  files_.lock().unlock(LockFile::kWriter);
}

void SegmentWriter::validate() {
  if (rows_) rows_->reads().validate();
}

pid_t SegmentWriter::writerProcess() const noexcept { return rows_ ? getpid() : 0; }

const WriterCounters& SegmentWriter::counters() noexcept {
  if (rows_) counters_.indexRebuilds = rows_->indexRebuilds();
  return counters_;
}

// Frees the line of a reader that is gone.
bool SegmentWriter::isGone(unsigned reader, Word identity) {
  if (files_.lock().heldElsewhere(LockFile::readerByte(reader))) return false;
  return ReaderLine(segment(), reader).release(identity);
}

// `identity` is the segment's id for a reader that has no line in this segment.
bool SegmentWriter::isStalled(unsigned reader, Word identity, Word handled) {
  ReaderState& state = readerStates_[reader];
  const auto now = std::chrono::steady_clock::now();
  if (state.observedHandled != handled || state.observedReader != identity ||
      state.movedAt.time_since_epoch().count() == 0) {
    state.observedHandled = handled;
    state.observedReader = identity;
    state.movedAt = now;
  }
  return now - state.movedAt >= std::chrono::seconds(1);
}

// `counts(reader, identity, handled)`: whether a reader that lags counts.
template <class Counts>
bool SegmentWriter::allHandled(std::uint64_t sequence, const Counts& counts) {
  if (!rows_) return true;
  // First without system calls, which find most readers that lag; lines of dead readers are freed.
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    const std::optional<Word> handled = line.handled();
    if (identity == 0 || (handled && !isAfter(sequence, *handled))) continue;
    if (!isGone(reader, identity) && counts(reader, identity, handled.value_or(0))) return false;
  }
  // Readers that have not come over from an earlier segment have handled nothing of this one. If the line is
  // still that of a dead reader with the same number, the living one has not read this segment yet and need
  // not be waited for.
  for (const long byte :
       files_.lock().heldElsewhere(LockFile::followerByte(0), LockFile::followerByte(kMaxReaders))) {
    const auto reader = static_cast<unsigned>(byte - LockFile::followerByte(0));
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    const std::optional<Word> handled = line.handled();
    if (identity == 0) {
      if (counts(reader, segment().id(), 0)) return false;
    } else if (!handled || isAfter(sequence, *handled)) {
      if (counts(reader, identity, handled.value_or(0))) return false;
    }
  }
  return true;
}

bool SegmentWriter::quiesced(std::uint64_t sequence) {
  return allHandled(sequence, [](unsigned, Word, Word) { return true; });
}

bool SegmentWriter::movingReadersQuiesced(std::uint64_t sequence) {
  return allHandled(sequence, [this](unsigned reader, Word identity, Word handled) {
    return !isStalled(reader, identity, handled);
  });
}

bool SegmentWriter::clientQuiesced(const std::string& name) {
  for (const ConnectedReader& reader : readers()) {
    const ReaderLine line(segment(), reader.number);
    if (line.name().value_or(name) != name) continue;
    const std::optional<Word> handled = line.handled();
    if (!handled || isAfter(sequence(), *handled)) return false;
  }
  return true;
}

std::vector<ConnectedReader> SegmentWriter::readers() {
  std::vector<ConnectedReader> found;
  if (!rows_) return found;
  const Word sleepers = segment().load(kSleepersAt);
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    if (identity == 0 || isGone(reader, identity)) continue;
    found.push_back({reader, static_cast<int>(identity & 0xffffffff), line.name().value_or(std::string()),
                     line.handled().value_or(0), (sleepers >> reader & 1) != 0});
  }
  return found;
}

}  // namespace Vesta
