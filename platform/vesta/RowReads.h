#pragma once

#include <chrono>
#include <memory>

#include "vesta/Segment.h"

namespace Vesta {

/// Reads rows of a mapped segment, next to a writer that may be at work or dead at any step.
///
/// A read ends in one of three ways: right, damaged (Cairn::CorruptionDetectedException: the words stood
/// still and their check failed), unsettled (UnsettledException: they kept moving). Everything read is
/// checked before it is used as a place.
///
/// `row` is 1 + rowWords words: the slot's version, the key, the entry. One object serves one thread; any
/// number of them share a segment.
class RowReads {
 public:
  static constexpr std::uint32_t kNone = 0xffffffff;

  explicit RowReads(std::shared_ptr<Segment> segment);

  /// Copies the row of `key` out and says where it stands; false when the key has none.
  bool lookup(const Word* key, Word* row, std::uint32_t& slot);
  /// Copies the first row at `slot` or after it out and moves `slot` to it; false when there is none.
  bool rowFrom(std::uint32_t& slot, Word* row);
  /// Copies what `slot` holds, row or not. Returns its version.
  Word readSlot(std::uint32_t slot, Word* row);
  /// Checks everything that a reader may come to use; throws on the first damage. Returns the number of rows.
  std::size_t validate();
  /// The part of validate that leaves the slots out.
  void validateIndex() const;

  /// Walks the chain of `hash` in the index `which` and calls `matches` with each slot whose tag fits, until
  /// it says true.
  struct Probe {
    std::uint32_t slot = kNone;   ///< the match
    std::uint32_t cell = kNone;   ///< where the match stands
    std::uint32_t place = kNone;  ///< where a new cell would go
  };
  template <class Matches>
  Probe probe(unsigned which, Word hash, const Matches& matches) const;

  Segment& segment() noexcept { return *segment_; }
  const std::shared_ptr<Segment>& sharedSegment() const noexcept { return segment_; }
  void yieldTimeIs(std::chrono::milliseconds time) noexcept { yieldTime_ = time; }
  std::uint64_t retries() const noexcept { return retries_; }
  bool sameKey(const Word* a, const Word* b) const noexcept;

 private:
  [[noreturn]] void reportRow(std::uint32_t slot, Word version, Word found, Word computed) const;
  std::uint32_t slotOfCell(std::uint32_t value, std::uint32_t cell) const;

  std::shared_ptr<Segment> segment_;
  const Layout& layout_;
  std::chrono::milliseconds yieldTime_{2000};
  std::uint64_t retries_ = 0;
};

template <class Matches>
RowReads::Probe RowReads::probe(unsigned which, Word hash, const Matches& matches) const {
  const std::size_t base = layout_.indexAt(which);
  const std::uint32_t mask = layout_.cells - 1;
  Probe result;
  for (std::uint32_t i = 0; i < layout_.cells; ++i) {
    const std::uint32_t cell = (static_cast<std::uint32_t>(hash) + i) & mask;
    const std::uint32_t value = segment_->unsealed(base + cell, "index cell");
    if (cellState(value) == CellState::used) {
      const std::uint32_t slot = slotOfCell(value, cell);
      if (sameTag(value, hash) && matches(slot)) {
        result.slot = slot;
        result.cell = cell;
        return result;
      }
    } else {
      if (result.place == kNone) result.place = cell;
      if (cellState(value) == CellState::empty) return result;
    }
  }
  reportDamage("index: no empty cell in " + std::to_string(layout_.cells));
}

}  // namespace Vesta
