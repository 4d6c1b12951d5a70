#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vesta/RowReads.h"
#include "vesta/WriteStep.h"

namespace Vesta {

/// Writes rows of a mapped segment. The constructor takes the segment over from a predecessor that may have
/// died at any step: it checks every slot, makes the index anew from the slots and publishes a change that
/// took place but was not published. It throws Cairn::CorruptionDetectedException on damage, having changed
/// nothing.
///
/// What holds between any two steps: every row that readers can find was once written whole; the log holds
/// the record of the newest published change, and of the next one before its slot moves.
class RowWrites {
 public:
  explicit RowWrites(std::shared_ptr<Segment> segment, StepHook stepHook = {});

  /// `row` as in RowReads; its version word is overwritten. False when `onlyIfPresent` and the key has no
  /// row. Throws Cairn::ResourceExhaustedException when a new key finds every slot taken.
  bool write(Word* row, bool onlyIfPresent);
  /// False when the key has no row.
  bool remove(const Word* key);

  Word sequence() const noexcept { return sequence_; }
  std::size_t members() const noexcept { return members_; }
  std::uint64_t indexRebuilds() const noexcept { return indexRebuilds_; }
  RowReads& reads() noexcept { return reads_; }
  void step(WriteStep step) {
    if (stepHook_) [[unlikely]]
      stepHook_(step);
  }

 private:
  struct Known {
    Word hash = 0;
    bool occupied = false;
  };

  void takeOver();
  void requireDistinctKeys();
  void rebuildIndex();
  RowReads::Probe find(const Word* key, Word hash);
  void putRecord(Word* row, std::uint32_t slot, bool written);
  void putSlot(Word* row, std::uint32_t slot, bool occupied);
  void putCell(std::uint32_t cell, std::uint32_t value);
  void takeCell(std::uint32_t cell);
  void membersIs(std::size_t members);
  void publish();

  StepHook stepHook_;
  RowReads reads_;
  Segment& segment_;
  const Layout& layout_;
  Word sequence_ = 0;
  std::size_t members_ = 0;
  unsigned index_ = 0;
  std::uint32_t indexGeneration_ = 0;
  std::uint32_t cellsTaken_ = 0;  // cells of the current index that are not empty
  std::uint64_t indexRebuilds_ = 0;
  std::vector<Known> known_;         // by slot
  std::vector<std::uint32_t> free_;  // the next to be taken is the last
  std::vector<Word> scratch_;        // one row
};

}  // namespace Vesta
