#include "vesta/SegmentReader.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "cairn/Exception.h"
#include "vesta/Replacement.h"

namespace Vesta {

SegmentReader::SegmentReader(const Shape& shape, const AttachOptions& options,
                             std::shared_ptr<Segment> mapping)
    : layout_(shape), options_(options), files_(options.path), follower_(layout_) {
  if (options_.name.empty()) options_.name = program_invocation_short_name;
  options_.name.resize(std::min(options_.name.size(), std::size_t{32}));
  if (options_.observer) {
    observe();
    return;
  }
  claimNumber();
  try {
    fifo_ = files_.readerFifo(number_);
    if (mapping) {
      startOn(std::move(mapping));
    } else {
      attach();
    }
  } catch (...) {
    detach();
    throw;
  }
}

SegmentReader::~SegmentReader() { detach(); }

// A number is a lock: it cannot be held by the dead. Who holds one has its other byte to itself.
void SegmentReader::claimNumber() {
  for (number_ = 0; number_ < kMaxReaders; ++number_) {
    if (!files_.lock().tryLock(LockFile::readerByte(number_))) continue;
    files_.lock().tryLock(LockFile::followerByte(number_));
    return;
  }
  throw Cairn::ResourceExhaustedException(files_.path().text() + " has no place for another reader: used " +
                                          std::to_string(kMaxReaders) + " of " + std::to_string(kMaxReaders));
}

void SegmentReader::observe() {
  const TableFiles::Found found = files_.open(layout_, Access::observer);
  if (found.missing) throw Cairn::SystemException("open " + files_.path().text(), ENOENT);
  const std::string problem = start(found);
  if (problem.empty()) return;
  if (!found.fault.text.empty() && !found.fault.damaged) throw Cairn::Exception(problem);
  throw Cairn::CorruptionDetectedException(problem);
}

void SegmentReader::attach() {
  const auto until = std::chrono::steady_clock::now() + options_.damagePatience;
  for (bool first = true;; first = false) {
    try {
      attachOnce();
      return;
    } catch (const Cairn::CorruptionDetectedException& damage) {
      if (std::chrono::steady_clock::now() >= until) throw;
      if (first) logError(options_, "is to be replaced by its writer: " + damage.message());
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
}

// Without a living writer, this reader does what a writer would do at attach. Whoever holds the creation lock
// may be about to name the segment, so the last word on it is spoken under that lock.
void SegmentReader::attachOnce() {
  TableFiles::Found found = files_.open(layout_, Access::reader);
  if (start(found).empty()) return;
  const CreationLock creation(files_.lock(), files_.path().text());
  found = files_.open(layout_, Access::reader);
  std::string problem = start(found);
  if (!problem.empty() && !files_.lock().heldElsewhere(LockFile::kWriter)) {
    files_.wakeEveryone(soundSegment(files_, layout_, options_)->reads().segment());
    found = files_.open(layout_, Access::reader);
    problem = start(found);
  }
  if (problem.empty()) return;
  if (!found.missing && (found.fault.text.empty() || found.fault.damaged))
    throw Cairn::CorruptionDetectedException(problem);
  throw Cairn::Exception(problem + "; its writer is process " + std::to_string(files_.writerPid()));
}

// Says why it could not start on what was found; empty when it did.
std::string SegmentReader::start(const TableFiles::Found& found) {
  if (found.missing) return files_.path().text() + " is missing";
  if (!found.fault.text.empty()) {
    if (found.segment && found.fault.damaged) reportToWriter(*found.segment);
    return files_.path().text() + ": " + found.fault.text;
  }
  if (const Word state = found.segment->load(kStateAt); state != kLive) {
    reportToWriter(*found.segment);
    // Retired, with the name still on it: the writer is replacing it, and until then there is none newer.
    if (state != kRetired || !connected()) return files_.path().text() + ": state: found " + hexText(state);
  }
  try {
    startOn(found.segment);
  } catch (const Cairn::CorruptionDetectedException& damage) {
    return files_.path().text() + ": " + damage.message();
  }
  return {};
}

// Either goes over to the segment, with all that has been told so far, or throws and leaves things as they
// were. This reader counts as one that has handled nothing from before its first look at the rows, also where
// the line under its number is that of a dead one.
void SegmentReader::startOn(std::shared_ptr<Segment> segment) {
  auto reads = std::make_shared<RowReads>(std::move(segment));
  reads->yieldTimeIs(yieldTime_);
  if (!options_.observer) ReaderLine(reads->segment(), number_).clear();
  try {
    reads->validateIndex();
    follower_ = options_.initialRows == InitialRows::skip ? ChangeFollower::fromNowOn(*reads)
                                                          : ChangeFollower(follower_, *reads);
  } catch (const Cairn::CorruptionDetectedException&) {
    reportToWriter(reads->segment());
    throw;
  }
  if (reads_) earlierRetries_ += reads_->retries();
  reads_ = std::move(reads);
  writeDown();
}

// A restarted process may have the pid of the one before; hence the random half.
void SegmentReader::writeDown() {
  if (options_.observer) return;
  sleepers().fetch_and(~ownBit(), std::memory_order_seq_cst);
  identity_ = randomWord() << 32 | static_cast<std::uint32_t>(getpid());
  published_ = follower_.handled();
  ownLine().fill(identity_, published_, options_.name);
}

void SegmentReader::monitor() {
  if (!reads_ || options_.observer) return;
  ReaderLine line = ownLine();
  if (line.identity() == identity_ && line.handled() == published_ && line.name() == options_.name) return;
  line.fill(identity_, published_, options_.name);
}

void SegmentReader::reportToWriter(Segment& segment) noexcept {
  if (!options_.observer) sleepersOf(segment).fetch_or(kDamageReported, std::memory_order_seq_cst);
}

void SegmentReader::damageMet() noexcept {
  ++corruptions_;
  if (reads_) reportToWriter(reads_->segment());
}

bool SegmentReader::rowFrom(std::uint32_t& slot, Word* row) {
  return reporting([&] { return reads_ && reads_->rowFrom(slot, row); });
}

void SegmentReader::validate() {
  reporting([&] {
    if (reads_) reads_->validate();
  });
}

std::size_t SegmentReader::members() {
  return reporting([&] { return reads_ ? reads_->segment().members() : 0; });
}

void SegmentReader::detach() {
  if (detached_) return;
  detached_ = true;
  if (number_ == kMaxReaders) {
    reads_.reset();
    return;
  }
  if (reads_) {
    ownLine().clear();
    sleepers().fetch_and(~ownBit(), std::memory_order_seq_cst);
  }
  reads_.reset();
  unlinkat(files_.folder(), files_.fifoName(number_).c_str(), 0);
  files_.lock().unlock(LockFile::followerByte(number_));
  files_.lock().unlock(LockFile::readerByte(number_));  // last: the next one to take it makes its own FIFO
  number_ = kMaxReaders;
}

void SegmentReader::yieldTimeIs(std::chrono::milliseconds time) {
  yieldTime_ = time;
  if (reads_) reads_->yieldTimeIs(time);
}

const ReaderCounters& SegmentReader::counters() noexcept {
  counters_.retries = earlierRetries_ + (reads_ ? reads_->retries() : 0);
  counters_.overruns = follower_.overruns();
  return counters_;
}

void SegmentReader::publishProgress() {
  if (options_.observer || !reads_ || published_ == follower_.handled()) return;
  published_ = follower_.handled();
  ownLine().handledIs(published_);
}

// A handler may detach this reader; the segment then lives until the handler has returned. However the
// handler ended, its change is handled. Its exception, which may report damage to another table, is passed on
// only after that.
std::size_t SegmentReader::poll(std::size_t limit, const KeyHandler& handler) {
  if (handling_) return 0;
  std::exception_ptr thrown;
  const KeyHandler called = [&](const Word* key) {
    handling_ = true;
    try {
      handler(key);
    } catch (...) {
      thrown = std::current_exception();
    }
    handling_ = false;
  };
  std::size_t told = 0;
  while (told < limit && !detached_) {
    if (reads_ && !reads_->segment().live()) reporting([this] { followReplacement(); });
    const std::shared_ptr<RowReads> reads = reads_;
    const bool one = reporting([&] { return follower_.notifyNext(reads.get(), called); });
    publishProgress();
    if (thrown) std::rethrow_exception(thrown);
    if (!one) break;
    ++told;
    ++counters_.notifications;
  }
  return told;
}

// What a handler looks up belongs to the change that it was called for, and the change to its segment.
bool SegmentReader::lookupInNext(const Word* key, Word* row, std::uint32_t& slot) {
  if (handling_) return false;
  followReplacement();
  return reads_ && reads_->lookup(key, row, slot);
}

// The announcement and the look at the sequence after it are sequentially consistent, like their partners in
// RowWrites::publish and SegmentWriter::lookAfterReaders.
bool SegmentReader::maySleep() {
  if (detached_ || options_.observer) return true;
  if (follower_.hasPending(reads_ ? &reads_->segment() : nullptr)) return false;
  if (!reads_) return true;
  sleepers().fetch_or(ownBit(), std::memory_order_seq_cst);
  const Word published =
      std::atomic_ref<Word>(reads_->segment().at(kSequenceAt)).load(std::memory_order_seq_cst);
  if (published == follower_.handled()) return true;
  awake();
  return false;
}

void SegmentReader::awake() {
  if (!reads_ || options_.observer) return;
  if ((sleepers().load(std::memory_order_relaxed) & ownBit()) != 0) {
    sleepers().fetch_and(~ownBit(), std::memory_order_seq_cst);
  }
}

void SegmentReader::descriptorReadable() {
  if (!fifo_) return;
  fifo_.drain();
  // A poll that is running a handler follows the writer itself.
  if (detached_ || handling_ || (reads_ && reads_->segment().live())) return;
  try {
    reporting([this] { followReplacement(); });
  } catch (...) {
    fifo_.wake();  // for another try: there may be no other wake-up
    throw;
  }
}

// Switches to the segment that now has the table's name, even if that one is retired, too: its writer has
// then not exchanged the names yet, or died before it did, and no segment is newer. Without one, the table is
// empty until a writer wakes this reader; creating one here would undo its removal. The same goes for a
// segment of another kind, but its writer does not expect this reader. A reader that cannot go over is as
// good as cut off by damage.
void SegmentReader::followReplacement() try {
  if (reads_ && files_.isNamed(reads_->segment())) {
    if (!reads_->segment().retired()) reportToWriter(reads_->segment());
    return;  // the writer of the next one will wake this reader
  }
  const TableFiles::Found found = files_.open(layout_, options_.observer ? Access::observer : Access::reader);
  if (found.fault.damaged) {
    if (found.segment) reportToWriter(*found.segment);
    throw Cairn::CorruptionDetectedException(files_.path().text() + ": " + found.fault.text);
  }
  if (found.missing || !found.fault.text.empty()) {
    if (reads_) follower_.segmentGone();
    reads_.reset();
    if (!found.missing && !options_.observer) files_.lock().unlock(LockFile::followerByte(number_));
    return;
  }
  if (const Word state = found.segment->load(kStateAt); state != kLive && state != kRetired) {
    reportToWriter(*found.segment);
    throw Cairn::CorruptionDetectedException(files_.path().text() + ": state: found " + hexText(state));
  }
  if (!options_.observer && !fifo_.stands(files_.folder(), files_.fifoName(number_))) {
    throw Cairn::CorruptionDetectedException("FIFO " + files_.path().folder() + "/" +
                                             files_.fifoName(number_) + " of this reader was removed");
  }
  if (!options_.observer) files_.lock().tryLock(LockFile::followerByte(number_));
  options_.initialRows = InitialRows::tell;
  startOn(found.segment);
  ++counters_.reattached;
} catch (const Cairn::SystemException& failure) {
  throw Cairn::CorruptionDetectedException(files_.path().text() +
                                           " has a new segment, out of reach: " + failure.message());
}

}  // namespace Vesta
