// The fixed-size encodings of keys and entries in a segment.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Vesta {

/// To be specialised for each key and entry type:
///   static constexpr std::size_t size;         // bytes, 1 to 4096
///   static constexpr std::string_view text;    // names the fields and their types, for the fingerprint
///   static void encode(const T& value, std::uint8_t* bytes);    // writes exactly `size` bytes
///   static void decode(const std::uint8_t* bytes, T& value);    // reads exactly `size` bytes; takes any
///   bytes
/// Equal values must have equal encodings, since tables compare and hash keys by their bytes: no padding, and
/// one form for values that compare equal.
template <class T>
struct Codec;

template <class T>
concept Encodable = requires(const T& in, T& out, std::uint8_t* to, const std::uint8_t* from) {
  { Codec<T>::size } -> std::convertible_to<std::size_t>;
  { Codec<T>::text } -> std::convertible_to<std::string_view>;
  Codec<T>::encode(in, to);
  Codec<T>::decode(from, out);
};

}  // namespace Vesta
