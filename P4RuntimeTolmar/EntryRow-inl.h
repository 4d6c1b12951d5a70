#pragma once

#include <sstream>

#include "P4RuntimeTolmar/EntryRow.h"

namespace TolmarHwLib {

template <class Row, class Entry>
Row TypedRow<Row, Entry>::fromEntry(const Entry& entry) {
  return std::apply([&](const auto&... column) { return Row(entry.*column.member...); }, Layout::kColumns);
}

template <class Row, class Entry>
void TypedRow<Row, Entry>::fill(const Entry& entry) {
  if (readOnly()) throw Lumen::LmPermissionViolation();
  const std::size_t length = std::apply(
      [&](const auto&... column) {
        return Layout::kFixedLength + (storedSize(entry.*column.member) + ... + 0);
      },
      Layout::kColumns);
  // The new row is made before the old one changes, because the allocation may fail.
  if (bufferUseCount() != 1 || sharedContents() || bytes().available < length) {
    BaseRow::operator=(fromEntry(entry));
    return;
  }
  TypedRow::clearRow();
  std::apply([&](const auto&... column) { storeFresh<0>(entry.*column.member...); }, Layout::kColumns);
}

template <class Row, class Entry>
Row TypedRow<Row, Entry>::clone() const {
  columnBytes<Entry>(*this);
  return Row{Copied{BaseRow::clone()}};
}

template <class Row, class Entry>
Entry TypedRow<Row, Entry>::entry() const {
  Entry entry;
  readInto(entry);
  return entry;
}

template <class Row, class Entry>
auto TypedRow<Row, Entry>::keyRecord() const -> KeyRecord {
  KeyRecord key;
  readColumns<Layout::kKeyFirst>(key, RowSchema<KeyRecord>::columns);
  return key;
}

template <class Row, class Entry>
template <std::size_t First, class Record, class Columns>
void TypedRow<Row, Entry>::readColumns(Record& record, const Columns& columns) const {
  const Lumen::RowBytes row = bytes();
  forEachIndex<std::tuple_size_v<Columns>>([&]<std::size_t I>() {
    using Encoding = typename Layout::template EncodingAt<First + I>;
    record.*std::get<I>(columns).member = Encoding::load(row, Layout::kOffsets[First + I]);
  });
}

template <class Row, class Entry>
void TypedRow<Row, Entry>::requireConvertible(const BaseRow& row, len_t contentOffset) {
  if (row.isNull()) return;
  if (row.rowType() != protRowType()) throw Lumen::LmBadCast(row.rowType(), protRowType(), contentOffset);
  row.requireLayout(Layout::kFixedLength, Layout::kVariableColumns);
}

template <class Row, class Entry>
template <class T>
std::size_t TypedRow<Row, Entry>::storedSize(const T& value) {
  if constexpr (Lumen::Encoding<T>::kVariable) {
    return value.size();
  } else {
    return 0;
  }
}

template <class Row, class Entry>
template <std::size_t First, class... T>
void TypedRow<Row, Entry>::storeFresh(const T&... value) {
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

template <class Row, class Entry>
template <class T>
void TypedRow<Row, Entry>::storeFreshColumn(std::byte* row, len_t offset, std::size_t& end, const T& value) {
  if constexpr (Lumen::Encoding<T>::kVariable) {
    // An unset address gets no place: a place extends to the next one, so an empty one would have a size.
    const len_t place = value.isSet() ? static_cast<len_t>(end) : len_t{0};
    Lumen::storeBytes(row + offset, Lumen::VarSlot{place, value.size()});
    std::memcpy(row + end, value.bytes(), value.size());
    end += value.size();
  } else {
    Lumen::Encoding<T>::store(row + offset, value);
  }
}

template <class Row, class Entry>
bool TypedRow<Row, Entry>::rowEqual(const BaseRow& other) const {
  return rowType() == other.rowType() && AllColumns<Entry>::equal(bytes(), columnBytes<Entry>(other));
}

template <class Row, class Entry>
bool TypedRow<Row, Entry>::rowLess(const BaseRow& other) const {
  const Lumen::RowBytes row = bytes();
  if (other.rowType() != rowType()) throw Lumen::LmBadCast(other.rowType(), rowType(), other.contentOffset());
  return AllColumns<Entry>::less(row, columnBytes<Entry>(other));
}

template <class Row, class Entry>
void TypedRow<Row, Entry>::clearRow() {
  if (isNull()) return;
  const std::uint16_t type = protRowType();
  clear(Layout::kFixedLength);
  rowTypeIs(type);
}

template <class Row, class Entry>
std::string TypedRow<Row, Entry>::toString() const {
  if (isNull()) return BaseRow::toString();
  std::ostringstream out;
  printColumns(out, "", " = ");
  return out.str();
}

template <class Row, class Entry>
std::string TypedRow<Row, Entry>::toJson() const {
  std::ostringstream out;
  out << '{';
  printColumns(out, "\"", ":");
  out << '}';
  return out.str();
}

template <class Row, class Entry>
void TypedRow<Row, Entry>::printColumns(std::ostream& out, std::string_view quote,
                                        std::string_view assign) const {
  const Lumen::RowBytes row = bytes();
  std::string_view separator;
  forEachIndex<Layout::kCount>([&]<std::size_t I>() {
    out << separator << quote << std::get<I>(Layout::kColumns).name << quote << assign;
    Lumen::printValue(out, Layout::template EncodingAt<I>::load(row, Layout::kOffsets[I]));
    separator = ", ";
  });
}

}  // namespace TolmarHwLib
