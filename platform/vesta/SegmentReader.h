#pragma once

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <string>

#include "vesta/AttachOptions.h"
#include "vesta/VestaBase.h"
#include "vesta/files/TableFiles.h"
#include "vesta/segment/ChangeFollower.h"
#include "vesta/segment/ReaderLine.h"
#include "vesta/segment/RowReads.h"

namespace Vesta {

/// The byte-level side of one reader.
///
/// Thread safety: one thread. Takes no lock while reading or following; the writer may be at work or dead.
/// Damage that any operation meets is also reported to the writer, who looks for it at its next write and
/// replaces the segment.
class SegmentReader {
 public:
  using KeyHandler = ChangeFollower::KeyHandler;

  /// `mapping`: the segment as another object of this process maps it, to be shared by threads; null to map
  /// anew.
  SegmentReader(const Shape& shape, const AttachOptions& options, std::shared_ptr<Segment> mapping = nullptr);
  ~SegmentReader();
  SegmentReader(const SegmentReader&) = delete;
  SegmentReader& operator=(const SegmentReader&) = delete;

  /// See RowReads. Nothing is found while there is no segment. What a retired segment does not hold is looked
  /// up in the segment after it, so a key that has a row is never absent; a row that is found may be that of
  /// a retired segment until the next poll. A handler called by poll finds what the segment holds that was
  /// current when it was called.
  template <class Sizes>
  bool lookup(const Sizes& sizes, const Word* key, Word* row, std::uint32_t& slot) {
    ++counters_.lookups;
    return reporting([&] {
      return reads_ && (reads_->lookup(sizes, key, row, slot) ||
                        (!reads_->segment().live() && lookupInNext(key, row, slot)));
    });
  }
  bool rowFrom(std::uint32_t& slot, Word* row);

  // As in EventSource.
  int wakeDescriptor() const noexcept { return fifo_.descriptor(); }
  void descriptorReadable();
  std::size_t poll(std::size_t limit, const KeyHandler& handler);
  bool maySleep();
  void awake();
  /// Restores this reader's line on the readers' page; to be called at least once a second. A sleep bit that
  /// was lost needs no more than that the owner calls awake() and poll() as often.
  void monitor();

  /// Whether there is a segment. Not so after detach, nor between the removal of one and the creation of
  /// another.
  bool attached() const noexcept { return reads_ != nullptr; }
  void detach();
  void validate();
  void validateFiles() const { files_.validate(layout_); }

  std::size_t members();
  std::size_t capacity() const noexcept { return layout_.shape.capacity; }
  std::uint64_t sequence() const noexcept { return reads_ ? reads_->segment().load(kSequenceAt) : 0; }
  /// Whether the table has a living writer.
  bool connected() { return files_.lock().heldElsewhere(LockFile::kWriter); }
  pid_t writerProcess() { return connected() ? files_.writerPid() : 0; }
  void yieldTimeIs(std::chrono::milliseconds time);
  /// See TableFiles::displacedFile. Empty while there is no segment.
  std::string displacedFile() const {
    return reads_ ? files_.displacedFile(reads_->segment()) : std::string();
  }
  const RootPath& rootPath() const noexcept { return files_.path(); }
  const ReaderCounters& counters() noexcept;
  /// How often this reader has detected corruption. Handlers may throw what they detected in other tables.
  std::uint64_t corruptions() const noexcept { return corruptions_; }

 private:
  void claimNumber();
  void attach();
  void attachOnce();
  void observe();
  std::string start(const TableFiles::Found& found);
  void startOn(std::shared_ptr<Segment> segment);
  void writeDown();
  void followReplacement();
  bool lookupInNext(const Word* key, Word* row, std::uint32_t& slot);
  void publishProgress();
  void reportToWriter(Segment& segment) noexcept;
  void damageMet() noexcept;
  template <class Call>
  auto reporting(const Call& call) {
    try {
      return call();
    } catch (const Cairn::CorruptionDetectedException&) {
      damageMet();
      throw;
    }
  }
  static std::atomic_ref<Word> sleepersOf(Segment& segment) {
    return std::atomic_ref<Word>(segment.at(kSleepersAt));
  }
  std::atomic_ref<Word> sleepers() { return sleepersOf(reads_->segment()); }
  ReaderLine ownLine() { return {reads_->segment(), number_}; }
  Word ownBit() const noexcept { return Word{1} << number_; }

  Layout layout_;
  AttachOptions options_;
  TableFiles files_;
  unsigned number_ = kMaxReaders;  // kMaxReaders: none
  WakeFifo fifo_;
  ChangeFollower follower_;
  std::shared_ptr<RowReads> reads_;  // null while there is no segment
  Word identity_ = 0;                // as in this reader's line
  Word published_ = 0;               // likewise: progress
  std::chrono::milliseconds yieldTime_{kDefaultYieldTime};
  std::uint64_t earlierRetries_ = 0;  // of segments before this one
  bool detached_ = false;
  bool handling_ = false;  // a handler is running
  ReaderCounters counters_;
  std::uint64_t corruptions_ = 0;
};

}  // namespace Vesta
