// Offsets, lengths and the type descriptor of a record's rows, computed at compile time from its columns.
#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <tuple>
#include <utility>

#include "P4RuntimeTolmar/Schema.h"
#include "rows/Encoding.h"

namespace TolmarHwLib {

using Lumen::len_t;

/// Calls visit.operator()<0>(), <1>() ... in order.
template <std::size_t Count, class Visit>
constexpr void forEachIndex(Visit&& visit) {
  [&]<std::size_t... I>(std::index_sequence<I...>) { (visit.template operator()<I>(), ...); }
  (std::make_index_sequence<Count>());
}

/// The type descriptor of a tuple of columns: {"name":"type", ...}.
template <const auto& Columns>
class ColumnsDescriptor {
 public:
  static constexpr std::string_view text() { return {kText.data(), kText.size()}; }

 private:
  // Calls put(piece) for each piece of the text.
  template <class Put>
  static constexpr void write(Put put) {
    std::string_view separator = "{\"";
    forEachColumn(Columns, [&]<class C>(const C& column) {
      put(separator);
      put(column.name);
      put("\":\"");
      put(Lumen::Encoding<typename C::Type>::kTypeWord);
      put("\"");
      separator = ", \"";
    });
    put("}");
  }
  static constexpr std::size_t kLength = [] {
    std::size_t length = 0;
    write([&](std::string_view piece) { length += piece.size(); });
    return length;
  }();
  static constexpr auto kText = [] {
    std::array<char, kLength> text{};
    std::size_t length = 0;
    write([&](std::string_view piece) {
      for (const char c : piece) text[length++] = c;
    });
    return text;
  }();
};

template <class Entry>
struct RowLayout {
  using Schema = RowSchema<Entry>;

  static constexpr auto& kColumns = Schema::columns;
  using Columns = std::remove_cvref_t<decltype(kColumns)>;
  static constexpr std::size_t kCount = std::tuple_size_v<Columns>;
  template <std::size_t I>
  using TypeAt = typename std::tuple_element_t<I, Columns>::Type;
  template <std::size_t I>
  using EncodingAt = Lumen::Encoding<TypeAt<I>>;

  static constexpr std::size_t kKeyFirst = Schema::kKeyFirst;
  static constexpr std::size_t kKeyEnd = Schema::kKeyEnd;

  /// Offsets of the columns from the start of the row, and behind them the fixed-data length.
  static constexpr auto kOffsets = [] {
    std::array<len_t, kCount + 1> offsets{Lumen::lm_contentOffset};
    forEachIndex<kCount>(
        [&]<std::size_t I>() { offsets[I + 1] = static_cast<len_t>(offsets[I] + EncodingAt<I>::kWidth); });
    return offsets;
  }();
  static constexpr len_t kFixedLength = kOffsets[kCount];

  static constexpr std::size_t kVariableCount = [] {
    std::size_t count = 0;
    forEachIndex<kCount>([&]<std::size_t I>() { count += EncodingAt<I>::kVariable ? 1 : 0; });
    return count;
  }();
  /// Offsets of the variable-length columns.
  static constexpr auto kVariableColumns = [] {
    std::array<len_t, kVariableCount> offsets{};
    std::size_t next = 0;
    forEachIndex<kCount>([&]<std::size_t I>() {
      if constexpr (EncodingAt<I>::kVariable) offsets[next++] = kOffsets[I];
    });
    return offsets;
  }();

  static constexpr std::string_view descriptor() { return ColumnsDescriptor<kColumns>::text(); }
};

}  // namespace TolmarHwLib
