// The row database's description of a row class: its columns by name, type and offset.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "rows/RowFormat.h"

namespace Lumen {

enum class ColumnType : std::uint8_t { boolean, uint8, uint16, uint32, uint64, ethAddr, ipGenAddr };

struct LmColumn {
  std::string name;
  ColumnType type;
  len_t offset;  ///< in the fixed data, counted from the start of the row
  bool isKey;
};

/// What a metadata source supplies for a row class.
struct LmClassMetadata {
  /// The class's type descriptor, {"name":"type word", ...}: its columns in row order.
  std::string_view descriptor;
  /// The key columns are `keyCount` columns from number `keyFirst` on.
  std::size_t keyFirst = 0;
  std::size_t keyCount = 0;
};

class LmClass {
 public:
  /// Throws LmMetadataError if the descriptor cannot be parsed or names a column twice, or if the key exceeds
  /// the columns.
  LmClass(std::string_view name, std::uint16_t oid, const LmClassMetadata& metadata);

  const std::string& name() const noexcept { return name_; }
  /// The row type number that rows of the class carry in their headers.
  std::uint16_t oid() const noexcept { return oid_; }
  const std::string& descriptor() const noexcept { return descriptor_; }
  const std::vector<LmColumn>& columns() const noexcept { return columns_; }
  /// The column of that name, or null.
  const LmColumn* column(std::string_view columnName) const noexcept;
  /// Length of the fixed data, header included.
  len_t fixedLength() const noexcept { return fixedLength_; }
  /// Offsets of the variable-length columns.
  const std::vector<len_t>& variableColumns() const noexcept { return variableColumns_; }

 private:
  void addColumn(std::string_view columnName, std::string_view typeWord, bool isKey);

  std::string name_;
  std::uint16_t oid_;
  std::string descriptor_;
  std::vector<LmColumn> columns_;
  std::vector<len_t> variableColumns_;
  len_t fixedLength_ = lm_contentOffset;
};

}  // namespace Lumen
