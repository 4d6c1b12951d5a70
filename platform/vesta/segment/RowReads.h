#pragma once

#include <chrono>
#include <memory>

#include "vesta/segment/Patience.h"
#include "vesta/segment/Segment.h"

namespace Vesta {

/// Reads rows of a mapped segment, next to a writer that may be at work or dead at any step.
///
/// A read ends in one of three ways: right, damaged (Cairn::CorruptionDetectedException: the words stood
/// still and their check failed), unsettled (UnsettledException: they kept moving). Everything read is
/// checked before it is used as a place.
///
/// `row` is 1 + rowWords words: the slot's version without kStaged, the key, the entry. One object serves one
/// thread; any number of them share a segment.
class RowReads {
 public:
  static constexpr std::uint32_t kNone = 0xffffffff;

  explicit RowReads(std::shared_ptr<Segment> segment);

  /// Copies the row of `key` out and says where it stands; false when the key has none.
  template <class Sizes>
  bool lookup(const Sizes& sizes, const Word* key, Word* row, std::uint32_t& slot);
  bool lookup(const Word* key, Word* row, std::uint32_t& slot) { return lookup(sizes(), key, row, slot); }
  /// The slot that a key of this hash probably has, for whoever can tell whether it does; kNone when the
  /// index has to be asked.
  std::uint32_t shortcut(Word hash) const;
  /// Copies the first row at `slot` or after it out and moves `slot` to it; false when there is none.
  bool rowFrom(std::uint32_t& slot, Word* row);
  /// Copies what `slot` holds, row or not. Returns its version.
  template <class Sizes>
  Word readSlot(const Sizes& sizes, std::uint32_t slot, Word* row);
  Word readSlot(std::uint32_t slot, Word* row) { return readSlot(sizes(), slot, row); }
  /// Checks everything that a reader may come to use; throws on the first damage. Returns the number of rows.
  std::size_t validate();
  /// The part of validate that leaves the slots out.
  void validateIndex() const;

  /// Walks the chain of `hash` in the index `which` and calls `matches` with each slot whose tag fits, until
  /// it says true.
  struct Probe {
    std::uint32_t slot = kNone;  ///< the match
    std::uint32_t cell = kNone;  ///< where it stands; without a match, where a new one would go
  };
  template <class Matches>
  Probe probe(unsigned which, Word hash, const Matches& matches) const;

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
  struct Copied {
    bool stoodStill;
    Word found;
    Word computed;
    bool passes() const { return found == computed; }
  };
  template <class Sizes>
  Copied copyOut(const Sizes& sizes, std::uint32_t slot, Word* row) const;
  bool lookupSlowly(const Word* key, Word hash, Word* row, std::uint32_t& slot);
  [[noreturn]] void reportRow(std::uint32_t slot, Word version, Word found, Word computed) const;
  [[noreturn]] void reportCell(std::uint32_t value, std::size_t position) const;
  [[noreturn]] void reportFullIndex(std::size_t base) const;
  void retry(Patience& patience, const char* what);
  std::uint32_t slotOfCell(std::uint32_t value, std::size_t position) const {
    const std::uint32_t slot = cellSlot(value);
    if (slot >= layout_.shape.capacity) [[unlikely]]
      reportCell(value, position);
    return slot;
  }

  std::shared_ptr<Segment> segment_;
  const Layout layout_;
  Word* const words_;  // the segment's; not owned, and so those that follow
  const std::uint32_t* const shortcuts_;
  const Word* const slots_;
  const std::uint32_t cellMask_;
  std::chrono::milliseconds yieldTime_{kDefaultYieldTime};
  std::uint64_t retries_ = 0;
};

template <class Matches>
RowReads::Probe RowReads::probe(unsigned which, Word hash, const Matches& matches) const {
  const std::size_t base = layout_.indexAt(which);
  const std::uint32_t mask = layout_.cells - 1;
  Probe result;
  for (std::uint32_t i = 0; i < layout_.cells; ++i) {
    const std::uint32_t cell = (static_cast<std::uint32_t>(hash) + i) & mask;
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
  reportFullIndex(base);
}

// Pairs with RowWrites::putSlot. The writer fills the staging row, names it in the version, then fills the
// slot and names that, so neither is overwritten before the version has moved away from it. If one of the
// words loaded here belongs to such an overwrite, its acquire load makes the version that preceded it
// visible, and the second load of the version differs from the first.
template <class Sizes>
[[gnu::always_inline]] inline RowReads::Copied RowReads::copyOut(const Sizes& sizes, std::uint32_t slot,
                                                                 Word* row) const {
  const Word* words = slots_ + slot * std::size_t{sizes.slot()};
  const Word version = loadAcquire(words[0]);
  const Word* stored = words + 1;
  if (isStaged(version)) [[unlikely]]
    stored = words_ + layout_.stagingAt;
  const Word found = loadAcquire(stored[0]);
  row[0] = version & ~kStaged;
  const Word computed = checksumOf(row[0], sizes.rowWords, slot,
                                   [&](std::size_t i) { return row[1 + i] = loadAcquire(stored[1 + i]); });
  return {loadAcquire(words[0]) == version, found, computed};
}

template <class Sizes>
Word RowReads::readSlot(const Sizes& sizes, std::uint32_t slot, Word* row) {
  Patience patience(yieldTime_);
  for (;;) {
    const Copied copied = copyOut(sizes, slot, row);
    if (copied.stoodStill) [[likely]] {
      if (!copied.passes()) [[unlikely]]
        reportRow(slot, row[0], copied.found, copied.computed);
      return row[0];
    }
    retry(patience, "row");
  }
}

// Down the chain to the first value with the hash's tag; not beyond its end, and not far. Shortcuts carry no
// check: whatever they say, the slot is one of the table's, and only its row can prove that it is the one.
inline std::uint32_t RowReads::shortcut(Word hash) const {
  const std::uint32_t wanted = usedCell(hash, 0) >> kSlotBits;
  auto at = static_cast<std::uint32_t>(hash);
  std::uint32_t value = loadAcquire(shortcuts_[at & cellMask_]);
  for (int i = 0; i < 8 && value >> kSlotBits != wanted && value != kEmptyCell; ++i) {
    value = loadAcquire(shortcuts_[++at & cellMask_]);
  }
  const bool fits = value >> kSlotBits == wanted && cellSlot(value) < layout_.shape.capacity;
  return fits ? cellSlot(value) : kNone;
}

// The common case without detours. A row that is right proves itself, so nothing else is asked; with any
// doubt the whole protocol decides.
template <class Sizes>
[[gnu::always_inline]] inline bool RowReads::lookup(const Sizes& sizes, const Word* key, Word* row,
                                                    std::uint32_t& slot) {
  const Word hash = hashOf(key, sizes.keyWords);
  const std::uint32_t probable = shortcut(hash);
  if (probable != kNone) [[likely]] {
    const Copied copied = copyOut(sizes, probable, row);
    if (copied.stoodStill && copied.passes() && isOccupied(row[0]) && sameKey(sizes, row + 1, key))
        [[likely]] {
      slot = probable;
      return true;
    }
    retries_ += copied.stoodStill ? 0 : 1;
  }
  return lookupSlowly(key, hash, row, slot);
}

}  // namespace Vesta
