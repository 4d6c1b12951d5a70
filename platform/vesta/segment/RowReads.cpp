#include "vesta/segment/RowReads.h"

#include <algorithm>
#include <vector>

#include "vesta/segment/ChangeLog.h"

namespace Vesta {

RowReads::RowReads(std::shared_ptr<Segment> segment)
    : segment_(std::move(segment)),
      layout_(segment_->layout()),
      words_(&segment_->at(0)),
      shortcuts_(reinterpret_cast<const std::uint32_t*>(words_ + layout_.shortcutsAt)),
      slots_(words_ + layout_.slotsAt),
      cellMask_(layout_.cells - 1) {}

void RowReads::reportCell(std::uint32_t value, std::size_t position) const {
  reportDamage("index cell at word " + std::to_string(position) + ": names slot " +
               std::to_string(cellSlot(value)) + " of a capacity of " +
               std::to_string(layout_.shape.capacity));
}

void RowReads::reportFullIndex(std::size_t base) const {
  reportDamage("index at word " + std::to_string(base) + ": no empty cell in " +
               std::to_string(layout_.cells));
}

void RowReads::reportRow(std::uint32_t slot, Word version, Word found, Word computed) const {
  reportDamage("slot " + std::to_string(slot) + " version " + hexText(version) + ": checksum found " +
               hexText(found) + ", computed " + hexText(computed));
}

void RowReads::retry(Patience& patience, const char* what) {
  ++retries_;
  patience.again(what);
}

// A slot may have changed hands between the load of its cell and that of its row; it then holds another key
// or none, which proves that the sought key was absent in between, so going on is right. A miss stands only
// if the index was not switched meanwhile, for the spare one may be half built, and only in an index whose
// word is sound. A hit proves itself.
bool RowReads::lookupSlowly(const Word* key, Word hash, Word* row, std::uint32_t& slot) {
  Patience patience(yieldTime_);
  for (;;) {
    const Word indexWord = loadAcquire(words_[kIndexAt]);
    const Probe found = probe(static_cast<unsigned>(indexWord) & 1, hash, [&](std::uint32_t candidate) {
      return isOccupied(readSlot(candidate, row)) && sameKey(row + 1, key);
    });
    if (found.slot != kNone) {
      slot = found.slot;
      return true;
    }
    Segment::unsealed(indexWord, kIndexAt, "index word");
    if (loadAcquire(words_[kIndexAt]) == indexWord) return false;
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

std::size_t RowReads::validate() {
  std::vector<Word> row(1 + layout_.rowWords);
  std::size_t rows = 0;
  for (std::uint32_t slot = 0; slot < layout_.shape.capacity; ++slot) {
    rows += isOccupied(readSlot(slot, row.data())) ? 1 : 0;
  }
  validateIndex();
  const Segment& segment = *segment_;
  const HeaderFault fault = headerFault(&segment.at(0), layout_);
  if (!fault.text.empty()) reportDamage(fault.text);
  if (segment.load(kStateAt) != kLive && !segment.retired()) {
    reportDamage("state: found " + hexText(segment.load(kStateAt)));
  }
  ChangeRecord record{};
  const Word published = segment.load(kSequenceAt);
  const Word changes =
      std::min(sequenceDistance(segment.firstSequence(), published), Word{layout_.records - 1});
  for (Word back = 0; back < changes; ++back) {
    readRecord(segment, (published - back) & kSequenceMask, row.data(), record);
  }
  return rows;
}

void RowReads::validateIndex() const {
  const unsigned which = segment_->unsealed(kIndexAt, "index word") & 1;
  const std::size_t base = layout_.indexAt(which);  // the other is made anew before it is used
  for (std::uint32_t cell = 0; cell < layout_.cells; ++cell) {
    const std::uint32_t value = segment_->unsealed(base + cell, "index cell");
    if (cellState(value) == CellState::used) slotOfCell(value, base + cell);
  }
  segment_->members();
}

}  // namespace Vesta
