// Values as they travel: unsigned, most significant byte first, of any length from one byte on.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "apps/p4/Pipeline.h"

namespace Wire {

enum class Fit { fits, empty, tooWide };

/// Writes `value` to its place in `row`, which is zero there. Nothing is written unless the value fits.
inline Fit storeValue(std::string_view value, const Place& place, unsigned bits, std::byte* row) noexcept {
  if (value.empty()) return Fit::empty;
  while (value.size() > place.bytes) {
    if (value.front() != '\0') return Fit::tooWide;
    value.remove_prefix(1);
  }
  const unsigned spareBits = place.bytes * 8u - bits;
  const bool isFull = value.size() == place.bytes;
  if (spareBits != 0 && isFull && static_cast<unsigned char>(value.front()) >> (8 - spareBits) != 0) {
    return Fit::tooWide;
  }
  std::byte* const at = row + place.at;
  if (place.littleEndian) {
    for (std::size_t i = 0; i < value.size(); ++i) {
      at[i] = static_cast<std::byte>(value[value.size() - 1 - i]);
    }
  } else {
    std::memcpy(at + place.bytes - value.size(), value.data(), value.size());
  }
  return Fit::fits;
}

/// The shortest form of the value whose bytes stand, in the place's own order, at `bytes`: at least one byte.
/// The result refers to `scratch`.
inline std::string_view shortestValue(const std::byte* bytes, const Place& place,
                                      std::array<char, 16>& scratch) noexcept {
  std::memcpy(scratch.data(), bytes, place.bytes);
  if (place.littleEndian) std::reverse(scratch.begin(), scratch.begin() + place.bytes);
  std::size_t first = 0;
  while (first + 1 < place.bytes && scratch[first] == '\0') ++first;
  return {scratch.data() + first, place.bytes - first};
}

}  // namespace Wire
