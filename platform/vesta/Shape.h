#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "vesta/Codec.h"

namespace Vesta {

/// What a segment must agree on with everyone who attaches to it. Sizes in bytes.
struct Shape {
  std::uint32_t keySize = 0;
  std::uint32_t entrySize = 0;
  std::uint32_t capacity = 0;
  std::uint64_t fingerprint = 0;  ///< of the encodings' texts

  friend bool operator==(const Shape&, const Shape&) = default;
};

std::uint64_t fingerprintOf(std::string_view keyText, std::string_view entryText) noexcept;

template <Encodable Key, Encodable Entry>
Shape shapeOf(std::uint32_t capacity) {
  static_assert(Codec<Key>::size > 0 && Codec<Key>::size <= 4096);
  static_assert(Codec<Entry>::size > 0 && Codec<Entry>::size <= 4096);
  return {static_cast<std::uint32_t>(Codec<Key>::size), static_cast<std::uint32_t>(Codec<Entry>::size),
          capacity, fingerprintOf(Codec<Key>::text, Codec<Entry>::text)};
}

}  // namespace Vesta
