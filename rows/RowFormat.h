// The bytes of a row. Little-endian, packed, without alignment gaps:
//
//   offset        size  field
//   0             2     row length, header included; grows as the variable area is used
//   2             2     row type, 0 until a row class sets it
//   4             n     fixed data: the columns, contiguous
//   4 + n         m     variable area: bytes that slots in the fixed data refer to
//
// A slot is four bytes of fixed data that refer to bytes elsewhere in the same row:
//
//   0             2     offset of the value, counted from the start of the row
//   2             2     length of the value in the low 15 bits, 0 for an absent value; the top bit is
//                       reserved
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Lumen {

using len_t = std::uint16_t;

/// Size of the header: the offset of the first column, and the shortest row.
inline constexpr len_t lm_contentOffset = 4;
inline constexpr std::size_t kMaxRowLength = 65535;

inline constexpr len_t kRowLengthOffset = 0;
inline constexpr len_t kRowTypeOffset = 2;

static_assert(std::endian::native == std::endian::little, "columns are stored in the host's own byte order");

template <class T>
inline T loadBytes(const std::byte* at) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

template <class T>
inline void storeBytes(std::byte* at, const T& value) noexcept {
  static_assert(std::is_trivially_copyable_v<T>);
  std::memcpy(at, &value, sizeof value);
}

/// The bytes of one row, from its header to the end of its buffer. `available` bounds every access at an
/// offset read from the row itself.
struct RowBytes {
  const std::byte* data;
  std::size_t available;

  len_t rowLength() const noexcept { return loadBytes<len_t>(data + kRowLengthOffset); }
};

struct VarSlot {
  static constexpr len_t kLengthMask = 0x7fff;

  len_t offset;
  len_t lengthWord;

  len_t length() const noexcept { return lengthWord & kLengthMask; }
  void lengthIs(len_t length) noexcept {
    lengthWord = static_cast<len_t>((lengthWord & ~kLengthMask) | length);
  }
};
static_assert(sizeof(VarSlot) == 4);

/// True if the bytes that `slot` refers to lie inside the row's buffer.
inline bool slotInBuffer(RowBytes row, VarSlot slot) noexcept {
  return std::size_t{slot.offset} + slot.length() <= row.available;
}

/// True if they also lie inside the row length, and so are part of copies.
inline bool slotInRow(RowBytes row, VarSlot slot) noexcept {
  return slotInBuffer(row, slot) && std::size_t{slot.offset} + slot.length() <= row.rowLength();
}

}  // namespace Lumen
