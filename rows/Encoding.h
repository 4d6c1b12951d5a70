// How a value of each column type is stored in a row, read, hashed, compared and printed.
//
// Encoding<T> offers, for every type:
//   kTypeWord, kWidth   the type's word in descriptors, its bytes in the fixed data
//   kVariable           true if the fixed data contain a slot and the variable area the bytes
//   kQuoted             true if text and JSON forms put the value in double quotes
//   load, hash, equal, compare   on the column at an offset of a row
//   hashValue           the hash that a column holding the value has
//   print               the value's text, whatever the stream's flags and locale
// and for types that are not variable:
//   store               writes the kWidth bytes of the value
// A bool byte other than 0 and 1, which only rows from outside contain, counts as 1 everywhere.
#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <ostream>
#include <span>
#include <string>
#include <string_view>

#include "cairn/Assert.h"
#include "cairn/EthAddr.h"
#include "cairn/Hash.h"
#include "cairn/IpGenAddr.h"
#include "rows/RowFormat.h"

namespace Lumen {

template <class T>
struct Encoding;

namespace detail {

template <std::unsigned_integral T>
constexpr std::string_view integerTypeWord() {
  switch (sizeof(T)) {
    case 1:
      return "uint8_t";
    case 2:
      return "uint16_t";
    case 4:
      return "uint32_t";
    default:
      return "uint64_t";
  }
}

}  // namespace detail

template <class T>
requires(std::unsigned_integral<T> && !std::same_as<T, bool>) struct Encoding<T> {
  static constexpr std::string_view kTypeWord = detail::integerTypeWord<T>();
  static constexpr len_t kWidth = sizeof(T);
  static constexpr bool kVariable = false;
  static constexpr bool kQuoted = false;

  static T load(RowBytes row, len_t offset) noexcept { return loadBytes<T>(row.data + offset); }
  static void store(std::byte* at, T value) noexcept { storeBytes(at, value); }
  static std::uint32_t hash(RowBytes row, len_t offset) noexcept { return hashValue(load(row, offset)); }
  static bool equal(RowBytes a, len_t at, RowBytes b, len_t bt) noexcept {
    return load(a, at) == load(b, bt);
  }
  static std::strong_ordering compare(RowBytes a, len_t at, RowBytes b, len_t bt) noexcept {
    return load(a, at) <=> load(b, bt);
  }
  // Ignores the upper half of 64 bits on purpose: the other users of the tables do the same.
  static constexpr std::uint32_t hashValue(T value) noexcept { return static_cast<std::uint32_t>(value); }
  static void print(std::ostream& out, T value) { out << std::to_string(value); }
};

template <>
struct Encoding<bool> {
  static constexpr std::string_view kTypeWord = "bool";
  static constexpr len_t kWidth = 1;
  static constexpr bool kVariable = false;
  static constexpr bool kQuoted = false;

  static bool load(RowBytes row, len_t offset) noexcept {
    return loadBytes<std::uint8_t>(row.data + offset) != 0;
  }
  static void store(std::byte* at, bool value) noexcept { *at = static_cast<std::byte>(value); }
  static std::uint32_t hash(RowBytes row, len_t offset) noexcept { return hashValue(load(row, offset)); }
  static bool equal(RowBytes a, len_t at, RowBytes b, len_t bt) noexcept {
    return load(a, at) == load(b, bt);
  }
  static std::strong_ordering compare(RowBytes a, len_t at, RowBytes b, len_t bt) noexcept {
    return load(a, at) <=> load(b, bt);
  }
  static constexpr std::uint32_t hashValue(bool value) noexcept { return value ? 1 : 0; }
  static void print(std::ostream& out, bool value) { out << (value ? "true" : "false"); }
};

template <>
struct Encoding<EthAddr> {
  static constexpr std::string_view kTypeWord = "EthAddr";
  static constexpr len_t kWidth = 6;
  static constexpr bool kVariable = false;
  static constexpr bool kQuoted = true;

  static EthAddr load(RowBytes row, len_t offset) noexcept { return loadBytes<EthAddr>(row.data + offset); }
  static void store(std::byte* at, const EthAddr& value) noexcept { storeBytes(at, value); }
  static std::uint32_t hash(RowBytes row, len_t offset) noexcept {
    return Cairn::Util::hash(row.data + offset, kWidth);
  }
  static bool equal(RowBytes a, len_t at, RowBytes b, len_t bt) noexcept {
    return std::memcmp(a.data + at, b.data + bt, kWidth) == 0;
  }
  static std::strong_ordering compare(RowBytes a, len_t at, RowBytes b, len_t bt) noexcept {
    return std::memcmp(a.data + at, b.data + bt, kWidth) <=> 0;
  }
  static std::uint32_t hashValue(const EthAddr& value) noexcept {
    return Cairn::Util::hash(value.bytes.data(), value.bytes.size());
  }
  static void print(std::ostream& out, const EthAddr& value) { out << value.toString(); }
};
static_assert(sizeof(EthAddr) == 6);

/// The length encodes the address family: 4 bytes for IPv4, 16 for IPv6, none for an unset address. An
/// address of any other length reads as unset.
template <>
struct Encoding<IpGenAddr> {
  static constexpr std::string_view kTypeWord = "IpGenAddr";
  static constexpr len_t kWidth = sizeof(VarSlot);
  static constexpr bool kVariable = true;
  static constexpr bool kQuoted = true;

  /// The address bytes; empty when unset. Throws Cairn::AssertionException if the slot points outside the
  /// row.
  static std::span<const std::byte> addressBytes(RowBytes row, len_t offset) {
    const auto slot = loadBytes<VarSlot>(row.data + offset);
    if (slot.length() == 0) return {};
    Cairn::require(slotInRow(row, slot), "address slot inside the row", "getColumn");
    if (slot.length() != kIpv4Size && slot.length() != kIpv6Size) return {};
    return {row.data + slot.offset, slot.length()};
  }

  static IpGenAddr load(RowBytes row, len_t offset) {
    const auto bytes = addressBytes(row, offset);
    const auto* const first = reinterpret_cast<const std::uint8_t*>(bytes.data());
    if (bytes.empty()) return {};
    return IpGenAddr::fromBytes(bytes.size() == kIpv4Size ? IpGenAddr::kIpv4 : IpGenAddr::kIpv6, first);
  }
  static std::uint32_t hash(RowBytes row, len_t offset) {
    const auto bytes = addressBytes(row, offset);
    return bytes.empty() ? 0 : Cairn::Util::hash(bytes.data(), bytes.size());
  }
  static bool equal(RowBytes a, len_t at, RowBytes b, len_t bt) { return compare(a, at, b, bt) == 0; }
  static std::strong_ordering compare(RowBytes a, len_t at, RowBytes b, len_t bt) {
    const auto left = addressBytes(a, at);
    const auto right = addressBytes(b, bt);
    if (left.size() != right.size() || left.empty()) return left.size() <=> right.size();
    return std::memcmp(left.data(), right.data(), left.size()) <=> 0;
  }
  static std::uint32_t hashValue(const IpGenAddr& value) noexcept {
    return value.isSet() ? Cairn::Util::hash(value.bytes(), value.size()) : 0;
  }
  static void print(std::ostream& out, const IpGenAddr& value) { out << value.toString(); }

 private:
  static constexpr len_t kIpv4Size = 4;
  static constexpr len_t kIpv6Size = 16;
};

/// Prints the value as in text and JSON forms, in double quotes if its type is quoted.
template <class T>
void printValue(std::ostream& out, const T& value) {
  if constexpr (Encoding<T>::kQuoted) out << '"';
  Encoding<T>::print(out, value);
  if constexpr (Encoding<T>::kQuoted) out << '"';
}

}  // namespace Lumen
