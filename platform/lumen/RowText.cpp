#include "lumen/RowText.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <sstream>
#include <vector>

#include "cairn/Assert.h"
#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"

namespace Lumen {

namespace {

/// Calls visit.operator()<T>() with the value type of a column type.
template <class Visit>
auto visitType(ColumnType type, Visit visit) {
  switch (type) {
    case ColumnType::boolean:
      return visit.template operator()<bool>();
    case ColumnType::uint8:
      return visit.template operator()<std::uint8_t>();
    case ColumnType::uint16:
      return visit.template operator()<std::uint16_t>();
    case ColumnType::uint32:
      return visit.template operator()<std::uint32_t>();
    case ColumnType::uint64:
      return visit.template operator()<std::uint64_t>();
    case ColumnType::ethAddr:
      return visit.template operator()<EthAddr>();
    case ColumnType::ipGenAddr:
      break;
  }
  return visit.template operator()<IpGenAddr>();
}

/// What parse accepts, for error texts.
template <class T>
std::string expectedText() {
  if constexpr (std::same_as<T, bool>) {
    return "true, false, 1 or 0";
  } else if constexpr (std::same_as<T, EthAddr>) {
    return "an Ethernet address like 00:00:5e:00:53:01";
  } else if constexpr (std::same_as<T, IpGenAddr>) {
    return "an IPv4 or IPv6 address, or nothing";
  } else {
    return "a decimal or 0x number from 0 to " + std::to_string(std::numeric_limits<T>::max());
  }
}

template <class T>
std::optional<T> parse(std::string_view text) {
  if constexpr (std::same_as<T, bool>) {
    if (text == "true" || text == "1") return true;
    if (text == "false" || text == "0") return false;
    return std::nullopt;
  } else if constexpr (std::same_as<T, EthAddr> || std::same_as<T, IpGenAddr>) {
    return T::parse(text);
  } else {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    const char* const first = text.data() + (isHex ? 2 : 0);
    const char* const last = text.data() + text.size();
    T value{};
    const auto [end, error] = std::from_chars(first, last, value, isHex ? 16 : 10);
    return error == std::errc() && end == last ? std::optional(value) : std::nullopt;
  }
}

const LmColumn& columnOf(const LmClass& rowClass, std::string_view name) {
  const LmColumn* const column = rowClass.column(name);
  if (column != nullptr) return *column;
  std::string known;
  for (const LmColumn& each : rowClass.columns()) known += (known.empty() ? "" : ", ") + each.name;
  throw LmTextError("row type \"" + rowClass.name() + "\": expected one of the columns " + known +
                    ", got \"" + std::string(name) + "\"");
}

void write(BaseRow& row, const LmClass& rowClass, const LmColumn& column, const ColumnValue& value) {
  std::visit([&](const auto& known) { row.setColumn(column.offset, known, rowClass.fixedLength()); }, value);
}

ColumnValue read(const BaseRow& row, const LmColumn& column) {
  return visitType(column.type, [&]<class T>() -> ColumnValue {
    T value;
    row.getColumn(column.offset, value);
    return value;
  });
}

}  // namespace

const LmClass& lmClassOf(const BaseRow& row) {
  const LmClass* const rowClass = LumenDB::lmClass(row.rowType());
  if (rowClass == nullptr)
    throw LmMetadataError("no row type has the number " + std::to_string(row.rowType()));
  row.requireLayout(rowClass->fixedLength(), rowClass->variableColumns());
  return *rowClass;
}

BaseRow rowFromText(const LmClass& rowClass, std::span<const ColumnText> columns) {
  std::vector<std::pair<const LmColumn*, ColumnValue>> values;
  std::size_t bufferLength = rowClass.fixedLength();
  for (const auto& [name, text] : columns) {
    const LmColumn& column = columnOf(rowClass, name);
    if (std::any_of(values.begin(), values.end(), [&](const auto& seen) { return seen.first == &column; })) {
      throw LmTextError("column \"" + column.name + "\": expected one value, got a second: \"" +
                        std::string(text) + "\"");
    }
    values.emplace_back(&column, parseColumn(column, text));
    if (const auto* address = std::get_if<IpGenAddr>(&values.back().second)) bufferLength += address->size();
  }
  Cairn::require(bufferLength <= kMaxRowLength, "row length <= 65535", "rowFromText");
  BaseRow row(rowClass.fixedLength(), static_cast<len_t>(bufferLength));
  row.rowTypeIs(rowClass.oid());
  for (const auto& [column, value] : values) write(row, rowClass, *column, value);
  return row;
}

ColumnValue parseColumn(const LmColumn& column, std::string_view text) {
  return visitType(column.type, [&]<class T>() -> ColumnValue {
    const std::optional<T> value = parse<T>(text);
    if (value) return *value;
    throw LmTextError("column \"" + column.name + "\": expected " + expectedText<T>() + " (" +
                      std::string(Encoding<T>::kTypeWord) + "), got \"" + std::string(text) + "\"");
  });
}

std::string rowText(const BaseRow& row) {
  if (row.isNull()) return "len: 0, NULL";
  std::ostringstream out;
  std::string_view separator;
  for (const LmColumn& column : lmClassOf(row).columns()) {
    out << separator << column.name << " = ";
    std::visit([&](const auto& value) { printValue(out, value); }, read(row, column));
    separator = ", ";
  }
  return out.str();
}

}  // namespace Lumen
