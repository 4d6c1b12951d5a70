// The columns of records. A key record has `kind`, the name of its table kind, and `keyColumns`; an entry
// record derives from its bookkeeping (Records.h) and its key and has `dataColumns`. Names, order and types
// of the columns are the row format; offsets, lengths, descriptors, conversions, hashes and orders follow
// from them.
#pragma once

#include <cstddef>
#include <string_view>
#include <tuple>
#include <utility>

#include "P4RuntimeTolmar/Names.h"

namespace TolmarHwLib {

/// One column: its name and the field that it carries.
template <class Record, class Value>
struct Column {
  using Type = Value;
  std::string_view name;
  Value Record::*member;
};
template <class Record, class Value>
Column(std::string_view, Value Record::*) -> Column<Record, Value>;

template <class T>
concept EntryRecord = requires {
  T::headColumns;
};
template <class T>
concept KeyRecord = !EntryRecord<T> && requires {
  T::keyColumns;
};

/// Calls visit(column) for each column of a tuple of columns, in order.
template <class Columns, class Visit>
constexpr void forEachColumn(const Columns& columns, Visit&& visit) {
  std::apply([&](const auto&... column) { (visit(column), ...); }, columns);
}

namespace detail {

struct AnyValue {
  template <class T>
  operator T() const;
};
template <class Record, std::size_t... I>
constexpr bool takes(std::index_sequence<I...>) {
  return requires { Record{(static_cast<void>(I), AnyValue())...}; };
}

}  // namespace detail

/// True if `Record` has `count` bases and fields of its own.
template <class Record, std::size_t count>
constexpr bool kHasFields = detail::takes<Record>(std::make_index_sequence<count>()) &&
                            !detail::takes<Record>(std::make_index_sequence<count + 1>());

/// `columns`: every column of the record, in row order.
template <class Record>
struct RowSchema;

template <KeyRecord Key>
struct RowSchema<Key> {
  static constexpr auto columns = Key::keyColumns;
  static_assert(kHasFields<Key, std::tuple_size_v<decltype(columns)>>, "a field of the key without a column");
};

template <EntryRecord Entry>
struct RowSchema<Entry> {
  using Key = typename Entry::Key;
  /// "TolmarHwLib::<Kind>ConfigEntryRow" or "...StatusEntryRow".
  static constexpr FixedText rowTypeNameText{typeName(Key::kind, Entry::side), "EntryRow"};
  static constexpr std::string_view rowTypeName = rowTypeNameText;
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr auto columns = std::tuple_cat(Entry::headColumns, key, Entry::dataColumns);

  /// The key columns are number kKeyFirst up to but not including kKeyEnd.
  static constexpr std::size_t kKeyFirst = std::tuple_size_v<decltype(Entry::headColumns)>;
  static constexpr std::size_t kKeyEnd = kKeyFirst + std::tuple_size_v<decltype(key)>;
  static_assert(kHasFields<Entry, 2 + std::tuple_size_v<decltype(Entry::dataColumns)>>,
                "a data field without a column");
};

}  // namespace TolmarHwLib
