#pragma once

#include <chrono>
#include <memory>

#include "vesta/segment/Patience.h"
#include "vesta/segment/RowProtocol.h"
#include "vesta/segment/Segment.h"

namespace Vesta {

/// Reads rows of a mapped segment beside a writer that may be working, stopped or dead.
///
/// A read returns a row that was once written whole; or throws SegmentCorruption when the words did not
/// change while they were read and fail their check; or throws UnsettledException when they kept changing.
/// Every value read is checked before it is used as a place.
///
/// `row` has 1 + rowWords words: the slot's version without kStaged, the key, the entry.
/// Thread safety: one thread for each object; any number of objects share a segment.
class RowReads {
 public:
  static constexpr std::uint32_t kNone = 0xffffffff;

  explicit RowReads(std::shared_ptr<Segment> segment);

  /// Copies the row of `key` and returns its slot; false when the key has none.
  template <class Sizes>
  bool lookup(const Sizes& sizes, const Word* key, Word* row, std::uint32_t& slot);
  bool lookup(const Word* key, Word* row, std::uint32_t& slot) { return lookup(sizes(), key, row, slot); }
  /// A walk down the chain of one hash in an index.
  struct Probe {
    std::uint32_t slot = kNone;  ///< the match
    std::uint32_t cell = kNone;  ///< its cell; without a match, the cell for a new one
    bool isFull = false;         ///< no match, and the walk met no empty cell, which ends a chain
  };
  /// The slot and the cell in which a key of this hash probably is; kNone when only the index can tell. A
  /// hint: the caller checks that the key is there.
  Probe shortcut(Word hash) const;
  /// Copies the first row at or after `slot` and sets `slot` to its place; false when there is none.
  bool rowFrom(std::uint32_t& slot, Word* row);
  /// Copies the content of `slot`, a row or not. Returns its version.
  template <class Sizes>
  Word readSlot(const Sizes& sizes, std::uint32_t slot, Word* row);
  Word readSlot(std::uint32_t slot, Word* row) { return (this->*readSlot_)(slot, row); }
  /// Checks every word that a reader may use; throws on the first corruption.
  void validate();
  /// The part of validate() that does not read the slots.
  void validateIndex() const;

  /// Walks the chain of `hash` in the index `which` and calls `matches` with each slot whose tag fits, until
  /// it returns true. An intact index has an empty cell at any moment.
  template <class Matches>
  Probe probe(unsigned which, Word hash, const Matches& matches) const;
  /// Throws for an index without an empty cell.
  [[noreturn]] void throwFullIndex(unsigned which) const;

  Segment& segment() noexcept { return *segment_; }
  const std::shared_ptr<Segment>& sharedSegment() const noexcept { return segment_; }
  void yieldTimeIs(std::chrono::milliseconds time) noexcept { yieldTime_ = time; }
  std::uint64_t retries() const noexcept { return retries_; }
  RowSizes sizes() const noexcept { return layout_.sizes(); }
  bool sameKey(const Word* a, const Word* b) const noexcept { return sameKey(sizes(), a, b); }
  template <class Sizes>
  static bool sameKey(const Sizes& sizes, const Word* a, const Word* b) noexcept {
    Word difference = 0;
    eachWord(sizes.keyWords, [&](std::size_t i) { difference |= a[i] ^ b[i]; });
    return difference == 0;
  }

 private:
  template <class Sizes>
  [[gnu::always_inline]] CopiedRow copySlot(const Sizes& sizes, std::uint32_t slot, Word* row) const {
    return copyRow(sizes, slots_ + slot * std::size_t{sizes.slot()}, words_ + layout_.stagingAt, slot, row);
  }
  template <std::uint32_t rowWords>
  Word readSlotOf(std::uint32_t slot, Word* row);
  using ReadSlot = Word (RowReads::*)(std::uint32_t slot, Word* row);
  static ReadSlot readSlotFor(std::uint32_t rowWords);
  bool lookupInIndex(const Word* key, Word hash, Word* row, std::uint32_t& slot);
  [[noreturn]] void throwRow(std::uint32_t slot, Word version, const CopiedRow& copied) const;
  [[noreturn]] void throwCell(std::uint32_t value, std::size_t position) const;
  void retry(Patience& patience, const char* what);
  std::uint32_t slotOfCell(std::uint32_t value, std::size_t position) const {
    const std::uint32_t slot = cellSlot(value);
    if (slot >= layout_.shape.capacity) [[unlikely]]
      throwCell(value, position);
    return slot;
  }

  std::shared_ptr<Segment> segment_;
  const Layout layout_;
  Word* const words_;  // the segment's; not owned, and so those that follow
  const std::uint32_t* const shortcuts_;
  const Word* const slots_;
  const std::uint32_t cellMask_;
  const ReadSlot readSlot_;
  std::chrono::milliseconds yieldTime_{kDefaultYieldTime};
  std::uint64_t retries_ = 0;
};

template <class Matches>
RowReads::Probe RowReads::probe(unsigned which, Word hash, const Matches& matches) const {
  const std::size_t base = layout_.indexAt(which);
  Probe result;
  for (std::uint32_t i = 0; i < layout_.cells; ++i) {
    const std::uint32_t cell = (static_cast<std::uint32_t>(hash) + i) & cellMask_;
    const std::uint32_t value =
        Segment::unsealed(loadAcquire(words_[base + cell]), base + cell, "index cell");
    if (cellState(value) == CellState::used) [[likely]] {
      const std::uint32_t slot = slotOfCell(value, base + cell);
      if (sameTag(value, hash) && matches(slot)) return {slot, cell};
    } else {
      if (result.cell == kNone) result.cell = cell;
      if (cellState(value) == CellState::empty) return result;
    }
  }
  result.isFull = true;
  return result;
}

template <class Sizes>
Word RowReads::readSlot(const Sizes& sizes, std::uint32_t slot, Word* row) {
  Patience patience(yieldTime_);
  for (;;) {
    const CopiedRow copied = copySlot(sizes, slot, row);
    if (copied.settled) [[likely]] {
      if (!copied.intact()) [[unlikely]]
        throwRow(slot, row[0], copied);
      return row[0];
    }
    retry(patience, "row");
  }
}

// The first value down the chain with the hash's tag, within a bounded number of steps. Shortcuts carry no
// check, so the value is used only if it is a slot of this table.
[[gnu::always_inline]] inline RowReads::Probe RowReads::shortcut(Word hash) const {
  const std::uint32_t wanted = usedCell(hash, 0) >> kSlotBits;
  auto at = static_cast<std::uint32_t>(hash);
  std::uint32_t value = loadAcquire(shortcuts_[at & cellMask_]);
  for (int i = 0; i < 8 && value >> kSlotBits != wanted && value != kEmptyCell; ++i) {
    value = loadAcquire(shortcuts_[++at & cellMask_]);
  }
  const bool fits = value >> kSlotBits == wanted && cellSlot(value) < layout_.shape.capacity;
  return fits ? Probe{cellSlot(value), at & cellMask_} : Probe{};
}

// An intact row with the key proves itself; in any other case the index decides.
template <class Sizes>
[[gnu::always_inline]] inline bool RowReads::lookup(const Sizes& sizes, const Word* key, Word* row,
                                                    std::uint32_t& slot) {
  const Word hash = hashOf(key, sizes.keyWords);
  const std::uint32_t probable = shortcut(hash).slot;
  if (probable != kNone) [[likely]] {
    const CopiedRow copied = copySlot(sizes, probable, row);
    if (copied.settled && copied.intact() && isOccupied(row[0]) && sameKey(sizes, row + 1, key)) [[likely]] {
      slot = probable;
      return true;
    }
    retries_ += copied.settled ? 0 : 1;
  }
  return lookupInIndex(key, hash, row, slot);
}

}  // namespace Vesta
