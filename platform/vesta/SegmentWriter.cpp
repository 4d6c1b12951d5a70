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

// The writer's lock is taken under the creation lock: whoever finds no segment there and no writer knows that
// none is about to make one. A predecessor may have died between publishing a change and waking its readers,
// so everyone is woken once.
void SegmentWriter::takeTable() {
  {
    const CreationLock creation(files_.lock(), files_.path().text());
    if (!files_.lock().tryLock(LockFile::kWriter)) {
      throw Cairn::Exception(files_.path().text() + " has a writer already: process " +
                             std::to_string(files_.writerPid()));
    }
    rowsAre(soundSegment(files_, layout_, options_));
  }
  files_.wakeEveryone(*mapping());
}

void SegmentWriter::rowsAre(std::unique_ptr<RowWrites> rows) {
  rows_ = std::move(rows);
  writerPidIs(getpid());
}

void SegmentWriter::writerPidIs(pid_t process) {
  segment().store(kWriterPidAt, sealed(static_cast<std::uint32_t>(process), kWriterPidAt));
}

void SegmentWriter::refuse() const {
  throw Cairn::NoPermissionException("write to detached Vesta table " + files_.path().text());
}

bool SegmentWriter::remove(const Word* key) {
  if (!despiteDamage([&] { return rows().remove(key); })) return false;
  ++counters_.removals;
  while (sleepers() != 0 && wakeSleepers()) rows_->remove(key);
  return true;
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

void SegmentWriter::requireLoss() {
  if (!segment().lostMemory() && files_.sizeFault(segment()).empty()) throw;
  replaceSegment(kLost, CreationLock::kUsualBound);
}

void SegmentWriter::wake(Word sleepers) {
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    if ((sleepers >> reader & 1) == 0) continue;
    const Word identity = segment().load(readerLineAt(reader) + kReaderIdentityAt);
    ReaderNote& note = notes_[reader];
    if (note.identity != identity || identity == 0 || !note.fifo) {
      note.identity = identity;
      counters_.systemCalls += 2;
      if (!WakeFifo::forWriter(files_.folder(), files_.fifoName(reader), note.fifo)) {
        std::atomic_ref<Word>(segment().at(kSleepersAt)).fetch_or(Word{1} << reader);
      }
    }
    if (!note.fifo) continue;
    note.fifo.wake();
    ++counters_.wakeups;
    ++counters_.systemCalls;
  }
}

// A word that was wrong may have kept a reader asleep.
void SegmentWriter::monitor() {
  if (!rows_) return;
  writerPidIs(getpid());
  const bool restored = rows_->restoreWords();
  if (!files_.sizeFault(segment()).empty() || segment().lostMemory()) {
    replaceIfDamaged();
  } else if (restored || (sleepers() & kDamageReported) != 0) {
    wakeSleepers();
  }
}

void SegmentWriter::requireIntact() {
  if (const std::string fault = files_.sizeFault(segment()); !fault.empty()) throwCorruption(fault);
  if (segment().lostMemory()) throwCorruption(kLost);
  rows_->reads().validate();
}

// A reader has met damage. It may have been that reader's own; if it is in the segment, a new one takes over.
// The change that this follows has taken place, so a replacement that fails is left to the next one, also
// where a reader holds the creation lock: it may have been stopped.
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

// Sequences go on, so that what its owner waits for in terms of them keeps its meaning.
void SegmentWriter::replaceSegment(const std::string& reason, std::chrono::milliseconds lockBound) {
  AttachOptions with = options_;
  with.firstSequence = rows_->sequence();
  try {
    const CreationLock creation(files_.lock(), files_.path().text(), lockBound);
    std::vector<SlotRow> intact = intactRows(mapping());
    std::vector<std::vector<Word>> changed = changedKeys(*rows_, intact);
    changed.insert(changed.end(), changedKeys_.begin(), changedKeys_.end());
    std::sort(changed.begin(), changed.end());
    changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
    rowsAre(replaceDamaged(files_, layout_, std::move(intact), reason, with));
    changedKeys_ = std::move(changed);
    loggedFailure_.clear();
    files_.wakeEveryone(*mapping());
  } catch (const Cairn::Exception& failure) {
    throw Cairn::CorruptionDetectedException(reason + "; could not be replaced: " + failure.message());
  }
}

std::vector<Word> SegmentWriter::takeChangedKey() {
  std::vector<Word> key = std::move(changedKeys_.back());
  changedKeys_.pop_back();
  return key;
}

void SegmentWriter::changedKeyDel(const Word* key) {
  std::erase_if(changedKeys_, [key](const std::vector<Word>& changed) {
    return std::equal(changed.begin(), changed.end(), key);
  });
}

bool SegmentWriter::rowFrom(std::uint32_t& slot, Word* row) {
  try {
    return rows_ && rows_->reads().rowFrom(slot, row);
  } catch (const Cairn::CorruptionDetectedException&) {
    requireLoss();
    return rows_->reads().rowFrom(slot, row);
  }
}

void SegmentWriter::detach() {
  if (!rows_) return;
  writerPidIs(0);
  rows_.reset();
  files_.lock().unlock(LockFile::kWriter);
}

// Also after a detach, as long as nobody else writes: whoever takes a table down does not keep it attached.
void SegmentWriter::cleanup() {
  const CreationLock creation(files_.lock(), files_.path().text());
  if (!rows_ && !files_.lock().tryLock(LockFile::kWriter)) {
    throw Cairn::Exception(files_.path().text() + " has a writer: process " +
                           std::to_string(files_.writerPid()));
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

// `who`: the identity of a reader with a line. Of one without, the segment's number: it is on its way from an
// earlier segment, or else has come after this one was made, and may be left out like one that comes later.
bool SegmentWriter::isStalled(unsigned reader, Word who, Word handled) {
  ReaderNote& note = notes_[reader];
  const auto now = std::chrono::steady_clock::now();
  if (note.handled != handled || note.watched != who || note.movedAt.time_since_epoch().count() == 0) {
    note.handled = handled;
    note.watched = who;
    note.movedAt = now;
  }
  return now - note.movedAt >= std::chrono::seconds(1);
}

template <class Counts>
bool SegmentWriter::allHandled(std::uint64_t sequence, const Counts& counts) {
  if (!rows_) return true;
  // One that lags is mostly found without a system call; lines of the dead are freed on the way.
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    const std::optional<Word> handled = line.handled();
    if (identity == 0 || (handled && !isAfter(sequence, *handled))) continue;
    if (!isGone(reader, identity) && counts(reader, identity, handled.value_or(0))) return false;
  }
  // A reader that follows but is not in this segment yet has handled nothing of it. Should the line be that
  // of a dead one, whose number it has taken, it has not looked at this segment yet: it is one that comes
  // later.
  for (const long byte :
       files_.lock().heldElsewhere(LockFile::followerByte(0), LockFile::followerByte(kMaxReaders))) {
    const auto reader = static_cast<unsigned>(byte - LockFile::followerByte(0));
    const ReaderLine line(segment(), reader);
    const Word identity = line.identity();
    const std::optional<Word> handled = line.handled();
    if (identity == 0) {
      if (counts(reader, segment().generation(), 0)) return false;
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
  return allHandled(
      sequence, [this](unsigned reader, Word who, Word handled) { return !isStalled(reader, who, handled); });
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
