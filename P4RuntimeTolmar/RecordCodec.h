// How keys and entries stand in shared memory: the columns in order, packed, integers little-endian, each at
// a fixed size. An address is its family code and 16 bytes, those not used zero; all unset addresses are
// stored alike, since they are equal.
#pragma once

#include <algorithm>
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
  static constexpr std::size_t size = std::apply(
      []<class... C>(const C&...) { return (PackedField<typename C::Type>::size + ...); }, Columns);
  static constexpr std::string_view text = ColumnsDescriptor<Columns>::text();

  static void encode(const Record& record, std::uint8_t* bytes) {
    forEachColumn(Columns, [&]<class C>(const C& column) {
      PackedField<typename C::Type>::encode(record.*column.member, bytes);
      bytes += PackedField<typename C::Type>::size;
    });
  }
  static void decode(const std::uint8_t* bytes, Record& record) {
    forEachColumn(Columns, [&]<class C>(const C& column) {
      record.*column.member = PackedField<typename C::Type>::decode(bytes);
      bytes += PackedField<typename C::Type>::size;
    });
  }
};

}  // namespace TolmarHwLib

namespace Vesta {

template <class Record>
requires requires { TolmarHwLib::RowSchema<Record>::columns; }
struct Codec<Record> : TolmarHwLib::RecordCodec<Record, TolmarHwLib::RowSchema<Record>::columns> {};

template <class Record>
requires requires { TolmarHwLib::RowSchema<Record>::rowTypeName; }
struct Codec<Record> : TolmarHwLib::RecordCodec<Record, TolmarHwLib::RowLayout<Record>::kColumns> {};

}  // namespace Vesta
