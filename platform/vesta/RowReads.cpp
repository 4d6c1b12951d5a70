#include "vesta/RowReads.h"

#include <vector>

#include "cairn/Hash.h"
#include "vesta/Patience.h"

namespace Vesta {

RowReads::RowReads(std::shared_ptr<Segment> segment)
    : segment_(std::move(segment)), layout_(segment_->layout()) {}

bool RowReads::sameKey(const Word* a, const Word* b) const noexcept {
  for (std::uint32_t i = 0; i < layout_.keyWords; ++i) {
    if (a[i] != b[i]) return false;
  }
  return true;
}

std::uint32_t RowReads::slotOfCell(std::uint32_t value, std::uint32_t cell) const {
  const std::uint32_t slot = cellSlot(value);
  if (slot >= layout_.shape.capacity) [[unlikely]] {
    reportDamage("index cell " + std::to_string(cell) + ": names slot " + std::to_string(slot) +
                 " of a capacity of " + std::to_string(layout_.shape.capacity));
  }
  return slot;
}

void RowReads::reportRow(std::uint32_t slot, Word version, Word found, Word computed) const {
  reportDamage("slot " + std::to_string(slot) + " version " + hexText(version) + ": checksum found " +
               hexText(found) + ", computed " + hexText(computed));
}

// Pairs with RowWrites::putSlot. The writer fills the copy that the version does not name and then names it,
// so a copy is overwritten only after the version has moved past it. If one of the words loaded here belongs
// to such an overwrite, its acquire load makes the version that preceded it visible, and the second load of
// the version differs from the first.
Word RowReads::readSlot(std::uint32_t slot, Word* row) {
  Patience patience(yieldTime_);
  const Word& versionWord = segment_->at(layout_.slotAt(slot));
  for (;;) {
    const Word version = loadAcquire(versionWord);
    const Word* copy = &segment_->at(layout_.copyAt(slot, copyOf(version)));
    const Word found = loadAcquire(copy[0]);
    row[0] = version;
    for (std::uint32_t i = 1; i <= layout_.rowWords; ++i) row[i] = loadAcquire(copy[i]);
    if (loadAcquire(versionWord) == version) [[likely]] {
      const Word computed = Cairn::checksum(row, (1 + layout_.rowWords) * sizeof(Word), slot);
      if (found != computed) [[unlikely]]
        reportRow(slot, version, found, computed);
      return version;
    }
    ++retries_;
    patience.again("row");
  }
}

// A slot may have changed hands between the load of its cell and that of its row; it then holds another key
// or none, which proves that the sought key was absent in between, so going on is right. A miss stands only
// if the index was not switched meanwhile: the spare one may be half built.
bool RowReads::lookup(const Word* key, Word* row, std::uint32_t& slot) {
  const Word hash = hashOf(key, layout_.keyWords);
  Patience patience(yieldTime_);
  for (;;) {
    const Word indexWord = segment_->load(kIndexAt);
    const unsigned which = Segment::unsealed(indexWord, kIndexAt, "index word") & 1;
    const Probe found = probe(which, hash, [&](std::uint32_t candidate) {
      return isOccupied(readSlot(candidate, row)) && sameKey(row + 1, key);
    });
    if (found.slot != kNone) {
      slot = found.slot;
      return true;
    }
    if (segment_->load(kIndexAt) == indexWord) return false;
    ++retries_;
    patience.again("index");
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
  return rows;
}

void RowReads::validateIndex() const {
  const unsigned which = segment_->unsealed(kIndexAt, "index word") & 1;
  const std::size_t base = layout_.indexAt(which);  // the other is made anew before it is used
  for (std::uint32_t cell = 0; cell < layout_.cells; ++cell) {
    const std::uint32_t value = segment_->unsealed(base + cell, "index cell");
    if (cellState(value) == CellState::used) slotOfCell(value, cell);
  }
  segment_->members();
}

}  // namespace Vesta
