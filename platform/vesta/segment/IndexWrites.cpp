#include "vesta/segment/IndexWrites.h"

#include <vector>

namespace Vesta {

IndexWrites::IndexWrites(Segment& segment, const StepHook& stepHook)
    : segment_(segment),
      stepHook_(stepHook),
      layout_(segment.layout()),
      shortcuts_(reinterpret_cast<std::uint32_t*>(&segment.at(layout_.shortcutsAt))) {
  const Word word = segment_.load(kIndexAt);  // which one is right either way: the other is rebuilt
  which_ = static_cast<unsigned>(word) & 1;
  switches_ = static_cast<std::uint32_t>(word) >> 1;
}

bool IndexWrites::isCrowded(std::uint32_t cell) const {
  const std::size_t at = layout_.indexAt(which_) + cell;
  return taken_ >= layout_.cells / 4 * 3 &&
         cellState(segment_.unsealed(at, "index cell")) == CellState::empty;
}

// A shortcut is stored after its cell and taken before it, so that it never names what the index does not.
void IndexWrites::put(std::uint32_t cell, Word hash, std::uint32_t slot) {
  const std::size_t at = layout_.indexAt(which_) + cell;
  if (cellState(static_cast<std::uint32_t>(segment_.load(at))) == CellState::empty) ++taken_;
  const std::uint32_t value = usedCell(hash, slot);
  segment_.store(at, sealed(value, at));
  step(WriteStep::cellMoved);
  storeRelease(shortcuts_[cell], value);
}

// A cell before an empty one ends every chain through it: it becomes empty, and so do the marks before it.
// Any other becomes a mark, or readers would miss the keys behind it.
void IndexWrites::take(std::uint32_t cell) {
  const std::size_t base = layout_.indexAt(which_);
  const std::uint32_t mask = layout_.cells - 1;
  // The row is gone already, so the removal has to be completed: a damaged cell counts as used, which keeps
  // every chain whole, and is left to the reads that meet it.
  const auto state = [&](std::uint32_t at) {
    const Word word = segment_.load(base + at);
    return isSealed(word, base + at) ? cellState(static_cast<std::uint32_t>(word)) : CellState::used;
  };
  const auto store = [&](std::uint32_t at, std::uint32_t value) {
    storeRelease(shortcuts_[at], value);
    segment_.store(base + at, sealed(value, base + at));
  };
  if (state((cell + 1) & mask) != CellState::empty) {
    store(cell, kMarkCell);
  } else {
    do {
      store(cell, kEmptyCell);
      --taken_;
      cell = (cell - 1) & mask;
    } while (state(cell) == CellState::mark);
  }
  step(WriteStep::cellMoved);
}

// Readers use the old index until the store of the index word. One that is still in the spare index since
// before the last switch sees that the word has moved, and starts again.
void IndexWrites::rebuild(const HeldRows& rows,
                          const std::function<void(std::uint32_t, std::uint32_t)>& sameHash) {
  const unsigned spare = 1 - which_;
  const std::size_t base = layout_.indexAt(spare);
  const std::uint32_t mask = layout_.cells - 1;
  for (std::size_t at = base; at < base + layout_.cells; ++at) segment_.store(at, sealed(kEmptyCell, at));
  step(WriteStep::rebuildCleared);
  std::uint32_t taken = 0;
  std::vector<std::uint32_t> filled(layout_.cells);  // the values, so that the segment need not be trusted
  for (std::uint32_t slot = 0; slot < rows.capacity(); ++slot) {
    if (slot == rows.capacity() / 2) step(WriteStep::rebuildHalf);
    if (!rows.occupied(slot)) continue;
    std::uint32_t at = static_cast<std::uint32_t>(rows.hash(slot)) & mask;
    for (; cellState(filled[at]) == CellState::used; at = (at + 1) & mask) {
      if (rows.sameHash(cellSlot(filled[at]), slot)) [[unlikely]]
        sameHash(cellSlot(filled[at]), slot);
    }
    filled[at] = usedCell(rows.hash(slot), slot);
    segment_.store(base + at, sealed(filled[at], base + at));
    ++taken;
  }
  step(WriteStep::rebuildFilled);
  taken_ = taken;
  which_ = spare;
  switches_ = (switches_ + 1) & 0x7fffffff;
  segment_.store(kIndexAt, word());
  ++rebuilds_;
  step(WriteStep::rebuildSwitched);
  for (std::uint32_t cell = 0; cell < layout_.cells; ++cell) storeRelease(shortcuts_[cell], filled[cell]);
}

}  // namespace Vesta
