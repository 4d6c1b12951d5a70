#pragma once

#include <sys/types.h>

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "vesta/AttachOptions.h"
#include "vesta/Replacement.h"
#include "vesta/VestaBase.h"

namespace Vesta {

/// The byte-level side of a table's one writer. Rows and keys are arrays of words as EncodedRow lays them
/// out.
///
/// Thread safety: one thread. Readers in other threads and processes are not disturbed, whatever step of a
/// write this one dies at.
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
    while (sleepers() != 0) [[unlikely]] {
        if (!wakeSleepers()) break;
        rows_->write(row, false);
      }
    return true;
  }
  bool remove(const Word* key);
  /// See RowReads. Nothing is found after detach.
  template <class Sizes>
  bool lookup(const Sizes& sizes, const Word* key, Word* row, std::uint32_t& slot) {
    try {
      return rows_ && rows_->reads().lookup(sizes, key, row, slot);
    } catch (const Cairn::CorruptionDetectedException&) {
      requireLoss();
      return rows_->reads().lookup(key, row, slot);
    }
  }
  bool rowFrom(std::uint32_t& slot, Word* row);

  /// To be called at least once a second, for what no operation notices or what has to be done even if no
  /// write follows: puts words right that carry no check, and replaces the segment if its file has another
  /// size or a reader has reported damage. Nothing after detach.
  void monitor();

  // Keys whose rows a replacement of the segment has changed: they are lost, or older rows have come back.
  // The owner notifies of them; nobody else in this process would.

  bool hasChangedKeys() const noexcept { return !changedKeys_.empty(); }
  /// Takes one of them out; there is one.
  std::vector<Word> takeChangedKey();
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
  /// Nothing keeps changing under the only one that writes.
  void yieldTimeIs(std::chrono::milliseconds) const noexcept {}
  /// See TableFiles::displacedFile. Empty while there is no segment.
  std::string displacedFile() const {
    return rows_ ? files_.displacedFile(rows_->reads().segment()) : std::string();
  }
  const RootPath& rootPath() const noexcept { return files_.path(); }
  const WriterCounters& counters() noexcept;
  const std::shared_ptr<Segment>& mapping() const { return rows_->reads().sharedSegment(); }

 private:
  struct ReaderNote {
    Word identity = 0;  // whose FIFO is open
    WakeFifo fifo;
    Word watched = 0;  // who it was when last looked at
    Word handled = 0;  // likewise
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
  // The load pairs with the reader's announcement in SegmentReader::maySleep; see RowWrites::publish.
  Word sleepers() { return std::atomic_ref<Word>(segment().at(kSleepersAt)).load(std::memory_order_seq_cst); }
  // True when the segment had lost memory and was replaced: a change that preceded this has to be made again,
  // since it may be in none of the files.
  bool wakeSleepers();
  // For a handler of corruption: rethrows unless the segment's file was truncated; then replaces it.
  void requireLoss();
  void wake(Word sleepers);
  // A change that meets damage is done again in a new segment with all sound rows.
  template <class Change>
  bool despiteDamage(const Change& change) {
    try {
      return change();
    } catch (const Cairn::CorruptionDetectedException& damage) {
      replaceSegment(damage.message(), CreationLock::kUsualBound);
      return change();
    }
  }
  Segment& segment() { return rows_->reads().segment(); }
  void writerPidIs(pid_t process);
  void requireIntact();
  void replaceIfDamaged();
  void replaceSegment(const std::string& reason, std::chrono::milliseconds lockBound);
  bool isGone(unsigned reader, Word identity);
  bool isStalled(unsigned reader, Word who, Word handled);
  template <class Counts>
  bool allHandled(std::uint64_t sequence, const Counts& counts);

  Layout layout_;
  AttachOptions options_;
  TableFiles files_;
  std::unique_ptr<RowWrites> rows_;  // null when detached
  std::array<ReaderNote, kMaxReaders> notes_;
  WriterCounters counters_;
  std::string loggedFailure_;  // of the last replacement, which is tried again and again
  std::vector<std::vector<Word>> changedKeys_;
};

}  // namespace Vesta
