// Builds and prints rows by the metadata of their class, for programs without row classes. A function that
// takes a row finds its class by the row type in its header and checks the row's layout once. Errors:
// LmMetadataError for a row type that is not loaded, LmNullRow for a null row, Cairn::AssertionException for
// a row whose layout is not that of its class, LmTextError for a name or value that does not fit the class.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>

#include "cairn/EthAddr.h"
#include "cairn/IpGenAddr.h"
#include "lumen/LmClass.h"
#include "rows/BaseRow.h"

namespace Lumen {

/// A value of any column type, in the order of ColumnType.
using ColumnValue =
    std::variant<bool, std::uint8_t, std::uint16_t, std::uint32_t, std::uint64_t, EthAddr, IpGenAddr>;

struct ColumnText {
  std::string_view name;
  std::string_view text;
};

/// The class of a row.
const LmClass& lmClassOf(const BaseRow& row);

/// A row of `rowClass` with these columns, the rest zero, in a buffer of exactly its size. A name may occur
/// once.
BaseRow rowFromText(const LmClass& rowClass, std::span<const ColumnText> columns);

/// The value that `text` names for `column`: true, false, 1 or 0; a decimal or 0x number in the type's range;
/// an Ethernet address; an IPv4 or IPv6 address, or nothing for an unset one.
ColumnValue parseColumn(const LmColumn& column, std::string_view text);

/// The text of the row as its class prints it: name = value, joined by ", "; "len: 0, NULL" for a null row.
std::string rowText(const BaseRow& row);

}  // namespace Lumen
