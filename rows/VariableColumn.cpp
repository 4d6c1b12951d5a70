// Writing a variable-length column. A slot keeps its place in the variable area when its value gets shorter
// or is unset. The place reaches to the next place or to the end of the row; a value that fits goes there.
// Any other value gets a new place at the end of the row. Generic rows do not know the other places, so there
// only the last value of the row can grow in place: it moves the end of the row. The row length always covers
// the values, because copies take row-length bytes and nothing more.
#include <algorithm>

#include "cairn/Assert.h"
#include "rows/BaseRow.h"

namespace Lumen {

void BaseRow::storeVariable(len_t offset, std::span<const std::byte> value, len_t fixedLength) {
  std::byte* const at = writableBytes() + offset;
  auto slot = loadBytes<VarSlot>(at);
  const std::size_t fixedEnd = std::max<std::size_t>(fixedLength, offset + sizeof(VarSlot));
  if (!isFullyDefined() && isLastValue(slot, fixedEnd)) {
    endRowAt(slot.offset, slot.offset + value.size());
  } else if (value.size() > placeLength(offset, slot, fixedLength)) {
    const std::size_t start = std::max(rowLength(), fixedLength);
    Cairn::require(fixedEnd <= start, "column inside the row", "setColumn");
    endRowAt(start, start + value.size());
    slot.offset = static_cast<len_t>(start);
  }
  slot.lengthIs(static_cast<len_t>(value.size()));
  if (!value.empty()) std::memcpy(writableBytes() + slot.offset, value.data(), value.size());
  storeBytes(writableBytes() + offset, slot);
}

bool BaseRow::isLastValue(VarSlot slot, std::size_t fixedEnd) const {
  const RowBytes row = bytes();
  return slot.offset >= fixedEnd && slotInRow(row, slot) &&
         std::size_t{slot.offset} + slot.length() == row.rowLength();
}

/// Bytes from the place of the slot at `offset` to the next place; none if another column's value is stored
/// there, which bytes from outside may contain. Without a row class only the slot's own value is known.
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

/// Makes the row end at `end`, in a larger buffer if necessary; its bytes before `start` are kept.
void BaseRow::endRowAt(std::size_t start, std::size_t end) {
  Cairn::require(end <= kMaxRowLength,
                 "row length <= 65535 (a generic row appends values that outgrow their place)", "setColumn");
  const RowBytes row = bytes();
  if (end > row.available) {
    Cairn::require(row.rowLength() <= row.available, "row inside its buffer", "setColumn");
    LmRowBufPtr larger = LmRowBuf::uninitialized(static_cast<len_t>(end));
    const std::size_t kept = std::min(start, row.available);
    std::memcpy(larger->bytes(), row.data, kept);
    std::memset(larger->bytes() + kept, 0, end - kept);
    installBuffer(std::move(larger));
  }
  storeBytes(writableBytes() + kRowLengthOffset, static_cast<len_t>(end));
}

}  // namespace Lumen
