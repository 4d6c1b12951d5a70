// Writing a variable-length column. A slot keeps its place in the variable area when the value in it gets
// shorter or goes away; the place reaches to the next place or to the row's end, so a value that fits in
// there goes there. Any other value gets a new place at the row's end, and the row length grows over it:
// copies of a row take row-length bytes and nothing more.
#include <algorithm>

#include "cairn/Assert.h"
#include "rows/BaseRow.h"

namespace Lumen {

void BaseRow::storeVariable(len_t offset, std::span<const std::byte> value, len_t fixedLength) {
  std::byte* const at = writableBytes() + offset;
  auto slot = loadBytes<VarSlot>(at);
  if (value.size() > placeLength(offset, slot, fixedLength)) {
    Cairn::require(offset + sizeof(VarSlot) <= rowLength(), "column inside the row", "setColumn");
    appendPlace(slot, value.size());
  }
  slot.lengthIs(static_cast<len_t>(value.size()));
  if (!value.empty()) std::memcpy(writableBytes() + slot.offset, value.data(), value.size());
  storeBytes(writableBytes() + offset, slot);
}

/// Bytes from the place of the slot at `offset` to the next place; none if another column's value stands
/// there, as it may in bytes from outside. Without a row class only the slot's own value is known.
std::size_t BaseRow::placeLength(len_t offset, VarSlot slot, len_t fixedLength) const {
  const RowBytes row = bytes();
  if (slot.offset < fixedLength || !slotInRow(row, slot)) return 0;
  if (!isFullyDefined()) return slot.length();
  std::size_t end = std::min<std::size_t>(row.rowLength(), row.available);
  for (const len_t column : vcd()) {
    const auto other = loadBytes<VarSlot>(row.data + column);
    if (other.offset > slot.offset) end = std::min<std::size_t>(end, other.offset);
    const bool taken =
        other.offset <= slot.offset && slot.offset < std::size_t{other.offset} + other.length();
    if (column != offset && taken) return 0;
  }
  return end - slot.offset;
}

/// Gives `slot` a place of `length` bytes at the row's end.
void BaseRow::appendPlace(VarSlot& slot, std::size_t length) {
  const std::size_t start = rowLength();
  const std::size_t end = start + length;
  Cairn::require(end <= kMaxRowLength, "row length <= 65535", "setColumn");
  if (end > bytes().available) {
    Cairn::require(start <= bytes().available, "row inside its buffer", "setColumn");
    LmRowBufPtr larger = LmRowBuf::uninitialized(static_cast<len_t>(end));
    std::memcpy(larger->bytes(), bytes().data, start);
    installBuffer(std::move(larger));
  }
  slot.offset = static_cast<len_t>(start);
  storeBytes(writableBytes() + kRowLengthOffset, static_cast<len_t>(end));
}

}  // namespace Lumen
