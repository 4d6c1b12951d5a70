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
/// Thread safety: one thread. Takes no lock while reading or following; the writer may be running, stopped or
/// dead. Damage that any operation detects is also reported to the writer, which checks the segment at its
/// next write and replaces it.
class SegmentReader {
 public:
  using KeyHandler = ChangeFollower::KeyHandler;

  /// `segment`: mapped by another object of this process, to be shared by threads; null to map the table's.
  SegmentReader(const Shape& shape, const AttachOptions& options, std::shared_ptr<Segment> segment = nullptr);
  ~SegmentReader();
  SegmentReader(const SegmentReader&) = delete;
  SegmentReader& operator=(const SegmentReader&) = delete;

  /// See RowReads. Nothing is found while there is no segment. A key without a row in a retired segment is
  /// looked up in its replacement, so a key that has a row is never absent. A row that is found may be that
  /// of a retired segment until the next poll. Within a handler, lookups are answered by the segment that was
  /// current when it was called.
  template <class Sizes>
  bool lookup(const Sizes& sizes, const Word* key, Word* row, std::uint32_t& slot) {
    ++counters_.lookups;
    return reporting([&] {
      return reads_ && (reads_->lookup(sizes, key, row, slot) ||
                        (!reads_->segment().live() && lookupInReplacement(key, row, slot)));
    });
  }
  bool rowFrom(std::uint32_t& slot, Word* row);

  // As in EventSource.
  int wakeDescriptor() const noexcept { return fifo_.descriptor(); }
  void descriptorReadable();
  std::size_t poll(std::size_t limit, const KeyHandler& handler);
  bool maySleep();
  void awake();
  /// Restores this reader's line on the readers' page; to be called at least once a second. The owner calls
  /// awake() and poll() as often, which makes up for a lost sleep bit.
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
  /// 0 when the table has no living writer.
  pid_t writerProcess() { return connected() ? files_.writerProcess() : 0; }
  void yieldTimeIs(std::chrono::milliseconds time);
  /// See TableFiles::displacedFile. Empty while there is no segment.
  std::string displacedFile() const {
    return reads_ ? files_.displacedFile(reads_->segment()) : std::string();
  }
  const RootPath& rootPath() const noexcept { return files_.path(); }
  const ReaderCounters& counters() noexcept;
  std::uint64_t corruptions() const noexcept { return corruptions_; }
  const DamagedPlaces& damagedPlaces() const noexcept { return damagedPlaces_; }

 private:
  /// How an attempt to use the segment that has the table's name ended.
  struct Attempt {
    enum class Outcome { attached, missing, incompatible, damaged };
    Outcome outcome;
    std::string text{};  // why it failed
    bool succeeded() const noexcept { return outcome == Outcome::attached; }
  };

  void claimNumber();
  void attach();
  void attachOnce();
  void attachPassively();
  Attempt tryToUse(const TableFiles::Found& found);
  void use(std::shared_ptr<Segment> segment);
  void enterLine();
  void followReplacement();
  bool lookupInReplacement(const Word* key, Word* row, std::uint32_t& slot);
  void publishProgress();
  void reportToWriter(Segment& segment) noexcept;
  void corruptionDetected(const Cairn::CorruptionDetectedException& corruption);
  template <class Call>
  auto reporting(const Call& call) {
    try {
      return call();
    } catch (const Cairn::CorruptionDetectedException& corruption) {
      corruptionDetected(corruption);
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
  std::uint64_t earlierRetries_ = 0;  // in earlier segments
  bool detached_ = false;
  bool handling_ = false;  // a handler is running
  ReaderCounters counters_;
  std::uint64_t corruptions_ = 0;
  DamagedPlaces damagedPlaces_;  // of the last one
};

}  // namespace Vesta
