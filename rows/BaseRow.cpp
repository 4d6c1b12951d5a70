#include "rows/BaseRow.h"

#include <algorithm>

#include "cairn/Assert.h"

namespace Lumen {

thread_local constinit BaseRowCounters baseRowCounters;

namespace {

LmRowBufPtr newBuffer(len_t length, len_t bufferLength) {
  LmRowBufPtr buffer;
  if (bufferLength != 0) buffer = LmRowBuf::zeroed(bufferLength);
  Cairn::require(length >= lm_contentOffset, "len >= lm_contentOffset", "BaseRow");
  Cairn::require(bufferLength >= length, "bufLen >= len", "BaseRow");
  storeBytes(buffer->bytes() + kRowLengthOffset, length);
  return buffer;
}

}  // namespace

BaseRow::BaseRow(len_t length) : buffer_(newBuffer(length, length)) { ++baseRowCounters.sized; }

BaseRow::BaseRow(len_t length, len_t bufferLength) : buffer_(newBuffer(length, bufferLength)) {
  ++baseRowCounters.sizedWithBuffer;
}

BaseRow::BaseRow(NestedIn place)
    : buffer_(place.parent.buffer_),
      contentOffset_(static_cast<len_t>(place.parent.contentOffset_ + place.slot.offset)),
      sharedContents_(true) {
  const RowBytes parent = place.parent.bytes();
  Cairn::require(slotInBuffer(parent, place.slot), "nested row inside the row", "SubRow");
  Cairn::require(place.slot.length() >= lm_contentOffset && rowLength() >= lm_contentOffset &&
                     rowLength() <= place.slot.length(),
                 "nested row inside its slot", "SubRow");
  ++baseRowCounters.subRows;
}

BaseRow& BaseRow::operator=(const BaseRow& other) noexcept {
  buffer_ = other.buffer_;
  contentOffset_ = other.contentOffset_;
  sharedContents_ = other.sharedContents_;
  readOnly_ = other.readOnly_;
  return *this;
}

BaseRow& BaseRow::operator=(BaseRow&& other) noexcept {
  if (this == &other) return *this;
  buffer_ = std::move(other.buffer_);
  contentOffset_ = std::exchange(other.contentOffset_, len_t{0});
  sharedContents_ = std::exchange(other.sharedContents_, false);
  readOnly_ = std::exchange(other.readOnly_, false);
  return *this;
}

void BaseRow::shareContents(const BaseRow& other) {
  if (isFullyDefined() && !other.isNull()) other.requireLayout(baseRowLength(), vcd());
  buffer_ = other.buffer_;
  contentOffset_ = other.contentOffset_;
  sharedContents_ = other.sharedContents_;
}

BaseRow BaseRow::fromBytes(std::span<const std::byte> bytes) {
  Cairn::require(bytes.size() >= lm_contentOffset, "len >= lm_contentOffset", "fromBytes");
  Cairn::require(bytes.size() <= kMaxRowLength, "len <= 65535", "fromBytes");
  LmRowBufPtr buffer = LmRowBuf::uninitialized(static_cast<len_t>(bytes.size()));
  std::memcpy(buffer->bytes(), bytes.data(), bytes.size());
  ++baseRowCounters.fromBytes;
  return BaseRow(std::move(buffer));
}

BaseRow BaseRow::clone() const {
  LmRowBufPtr copy = copiedBytes();
  ++baseRowCounters.cloned;
  return BaseRow(std::move(copy));
}

LmRowBufPtr BaseRow::copiedBytes() const {
  const RowBytes row = bytes();
  const len_t length = row.rowLength();
  Cairn::require(length >= lm_contentOffset && length <= row.available, "row inside its buffer", "copy");
  LmRowBufPtr copy = LmRowBuf::uninitialized(length);
  std::memcpy(copy->bytes(), row.data, length);
  return copy;
}

void BaseRow::installBuffer(LmRowBufPtr buffer) noexcept {
  buffer_ = std::move(buffer);
  contentOffset_ = 0;
  sharedContents_ = false;
}

void BaseRow::makeWritable(len_t fixedLength, std::size_t writeEnd) {
  Cairn::require(fixedLength != 0, "fdLen != 0", "setColumn");
  if (buffer_ && (!buffer_.unique() || sharedContents_)) {
    // The copy has room for the row length and no more. A row that was cleared to less than the write or the
    // handle's class needs is refused before it is copied.
    const std::size_t classEnd = isFullyDefined() ? baseRowLength() : 0;
    if (std::max(writeEnd, classEnd) > rowLength()) {
      if (readOnly_) throw LmPermissionViolation();
      Cairn::assertionFailed("column inside the row", "setColumn");
    }
    installBuffer(copiedBytes());
  }
  if (readOnly_) throw LmPermissionViolation();
  if (!buffer_) throwNullRow();
}

void BaseRow::rowTypeIs(std::uint16_t type) {
  prepareWrite(lm_contentOffset, lm_contentOffset);
  storeBytes(writableBytes() + kRowTypeOffset, type);
}

void BaseRow::clear(len_t fixedLength) {
  if (!buffer_) throwNullRow();
  const bool replace = !buffer_.unique() || sharedContents_;
  const std::size_t room = replace ? buffer_->length() : bytes().available;
  Cairn::require(fixedLength <= room, "setting fixed data length forBaseRow longer than buffer size",
                 "clear");
  Cairn::require(fixedLength >= lm_contentOffset, "len >= lm_contentOffset", "clear");
  LmRowBufPtr zeroed;
  if (replace) zeroed = LmRowBuf::zeroed(buffer_->length());
  if (readOnly_) throw LmPermissionViolation();
  if (replace) {
    installBuffer(std::move(zeroed));
  } else {
    std::memset(writableBytes(), 0, fixedLength);
  }
  storeBytes(writableBytes() + kRowLengthOffset, fixedLength);
}

void BaseRow::requireLayout(len_t fixedLength, std::span<const len_t> variableColumns) const {
  const RowBytes row = bytes();
  Cairn::require(row.available >= lm_contentOffset, "row header inside its buffer", "requireLayout");
  Cairn::require(row.rowLength() <= row.available, "row inside its buffer", "requireLayout");
  Cairn::require(fixedLength <= row.rowLength(), "fixed data inside the row", "requireLayout");
  for (const len_t offset : variableColumns) {
    const auto slot = loadBytes<VarSlot>(row.data + offset);
    Cairn::require(slot.length() == 0 || slotInRow(row, slot), "slot inside the row", "requireLayout");
  }
}

// Writing a variable-length column. A slot keeps its place in the variable area when its value gets shorter
// or is unset. The place reaches to the next place or to the end of the row; a value that fits goes there.
// Any other value gets a new place at the end of the row. Generic rows do not know the other places, so there
// only the last value of the row can grow in place: it moves the end of the row. The row length always covers
// the values, because copies take row-length bytes and nothing more.
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

std::span<const len_t> BaseRow::vcd() const { Cairn::assertionFailed("0", "vcd"); }

len_t BaseRow::baseRowLength() const { Cairn::assertionFailed("0", "baseRowLength"); }

std::string BaseRow::toString() const {
  return isNull() ? "len: 0, NULL" : "len: " + std::to_string(rowLength());
}

std::string BaseRow::toJson() const { return {}; }

bool BaseRow::rowEqual(const BaseRow& other) const {
  const RowBytes row = bytes();
  const RowBytes otherRow = other.bytes();
  requireLayout(lm_contentOffset, {});
  other.requireLayout(lm_contentOffset, {});
  // The header is part of the bytes: equal bytes have equal lengths and types.
  return row.rowLength() == otherRow.rowLength() &&
         std::memcmp(row.data, otherRow.data, row.rowLength()) == 0;
}

bool BaseRow::rowLess(const BaseRow&) const {
  throw LmNotSupported("rowLess not supported on generic base rows");
}

std::uint32_t BaseRow::rowHash() const { throw LmNotSupported("rowHash not supported on generic base rows"); }

bool BaseRow::isFullyDefined() const { return false; }

void BaseRow::clearRow() {
  if (!isNull()) clear(baseRowLength());
}

SubRow::~SubRow() = default;

}  // namespace Lumen
