#include "vesta/segment/RowReads.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "vesta/segment/ChangeLog.h"

namespace Vesta {

namespace {

// Rows of up to this many words are read without loops also where their type is not known.
constexpr std::uint32_t kMostUnrolled = 16;

}  // namespace

RowReads::RowReads(std::shared_ptr<Segment> segment)
    : segment_(std::move(segment)),
      layout_(segment_->layout()),
      words_(&segment_->at(0)),
      shortcuts_(reinterpret_cast<const std::uint32_t*>(words_ + layout_.shortcutsAt)),
      slots_(words_ + layout_.slotsAt),
      cellMask_(layout_.cells - 1),
      readSlot_(readSlotFor(layout_.rowWords)) {}

/// Of rows of that many words; 0 stands for any other number.
template <std::uint32_t rowWords>
Word RowReads::readSlotOf(std::uint32_t slot, Word* row) {
  if constexpr (rowWords == 0) {
    return readSlot(sizes(), slot, row);
  } else {
    using Words = std::integral_constant<std::uint32_t, rowWords>;
    return readSlot(BasicRowSizes<std::uint32_t, Words>{layout_.keyWords, Words()}, slot, row);
  }
}

RowReads::ReadSlot RowReads::readSlotFor(std::uint32_t rowWords) {
  static constexpr auto kAll = []<std::uint32_t... words>(std::integer_sequence<std::uint32_t, words...>) {
    return std::array{&RowReads::readSlotOf<words>...};
  }
  (std::make_integer_sequence<std::uint32_t, kMostUnrolled + 1>());
  return kAll[rowWords <= kMostUnrolled ? rowWords : 0];
}

void RowReads::throwCell(std::uint32_t value, std::size_t position) const {
  throwCorruption("index cell at word " + std::to_string(position) + ": names slot " +
                      std::to_string(cellSlot(value)) + " of a capacity of " +
                      std::to_string(layout_.shape.capacity),
                  {DamagedPlace::word(position)});
}

void RowReads::throwFullIndex(unsigned which) const {
  const std::size_t base = layout_.indexAt(which);
  throwCorruption(
      "index at word " + std::to_string(base) + ": no empty cell in " + std::to_string(layout_.cells),
      {DamagedPlace::word(base)});
}

void RowReads::throwRow(std::uint32_t slot, Word version, const CopiedRow& copied) const {
  throwCorruption("slot " + std::to_string(slot) + " version " + hexText(version) + ": checksum found " +
                      hexText(copied.found) + ", computed " + hexText(copied.computed),
                  {DamagedPlace::slot(slot)});
}

void RowReads::retry(Patience& patience, const char* what) {
  ++retries_;
  patience.again(what);
}

// Cells change one at a time, and keys never move between cells, so a key that the walk passes by was absent
// at some moment of the walk. A slot that was re-used between the load of its cell and that of its row holds
// another key or none: the key was absent in between. A miss counts only if the index word is intact and did
// not change, since the other index may be half built; a hit proves itself. A walk in which no cell was empty
// is damage only if nothing was published meanwhile: then at most one change was in progress, and an index
// has more empty cells than one change fills. Otherwise the empty cells may have moved past the walk.
bool RowReads::lookupInIndex(const Word* key, Word hash, Word* row, std::uint32_t& slot) {
  Patience patience(yieldTime_);
  for (;;) {
    const Word indexWord = loadAcquire(words_[kIndexAt]);
    const Word published = loadAcquire(words_[kSequenceAt]);
    const unsigned which = static_cast<unsigned>(indexWord) & 1;
    const Probe found = probe(which, hash, [&](std::uint32_t candidate) {
      return isOccupied(readSlot(candidate, row)) && sameKey(row + 1, key);
    });
    if (found.slot != kNone) {
      slot = found.slot;
      return true;
    }
    Segment::unsealed(indexWord, kIndexAt, "index word");
    if (loadAcquire(words_[kIndexAt]) == indexWord) {
      if (!found.isFull) return false;
      if (loadAcquire(words_[kSequenceAt]) == published) throwFullIndex(which);
    }
    retry(patience, "index");
  }
}

bool RowReads::rowFrom(std::uint32_t& slot, Word* row) {
  for (std::uint32_t at = slot; at < layout_.shape.capacity; ++at) {
    if (isOccupied(readSlot(at, row))) {
      slot = at;
      return true;
    }
  }
  return false;
}

void RowReads::validate() {
  std::vector<Word> row(1 + layout_.rowWords);
  for (std::uint32_t slot = 0; slot < layout_.shape.capacity; ++slot) readSlot(slot, row.data());
  validateIndex();
  const Segment& segment = *segment_;
  if (const SegmentFault fault = headerFault(&segment.at(0), layout_)) throwCorruption(fault.text);
  if (!segment.live() && !segment.retired()) {
    throwCorruption("state: found " + hexText(segment.load(kStateAt)));
  }
  ChangeRecord record{};
  const Word published = segment.load(kSequenceAt);
  const Word changes =
      std::min(sequenceDistance(segment.firstSequence(), published), Word{layout_.records - 1});
  for (Word back = 0; back < changes; ++back) {
    readRecord(segment, (published - back) & kSequenceMask, row.data(), record);
  }
}

void RowReads::validateIndex() const {
  const unsigned which = segment_->unsealed(kIndexAt, "index word") & 1;
  const std::size_t base = layout_.indexAt(which);  // the other one is rebuilt before it is used
  for (std::size_t at = base; at < base + layout_.cells; ++at) {
    const std::uint32_t value = Segment::unsealed(loadAcquire(words_[at]), at, "index cell");
    if (cellState(value) == CellState::used) slotOfCell(value, at);
  }
  segment_->members();
}

}  // namespace Vesta
