#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "vesta/AttachOptions.h"
#include "vesta/DeferredWakeups.h"
#include "vesta/Replacement.h"
#include "vesta/VestaBase.h"

namespace Vesta {

/// The byte-level side of a table's one writer. Rows and keys are arrays of words as EncodedRow lays them
/// out.
///
/// Thread safety: one thread. Readers in other threads and processes are not disturbed if this process dies
/// at any step of a write.
class SegmentWriter {
 public:
  SegmentWriter(const Shape& shape, const AttachOptions& options);
  ~SegmentWriter();
  SegmentWriter(const SegmentWriter&) = delete;
  SegmentWriter& operator=(const SegmentWriter&) = delete;

  /// See VestaBase::write.
  template <class Sizes>
  bool write(const Sizes& sizes, Word* row, bool onlyIfPresent) {
    if (!despiteDamage([&] { return rows().write(sizes, row, onlyIfPresent); })) return false;
    ++counters_.writes;
    wakeAfter([&] { rows_->write(row, false); });
    return true;
  }
  /// See VestaBase::remove.
  template <class Sizes>
  bool remove(const Sizes& sizes, const Word* key) {
    if (!despiteDamage([&] { return rows().remove(sizes, key); })) return false;
    ++counters_.removals;
    wakeAfter([&] { rows_->remove(sizes, key); });
    return true;
  }
  /// See RowReads. Nothing is found after detach.
  template <class Sizes>
  bool lookup(const Sizes& sizes, const Word* key, Word* row, std::uint32_t& slot) {
    try {
      return rows_ && rows_->reads().lookup(sizes, key, row, slot);
    } catch (const Cairn::CorruptionDetectedException& corruption) {
      replaceIfTruncated(corruption);
      return rows_->reads().lookup(key, row, slot);
    }
  }
  bool rowFrom(std::uint32_t& slot, Word* row);

  /// To be called at least once a second: restores words that carry no check, and replaces the segment if its
  /// file has another size or a reader has reported damage. No effect after detach.
  void monitor();
  /// Wakes the readers that sleep. A failure is left to monitor(). No effect after detach.
  void wakeDeferred() noexcept;

  // Keys whose rows a replacement of the segment has changed: they are lost, or older rows have come back.
  // The owner notifies its own process of them.

  bool hasChangedKeys() const noexcept { return !changedKeys_.empty(); }
  /// Takes one of them out. Only while hasChangedKeys() is true.
  EncodedKey takeChangedKey();
  /// Takes `key` out if it is one of them.
  void changedKeyDel(const Word* key);

  bool attached() const noexcept { return rows_ != nullptr; }
  void detach();
  void cleanup();
  void validate();
  void validateFiles() const { files_.validate(layout_); }

  std::size_t members() const { return rows_ ? rows_->members() : 0; }
  std::size_t capacity() const noexcept { return layout_.shape.capacity; }
  std::uint64_t sequence() const noexcept { return rows_ ? rows_->sequence() : 0; }
  bool connected() { return !readers().empty(); }
  bool quiesced(std::uint64_t sequence);
  bool movingReadersQuiesced(std::uint64_t sequence);
  bool clientQuiesced(const std::string& name);
  std::vector<ConnectedReader> readers();
  pid_t writerProcess() const noexcept;
  /// No effect: no row changes while the writer itself reads it.
  void yieldTimeIs(std::chrono::milliseconds) const noexcept {}
  /// See TableFiles::displacedFile. Empty while there is no segment.
  std::string displacedFile() const {
    return rows_ ? files_.displacedFile(rows_->reads().segment()) : std::string();
  }
  const RootPath& rootPath() const noexcept { return files_.path(); }
  const WriterCounters& counters() noexcept;
  /// Grows with every change of a row, whatever its reason.
  std::uint64_t changes() const noexcept {
    return counters_.writes + counters_.removals + counters_.replacements;
  }
  const DamagedPlaces& damagedPlaces() const noexcept { return damagedPlaces_; }
  const std::shared_ptr<Segment>& sharedSegment() const { return rows_->reads().sharedSegment(); }

 private:
  struct ReaderState {
    Word fifoOwner = 0;  // identity of the reader whose FIFO is open
    WakeFifo fifo;
    Word observedReader = 0;   // at the last check for progress
    Word observedHandled = 0;  // likewise
    std::chrono::steady_clock::time_point movedAt{};
  };

  RowWrites& rows() {
    if (!rows_) [[unlikely]]
      refuse();
    return *rows_;
  }
  [[noreturn]] void refuse() const;
  void takeTable();
  void rowsAre(std::unique_ptr<RowWrites> rows);
  Word sleepers() { return loadSleepers(segment().at(kSleepersAt)); }
  // Damage that a reader has reported is never deferred.
  bool deferred(Word asleep) noexcept {
    return (asleep & kDamageReported) == 0 && DeferredWakeups::defers(*this);
  }
  // Wakes the readers that sleep, unless that is deferred. `again` makes the change once more.
  template <class Again>
  void wakeAfter(const Again& again) {
    while (const Word asleep = sleepers()) [[unlikely]] {
        if (deferred(asleep) || !wakeSleepers()) break;
        again();
      }
  }
  // True when the segment had lost memory and was replaced: the change before this has to be made again,
  // since it may be in neither file.
  bool wakeSleepers();
  // Called by a handler of corruption: rethrows unless the segment's file was truncated.
  void replaceIfTruncated(const Cairn::CorruptionDetectedException& corruption);
  void wake(Word sleepers);
  // A change that detects corruption is made again in a new segment with all intact rows.
  template <class Change>
  bool despiteDamage(const Change& change) {
    try {
      return change();
    } catch (const Cairn::CorruptionDetectedException& damage) {
      damagedPlaces_ = placesOf(damage);
      replaceSegment(damage.message(), CreationLock::kUsualBound);
      return change();
    }
  }
  Segment& segment() { return rows_->reads().segment(); }
  void writerProcessIs(pid_t process);
  void requireIntact();
  void replaceIfDamaged();
  void replaceSegment(const std::string& reason, std::chrono::milliseconds lockBound);
  bool isGone(unsigned reader, Word identity);
  bool isStalled(unsigned reader, Word identity, Word handled);
  template <class Counts>
  bool allHandled(std::uint64_t sequence, const Counts& counts);

  Layout layout_;
  AttachOptions options_;
  TableFiles files_;
  std::unique_ptr<RowWrites> rows_;  // null when detached
  std::array<ReaderState, kMaxReaders> readerStates_;
  WriterCounters counters_;
  std::string loggedFailure_;  // of the last attempt to replace the segment; repeated ones are not logged
  std::vector<EncodedKey> changedKeys_;
  DamagedPlaces damagedPlaces_;  // that the last detected corruption names
};

}  // namespace Vesta
