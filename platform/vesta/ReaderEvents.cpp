// How a reader follows its writer: changes, sleep, replaced segments.
#include <exception>
#include <utility>

#include "vesta/SegmentReader.h"

namespace Vesta {

void SegmentReader::publishProgress() {
  if (options_.observer || !reads_ || published_ == follower_.handled()) return;
  published_ = follower_.handled();
  ownLine().handledIs(published_);
}

// A handler may detach this reader; the segment then lives until the handler has returned. Whatever ended the
// handler, the change that it was called for is handled. What it threw, damage of another table maybe, is
// none of this table's, and passes on only after that.
std::size_t SegmentReader::poll(std::size_t limit, const KeyHandler& handler) {
  std::exception_ptr thrown;
  const KeyHandler called = [&](const Word* key) {
    const bool outer = std::exchange(handling_, true);
    try {
      handler(key);
    } catch (...) {
      thrown = std::current_exception();
    }
    handling_ = outer;
  };
  std::size_t told = 0;
  while (told < limit && !detached_) {
    if (reads_ && !reads_->segment().live()) reporting([this] { followReplacement(); });
    const std::shared_ptr<RowReads> reads = reads_;
    const bool one = reporting([&] { return follower_.tellNext(reads.get(), called); });
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
  if (detached_ || (reads_ && reads_->segment().live())) return;
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
