// Hash, equality and order of consecutive columns of an entry row.
#pragma once

#include <compare>
#include <concepts>
#include <cstring>

#include "P4RuntimeTolmar/RowLayout.h"
#include "cairn/Assert.h"
#include "rows/BaseRow.h"

namespace TolmarHwLib {

/// The columns from number `First` up to but not including `End`. The rows must contain the fixed data.
template <class Entry, std::size_t First, std::size_t End>
struct RowColumns {
  using Layout = RowLayout<Entry>;
  using RowBytes = Lumen::RowBytes;

  /// Block steps only, without tail and finalisation, so that hashes agree with the other users of the
  /// tables.
  static std::uint32_t hash(RowBytes row) {
    std::uint32_t hash = 0;
    forEachIndex<End - First>([&]<std::size_t I>() {
      using Encoding = typename Layout::template EncodingAt<First + I>;
      hash = Cairn::Util::hashBlock(hash, Encoding::hash(row, Layout::kOffsets[First + I]));
    });
    return hash;
  }

  static bool equal(RowBytes a, RowBytes b) {
    if constexpr (Layout::kVariableCount == 0) {
      // The columns are contiguous. Only those of type bool can be equal in different bytes.
      constexpr len_t kStart = Layout::kOffsets[First];
      const bool sameBytes =
          std::memcmp(a.data + kStart, b.data + kStart, Layout::kOffsets[End] - kStart) == 0;
      if (sameBytes || !kHasBool) return sameBytes;
    }
    return [&]<std::size_t... I>(std::index_sequence<I...>) { return (equalAt<First + I>(a, b) && ...); }
    (std::make_index_sequence<End - First>());
  }

  static bool less(RowBytes a, RowBytes b) {
    auto order = std::strong_ordering::equal;
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      static_cast<void>(((order = compareAt<First + I>(a, b), order != 0) || ...));
    }
    (std::make_index_sequence<End - First>());
    return order < 0;
  }

 private:
  static constexpr bool kHasBool = []<std::size_t... I>(std::index_sequence<I...>) {
    return (std::same_as<typename Layout::template TypeAt<First + I>, bool> || ...);
  }
  (std::make_index_sequence<End - First>());

  template <std::size_t I>
  static bool equalAt(RowBytes a, RowBytes b) {
    return Layout::template EncodingAt<I>::equal(a, Layout::kOffsets[I], b, Layout::kOffsets[I]);
  }
  template <std::size_t I>
  static std::strong_ordering compareAt(RowBytes a, RowBytes b) {
    return Layout::template EncodingAt<I>::compare(a, Layout::kOffsets[I], b, Layout::kOffsets[I]);
  }
};

template <class Entry>
using KeyColumns = RowColumns<Entry, RowLayout<Entry>::kKeyFirst, RowLayout<Entry>::kKeyEnd>;
template <class Entry>
using AllColumns = RowColumns<Entry, 0, RowLayout<Entry>::kCount>;

/// The bytes of a row that may come from outside, checked to contain the fixed data of a row of `Entry`.
/// Throws LmNullRow, or Cairn::AssertionException if the row is too short or longer than its buffer. The row
/// length in the header decides, because another row may follow in the buffer.
template <class Entry>
[[gnu::always_inline]] inline Lumen::RowBytes columnBytes(const Lumen::BaseRow& row) {
  const Lumen::RowBytes bytes = row.bytes();
  const len_t length = bytes.rowLength();
  Cairn::require(length >= RowLayout<Entry>::kFixedLength && length <= bytes.available,
                 "fixed data inside the row", "columnBytes");
  return bytes;
}

}  // namespace TolmarHwLib
