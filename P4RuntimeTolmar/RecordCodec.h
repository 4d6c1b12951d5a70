// Encoding of keys and entries in shared memory: packed columns of fixed size, the widest integers first, all
// little-endian. An address is its family code and 16 bytes, unused ones zero. All unset addresses have the
// same encoding, because they are equal.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "P4RuntimeTolmar/RowLayout.h"
#include "vesta/Codec.h"

namespace TolmarHwLib {

template <class T>
struct PackedField {
  static constexpr std::size_t size = Lumen::Encoding<T>::kWidth;
  static void encode(const T& value, std::uint8_t* bytes) {
    Lumen::Encoding<T>::store(reinterpret_cast<std::byte*>(bytes), value);
  }
  static T decode(const std::uint8_t* bytes) {
    return Lumen::Encoding<T>::load({reinterpret_cast<const std::byte*>(bytes), size}, 0);
  }
};

template <>
struct PackedField<IpGenAddr> {
  static constexpr std::size_t kAddressSize = 16;
  static constexpr std::size_t size = 1 + kAddressSize;
  static void encode(const IpGenAddr& value, std::uint8_t* bytes) {
    bytes[0] = value.isSet() ? value.family() : std::uint8_t{0};
    std::copy_n(value.bytes(), kAddressSize, bytes + 1);
  }
  static IpGenAddr decode(const std::uint8_t* bytes) { return IpGenAddr::fromBytes(bytes[0], bytes + 1); }
};

template <class Record, const auto& Columns>
struct RecordCodec {
  static constexpr std::size_t kCount = std::tuple_size_v<std::remove_cvref_t<decltype(Columns)>>;
  template <std::size_t I>
  using FieldAt = PackedField<typename std::tuple_element_t<I, std::remove_cvref_t<decltype(Columns)>>::Type>;

  /// Offsets of the columns: the widest integers first, so that none crosses a word boundary; columns that
  /// are not integers last.
  static constexpr auto kOffsets = [] {
    std::array<std::size_t, kCount> sizes{};
    forEachIndex<kCount>([&]<std::size_t I>() { sizes[I] = FieldAt<I>::size; });
    const auto rank = [&](std::size_t i) { return std::has_single_bit(sizes[i]) ? sizes[i] : 0; };
    std::array<std::size_t, kCount> offsets{};
    for (std::size_t i = 0; i < kCount; ++i) {
      for (std::size_t j = 0; j < kCount; ++j) {
        if (rank(j) > rank(i) || (rank(j) == rank(i) && j < i)) offsets[i] += sizes[j];
      }
    }
    return offsets;
  }();
  static constexpr std::size_t size = []<std::size_t... I>(std::index_sequence<I...>) {
    return (FieldAt<I>::size + ...);
  }
  (std::make_index_sequence<kCount>());
  static constexpr std::string_view text = ColumnsDescriptor<Columns>::text();

  static void encode(const Record& record, std::uint8_t* bytes) {
    forEachIndex<kCount>([&]<std::size_t I>() {
      FieldAt<I>::encode(record.*std::get<I>(Columns).member, bytes + kOffsets[I]);
    });
  }
  static void decode(const std::uint8_t* bytes, Record& record) {
    forEachIndex<kCount>([&]<std::size_t I>() {
      record.*std::get<I>(Columns).member = FieldAt<I>::decode(bytes + kOffsets[I]);
    });
  }
};

}  // namespace TolmarHwLib

namespace Vesta {

template <class Record>
requires(TolmarHwLib::KeyRecord<Record> || TolmarHwLib::EntryRecord<Record>) struct Codec<Record>
    : TolmarHwLib::RecordCodec<Record, TolmarHwLib::RowSchema<Record>::columns> {
};

}  // namespace Vesta
