#pragma once

#include <sstream>

#include "P4RuntimeTolmar/EntryRow.h"

namespace TolmarHwLib {

template <class Row, class Entry, class... FieldType, class... KeyType>
EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::EntryRow(const FieldType&... field)
    : BaseRow(ToBeFilled{Layout::kFixedLength, lengthWith((storedSize(field) + ... + 0)), kCount}) {
  storeFreshType();
  storeFresh<0>(field...);
}

template <class Row, class Entry, class... FieldType, class... KeyType>
Row EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::key(const KeyType&... key) {
  Row row = [&] {
    if constexpr (Layout::kVariableCount == 0) {
      return Row();
    } else {
      return Row{Probe{(storedSize(key) + ... + 0)}};
    }
  }();
  row.template storeFresh<Layout::kKeyFirst>(key...);
  return row;
}

template <class Row, class Entry, class... FieldType, class... KeyType>
Row EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::fromEntry(const Entry& entry) {
  return std::apply([&](const auto&... column) { return Row(entry.*column.member...); }, Layout::kColumns);
}

template <class Row, class Entry, class... FieldType, class... KeyType>
void EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::fill(const Entry& entry) {
  if (readOnly()) throw Lumen::LmPermissionViolation();
  const std::size_t length = std::apply(
      [&](const auto&... column) {
        return Layout::kFixedLength + (storedSize(entry.*column.member) + ... + 0);
      },
      Layout::kColumns);
  // A new row is made before the old one is touched: there may be no memory for it.
  if (bufferUseCount() != 1 || sharedContents() || bytes().available < length) {
    BaseRow::operator=(fromEntry(entry));
    return;
  }
  EntryRow::clearRow();
  std::apply([&](const auto&... column) { storeFresh<0>(entry.*column.member...); }, Layout::kColumns);
}

template <class Row, class Entry, class... FieldType, class... KeyType>
Row EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::clone() const {
  columnBytes<Entry>(*this);
  return Row{Copied{BaseRow::clone()}};
}

template <class Row, class Entry, class... FieldType, class... KeyType>
Entry EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::entry() const {
  Entry entry;
  readInto(entry);
  return entry;
}

template <class Row, class Entry, class... FieldType, class... KeyType>
auto EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::keyRecord() const -> KeyRecord {
  KeyRecord key;
  readColumns<Layout::kKeyFirst>(key, RowSchema<Entry>::key);
  return key;
}

template <class Row, class Entry, class... FieldType, class... KeyType>
template <std::size_t First, class Record, class Columns>
void EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::readColumns(
    Record& record, const Columns& columns) const {
  const Lumen::RowBytes row = bytes();
  forEachIndex<std::tuple_size_v<Columns>>([&]<std::size_t I>() {
    using Encoding = typename Layout::template EncodingAt<First + I>;
    record.*std::get<I>(columns).member = Encoding::load(row, Layout::kOffsets[First + I]);
  });
}

template <class Row, class Entry, class... FieldType, class... KeyType>
void EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::requireConvertible(
    const BaseRow& row, len_t contentOffset) {
  if (row.isNull()) return;
  if (row.rowType() != protRowType()) throw Lumen::LmBadCast(row.rowType(), protRowType(), contentOffset);
  row.requireLayout(Layout::kFixedLength, Layout::kVariableColumns);
}

template <class Row, class Entry, class... FieldType, class... KeyType>
template <class T>
std::size_t EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::storedSize(const T& value) {
  if constexpr (Lumen::Encoding<T>::kVariable) {
    return value.size();
  } else {
    return 0;
  }
}

template <class Row, class Entry, class... FieldType, class... KeyType>
template <std::size_t First, class... T>
void EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::storeFresh(const T&... value) {
  std::byte* const row = freshBytes();
  std::size_t end = Layout::kFixedLength;
  [&]<std::size_t... I>(std::index_sequence<I...>) {
    (storeFreshColumn(row, Layout::kOffsets[First + I], end, value), ...);
  }
  (std::index_sequence_for<T...>());
  if constexpr (Layout::kVariableCount != 0) {
    Lumen::storeBytes(row + Lumen::kRowLengthOffset, static_cast<len_t>(end));
  }
}

template <class Row, class Entry, class... FieldType, class... KeyType>
template <class T>
void EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::storeFreshColumn(std::byte* row,
                                                                                          len_t offset,
                                                                                          std::size_t& end,
                                                                                          const T& value) {
  if constexpr (Lumen::Encoding<T>::kVariable) {
    // An unset address has no place, not an empty one: a place reaches to the next.
    const len_t place = value.isSet() ? static_cast<len_t>(end) : len_t{0};
    Lumen::storeBytes(row + offset, Lumen::VarSlot{place, value.size()});
    std::memcpy(row + end, value.bytes(), value.size());
    end += value.size();
  } else {
    Lumen::Encoding<T>::store(row + offset, value);
  }
}

template <class Row, class Entry, class... FieldType, class... KeyType>
bool EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::rowEqual(
    const BaseRow& other) const {
  return rowType() == other.rowType() && AllColumns<Entry>::equal(bytes(), columnBytes<Entry>(other));
}

template <class Row, class Entry, class... FieldType, class... KeyType>
bool EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::rowLess(const BaseRow& other) const {
  const Lumen::RowBytes row = bytes();
  if (other.rowType() != rowType()) throw Lumen::LmBadCast(other.rowType(), rowType(), other.contentOffset());
  return AllColumns<Entry>::less(row, columnBytes<Entry>(other));
}

template <class Row, class Entry, class... FieldType, class... KeyType>
void EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::clearRow() {
  if (isNull()) return;
  const std::uint16_t type = protRowType();
  clear(Layout::kFixedLength);
  rowTypeIs(type);
}

template <class Row, class Entry, class... FieldType, class... KeyType>
std::string EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::toString() const {
  if (isNull()) return BaseRow::toString();
  std::ostringstream out;
  printColumns(out, "", " = ");
  return out.str();
}

template <class Row, class Entry, class... FieldType, class... KeyType>
std::string EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::toJson() const {
  std::ostringstream out;
  out << '{';
  printColumns(out, "\"", ":");
  out << '}';
  return out.str();
}

template <class Row, class Entry, class... FieldType, class... KeyType>
void EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>>::printColumns(
    std::ostream& out, std::string_view quote, std::string_view assign) const {
  const Lumen::RowBytes row = bytes();
  std::string_view separator;
  forEachIndex<Layout::kCount>([&]<std::size_t I>() {
    out << separator << quote << std::get<I>(Layout::kColumns).name << quote << assign;
    Lumen::printValue(out, Layout::template EncodingAt<I>::load(row, Layout::kOffsets[I]));
    separator = ", ";
  });
}

}  // namespace TolmarHwLib
