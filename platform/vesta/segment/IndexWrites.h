#pragma once

#include <cstdint>
#include <functional>

#include "vesta/segment/HeldRows.h"
#include "vesta/segment/Segment.h"
#include "vesta/segment/WriteStep.h"

namespace Vesta {

/// Writes the index of a mapped segment and its shortcuts, beside readers that walk them. Pairs with
/// RowReads::probe, lookupInIndex and shortcut.
///
/// Cells change one at a time and keys never move between them, so a walk passes no key that is there
/// throughout. A rebuild fills the spare index and switches to it by one store of the index word.
class IndexWrites {
 public:
  /// Neither is owned. The index is not usable before the first rebuild.
  IndexWrites(Segment& segment, const StepHook& stepHook);

  /// The index in use, 0 or 1.
  unsigned which() const noexcept { return which_; }
  /// The value of the index word.
  Word word() const noexcept { return sealed(switches_ << 1 | which_, kIndexAt); }
  std::uint64_t rebuilds() const noexcept { return rebuilds_; }

  /// Whether it has to be rebuilt before a row is put into `cell`, which is not used.
  bool isCrowded(std::uint32_t cell) const;
  /// Whether `cell` is intact and names the slot for a key of this hash.
  bool names(std::uint32_t cell, Word hash, std::uint32_t slot) const {
    const std::size_t at = layout_.indexAt(which_) + cell;
    return segment_.load(at) == sealed(usedCell(hash, slot), at);
  }
  void put(std::uint32_t cell, Word hash, std::uint32_t slot);
  void take(std::uint32_t cell);
  /// Calls `sameHash` with two slots whose keys have one hash, before it switches.
  void rebuild(const HeldRows& rows, const std::function<void(std::uint32_t, std::uint32_t)>& sameHash);

 private:
  void step(WriteStep step) const {
    if (stepHook_) [[unlikely]]
      stepHook_(step);
  }

  Segment& segment_;
  const StepHook& stepHook_;
  const Layout layout_;
  std::uint32_t* const shortcuts_;  // the segment's
  unsigned which_;
  std::uint32_t switches_;   // from one index to the other, counted over the segment's life
  std::uint32_t taken_ = 0;  // cells in use or marked
  std::uint64_t rebuilds_ = 0;
};

}  // namespace Vesta
