#include "vesta/SegmentReader.h"

#include <errno.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <thread>
#include <utility>

#include "cairn/Exception.h"
#include "vesta/Replacement.h"

namespace Vesta {

SegmentReader::SegmentReader(const Shape& shape, const AttachOptions& options,
                             std::shared_ptr<Segment> segment)
    : layout_(shape), options_(options), files_(options.path), follower_(layout_) {
  if (options_.name.empty()) options_.name = program_invocation_short_name;
  options_.name.resize(std::min(options_.name.size(), std::size_t{32}));
  if (options_.passive) {
    attachPassively();
    return;
  }
  claimNumber();
  try {
    fifo_ = files_.readerFifo(number_);
    if (segment) {
      use(std::move(segment));
    } else {
      attach();
    }
  } catch (...) {
    detach();
    throw;
  }
}

SegmentReader::~SegmentReader() { detach(); }

// A number is a lock, so a dead process cannot hold one. The holder also has the number's follower byte to
// itself.
void SegmentReader::claimNumber() {
  for (number_ = 0; number_ < kMaxReaders; ++number_) {
    if (!files_.lock().tryLock(LockFile::readerByte(number_))) continue;
    files_.lock().tryLock(LockFile::followerByte(number_));
    return;
  }
  throw Cairn::ResourceExhaustedException(files_.path().text() + " has no place for another reader: used " +
                                          std::to_string(kMaxReaders) + " of " + std::to_string(kMaxReaders));
}

void SegmentReader::attachPassively() {
  const Attempt attempt = tryToUse(files_.open(layout_, Access::passiveReader));
  switch (attempt.outcome) {
    case Attempt::Outcome::attached:
      return;
    case Attempt::Outcome::missing:
      throw Cairn::SystemException("open " + files_.path().text(), ENOENT);
    case Attempt::Outcome::incompatible:
      throw Cairn::Exception(attempt.text);
    case Attempt::Outcome::damaged:
      throw Cairn::CorruptionDetectedException(attempt.text);
  }
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

// Without a living writer, this reader recovers or creates the segment as a writer does at attach. The holder
// of the creation lock may be about to name a segment, so only an attempt under that lock decides.
void SegmentReader::attachOnce() {
  if (tryToUse(files_.open(layout_, Access::reader)).succeeded()) return;
  const CreationLock creation(files_.lock(), files_.path().text());
  Attempt attempt = tryToUse(files_.open(layout_, Access::reader));
  if (!attempt.succeeded() && !files_.lock().heldElsewhere(LockFile::kWriter)) {
    const IntactSegment found = intactSegment(files_, layout_, options_);
    counters_.replacements += found.wasDamaged ? 1 : 0;
    files_.wakeEveryone(found.rows->reads().segment());
    attempt = tryToUse(files_.open(layout_, Access::reader));
  }
  if (attempt.succeeded()) return;
  if (attempt.outcome == Attempt::Outcome::damaged) throw Cairn::CorruptionDetectedException(attempt.text);
  throw Cairn::Exception(attempt.text + "; its writer is process " + std::to_string(files_.writerProcess()));
}

SegmentReader::Attempt SegmentReader::tryToUse(const TableFiles::Found& found) {
  using Outcome = Attempt::Outcome;
  const std::string table = files_.path().text();
  if (found.missing) return {Outcome::missing, table + " is missing"};
  if (found.fault) {
    if (found.segment && found.fault.damaged()) reportToWriter(*found.segment);
    return {found.fault.damaged() ? Outcome::damaged : Outcome::incompatible,
            table + ": " + found.fault.text};
  }
  if (const Word state = found.segment->load(kStateAt); state != kLive) {
    reportToWriter(*found.segment);
    // A retired segment with the table's name is being replaced by its writer; until then none is newer.
    if (state != kRetired || !connected()) {
      return {Outcome::damaged, table + ": state: found " + hexText(state)};
    }
  }
  try {
    use(found.segment);
  } catch (const Cairn::CorruptionDetectedException& damage) {
    return {Outcome::damaged, table + ": " + damage.message()};
  }
  return {Outcome::attached};
}

// Switches to the segment or throws; strong exception guarantee. Before it reads the first row, this reader
// counts as one that has handled nothing; the line under its number may be that of a dead one.
void SegmentReader::use(std::shared_ptr<Segment> segment) {
  auto reads = std::make_shared<RowReads>(std::move(segment));
  reads->yieldTimeIs(yieldTime_);
  if (!options_.passive) ReaderLine(reads->segment(), number_).clear();
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
  enterLine();
}

// A restarted process may have the pid of the one before; hence the random half.
void SegmentReader::enterLine() {
  if (options_.passive) return;
  sleepers().fetch_and(~ownBit(), std::memory_order_seq_cst);
  identity_ = randomWord() << 32 | static_cast<std::uint32_t>(getpid());
  published_ = follower_.handled();
  ownLine().fill(identity_, published_, options_.name);
}

void SegmentReader::monitor() {
  if (!reads_ || options_.passive) return;
  ReaderLine line = ownLine();
  if (line.identity() == identity_ && line.handled() == published_ && line.name() == options_.name) return;
  line.fill(identity_, published_, options_.name);
}

void SegmentReader::reportToWriter(Segment& segment) noexcept {
  if (!options_.passive) sleepersOf(segment).fetch_or(kDamageReported, std::memory_order_seq_cst);
}

void SegmentReader::corruptionDetected(const Cairn::CorruptionDetectedException& corruption) {
  ++corruptions_;
  damagedPlaces_ = placesOf(corruption);
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
  if (options_.passive || !reads_ || published_ == follower_.handled()) return;
  published_ = follower_.handled();
  ownLine().handledIs(published_);
}

// A handler may detach this reader; the segment then lives until the handler has returned. However the
// handler ended, its change is handled. Its exception, which may report damage to another table, is passed on
// only after that.
std::size_t SegmentReader::poll(std::size_t limit, const KeyHandler& handler) {
  if (handling_) return 0;
  std::exception_ptr thrown;
  const auto call = [&](const Word* key) {
    handling_ = true;
    try {
      handler(key);
    } catch (...) {
      thrown = std::current_exception();
    }
    handling_ = false;
  };
  const KeyHandler called = std::ref(call);  // by reference: a copy would be allocated in every poll
  std::size_t notified = 0;
  while (notified < limit && !detached_) {
    if (reads_ && !reads_->segment().live()) reporting([this] { followReplacement(); });
    const std::shared_ptr<RowReads> reads = reads_;
    const bool one = reporting([&] { return follower_.notifyNext(reads.get(), called); });
    publishProgress();
    if (thrown) std::rethrow_exception(thrown);
    if (!one) break;
    ++notified;
    ++counters_.notifications;
  }
  return notified;
}

// Not within a handler: it was called for a change of the segment before.
bool SegmentReader::lookupInReplacement(const Word* key, Word* row, std::uint32_t& slot) {
  if (handling_) return false;
  followReplacement();
  return reads_ && reads_->lookup(key, row, slot);
}

bool SegmentReader::maySleep() {
  if (detached_ || options_.passive) return true;
  if (follower_.hasPending(reads_ ? &reads_->segment() : nullptr)) return false;
  if (!reads_) return true;
  announceSleep(reads_->segment().at(kSleepersAt), ownBit());
  if (loadPublished(reads_->segment().at(kSequenceAt)) == follower_.handled()) return true;
  awake();
  return false;
}

void SegmentReader::awake() {
  if (!reads_ || options_.passive) return;
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
// empty until a writer creates one and wakes this reader; creating one here would undo its removal. An
// incompatible segment counts as none, and its writer does not wait for this reader. Failure to attach to the
// new segment is reported like damage.
void SegmentReader::followReplacement() try {
  if (reads_ && files_.isNamed(reads_->segment())) {
    if (!reads_->segment().retired()) reportToWriter(reads_->segment());
    return;  // the writer of the next one will wake this reader
  }
  const TableFiles::Found found =
      files_.open(layout_, options_.passive ? Access::passiveReader : Access::reader);
  if (found.fault.damaged()) {
    if (found.segment) reportToWriter(*found.segment);
    throw Cairn::CorruptionDetectedException(files_.path().text() + ": " + found.fault.text);
  }
  if (found.missing || found.fault) {
    if (reads_) follower_.segmentGone();
    reads_.reset();
    if (!found.missing && !options_.passive) files_.lock().unlock(LockFile::followerByte(number_));
    return;
  }
  if (const Word state = found.segment->load(kStateAt); state != kLive && state != kRetired) {
    reportToWriter(*found.segment);
    throw Cairn::CorruptionDetectedException(files_.path().text() + ": state: found " + hexText(state));
  }
  if (!options_.passive && !fifo_.inPlace(files_.folder(), files_.fifoName(number_))) {
    throw Cairn::CorruptionDetectedException("FIFO " + files_.path().folder() + "/" +
                                             files_.fifoName(number_) + " of this reader was removed");
  }
  if (!options_.passive) files_.lock().tryLock(LockFile::followerByte(number_));
  options_.initialRows = InitialRows::notify;
  use(found.segment);
  ++counters_.reattached;
} catch (const Cairn::SystemException& failure) {
  throw Cairn::CorruptionDetectedException(files_.path().text() +
                                           " has a new segment that cannot be opened: " + failure.message());
}

}  // namespace Vesta
