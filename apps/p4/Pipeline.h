// The agent's tables as a P4Runtime client sees them. Everything follows from the list of tables and from the
// columns of their row classes:
//
// - Table ids count from 0x02000001 and action ids from 0x01000001, in the order of the list.
// - Key columns are match fields, the columns behind them parameters of the table's only action; both are
//   numbered from 1 in column order. The columns before the key are the agent's own.
// - A key column that another one accompanies under its name and "Mask" is a ternary field; the two are one
//   field. In a table with such fields the key column "priority" is the priority of the entry.
// - Addresses have the width of the table's address family.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "P4RuntimeTolmar/OutputTables.h"
#include "lumen/LmClass.h"

namespace Wire {

using TolmarHwLib::AddressFamily;

struct TableSource {
  std::string_view name;  ///< such as "l3IifTH3"
  std::uint32_t capacity;
  AddressFamily family;          ///< of the addresses in the table's rows
  std::string_view rowTypeName;  ///< of its config rows
};
/// The output tables, in the order of their list.
std::vector<TableSource> outputTables();

/// Where a value stands in a row, in 1 to 16 bytes.
struct Place {
  Lumen::len_t at = 0;    ///< of the value in a row that was copied from Table::blankRow
  Lumen::len_t slot = 0;  ///< of the slot that refers to it in any row; 0 for a value in the fixed data
  std::uint8_t bytes = 0;
  bool littleEndian = false;
};

/// What the bytes of a value are, where the width does not say it.
enum class Format { number, macAddress, ipv4Address, ipv6Address };

/// A match field or an action parameter.
struct Field {
  std::string name;
  std::uint32_t id = 0;
  std::uint16_t bits = 0;
  Format format = Format::number;
  Place value;
  std::optional<Place> mask;  ///< set for a ternary match field
};

struct Table {
  std::string name;
  std::size_t index = 0;  ///< in the list of tables
  std::uint32_t id = 0;
  std::uint32_t actionId = 0;
  std::uint32_t capacity = 0;
  std::vector<Field> matchFields;            ///< that with id n at n - 1, at most 64
  std::vector<Field> parameters;             ///< the same
  std::optional<Place> priority;             ///< set if there are ternary fields
  const Lumen::LmClass* rowClass = nullptr;  // the row database's, for the life of the process
  std::vector<std::byte> blankRow;           ///< a row of zero columns whose address slots are set

  std::string actionName() const { return "set_" + name; }
};

/// Longest row of a table that can be offered; the widest of today's has 91 bytes.
inline constexpr std::size_t kMaxRowBytes = 256;

/// Immutable, so that any thread may use it.
class Pipeline {
 public:
  /// Loads the metadata of the row classes, so it is made on the thread of the row database. Throws
  /// Cairn::Exception for a table that cannot be offered to clients.
  explicit Pipeline(std::span<const TableSource> sources);

  const std::vector<Table>& tables() const noexcept { return tables_; }
  /// The table with that id, or null.
  const Table* table(std::uint32_t id) const noexcept;

 private:
  std::vector<Table> tables_;
};

}  // namespace Wire
