#include "apps/p4/Pipeline.h"

#include <algorithm>

#include "P4RuntimeTolmar/Schema.h"
#include "cairn/Exception.h"
#include "lumen/LumenDB.h"

namespace Wire {

namespace {

constexpr std::uint32_t kFirstTableId = 0x02000001;
constexpr std::uint32_t kFirstActionId = 0x01000001;
constexpr std::string_view kMaskSuffix = "Mask";
constexpr std::string_view kPriority = "priority";
constexpr std::size_t kMaxFields = 64;

/// Builds one table from its row class.
class TableBuilder {
 public:
  TableBuilder(const TableSource& source, std::size_t index) : source_(source) {
    Lumen::LumenDB::metadataIs(source.rowTypeName);
    table_.rowClass = Lumen::LumenDB::lmClass(source.rowTypeName);
    table_.name = source.name;
    table_.index = index;
    table_.id = kFirstTableId + static_cast<std::uint32_t>(index);
    table_.actionId = kFirstActionId + static_cast<std::uint32_t>(index);
    table_.capacity = source.capacity;
  }

  Table build() {
    layOutBlankRow();
    for (const Lumen::LmColumn& column : table_.rowClass->columns()) {
      if (column.isKey) {
        addKeyColumn(column);
      } else if (!table_.matchFields.empty()) {
        add(table_.parameters, column);
      }
    }
    if (table_.matchFields.empty()) refuse("expected at least one key column, got none");
    if (isTernary() && !table_.priority) refuse("expected a key column priority beside masks, got none");
    if (table_.matchFields.size() > kMaxFields || table_.parameters.size() > kMaxFields) {
      refuse("expected at most 64 match fields and 64 parameters, got more");
    }
    return std::move(table_);
  }

 private:
  [[noreturn]] void refuse(const std::string& problem) const {
    throw Cairn::Exception("table " + table_.name + ": " + problem);
  }

  const Lumen::LmColumn* keyColumn(std::string_view name) const {
    const Lumen::LmColumn* const column = table_.rowClass->column(name);
    return column != nullptr && column->isKey ? column : nullptr;
  }
  const Lumen::LmColumn* maskOf(const Lumen::LmColumn& column) const {
    return keyColumn(column.name + std::string(kMaskSuffix));
  }
  bool isTernary() const {
    const auto& columns = table_.rowClass->columns();
    return std::any_of(columns.begin(), columns.end(), [this](const Lumen::LmColumn& column) {
      return column.isKey && maskOf(column) != nullptr;
    });
  }

  /// Header and slots of a row with all its addresses, each in a place of its own.
  void layOutBlankRow() {
    const Lumen::LmClass& rowClass = *table_.rowClass;
    std::size_t length = rowClass.fixedLength() + rowClass.variableColumns().size() * addressBytes();
    if (length > kMaxRowBytes) {
      refuse("expected rows of at most " + std::to_string(kMaxRowBytes) + " bytes, got " +
             std::to_string(length));
    }
    table_.blankRow.resize(length);
    Lumen::storeBytes(&table_.blankRow[Lumen::kRowLengthOffset], static_cast<Lumen::len_t>(length));
    Lumen::storeBytes(&table_.blankRow[Lumen::kRowTypeOffset], rowClass.oid());
    auto at = rowClass.fixedLength();
    for (const Lumen::len_t slot : rowClass.variableColumns()) {
      Lumen::storeBytes(&table_.blankRow[slot], Lumen::VarSlot{at, addressBytes()});
      at = static_cast<Lumen::len_t>(at + addressBytes());
    }
  }

  std::uint8_t addressBytes() const {
    if (source_.family == AddressFamily::ipv4) return 4;
    return source_.family == AddressFamily::ipv6 ? 16 : 0;
  }

  void addKeyColumn(const Lumen::LmColumn& column) {
    if (column.name.ends_with(kMaskSuffix)) {
      const std::string name = column.name.substr(0, column.name.size() - kMaskSuffix.size());
      if (keyColumn(name) != nullptr) return;  // part of that field
    }
    if (column.name == kPriority && isTernary()) {
      if (column.type != Lumen::ColumnType::uint32) refuse("expected a priority of type uint32_t");
      table_.priority = placeOf(column);
      return;
    }
    Field& field = add(table_.matchFields, column);
    const Lumen::LmColumn* const mask = maskOf(column);
    if (mask == nullptr) return;
    if (mask->type != column.type) refuse("expected a mask of the type of " + column.name);
    field.mask = placeOf(*mask);
  }

  Field& add(std::vector<Field>& fields, const Lumen::LmColumn& column) const {
    const Place place = placeOf(column);
    const int bits = column.type == Lumen::ColumnType::boolean ? 1 : place.bytes * 8;
    const auto id = static_cast<std::uint32_t>(fields.size() + 1);
    return fields.emplace_back(
        Field{column.name, id, static_cast<std::uint16_t>(bits), formatOf(column), place, std::nullopt});
  }

  Format formatOf(const Lumen::LmColumn& column) const {
    if (column.type == Lumen::ColumnType::ethAddr) return Format::macAddress;
    if (column.type != Lumen::ColumnType::ipGenAddr) return Format::number;
    return source_.family == AddressFamily::ipv4 ? Format::ipv4Address : Format::ipv6Address;
  }

  Place placeOf(const Lumen::LmColumn& column) const {
    switch (column.type) {
      case Lumen::ColumnType::boolean:
      case Lumen::ColumnType::uint8:
        return {column.offset, 0, 1, true};
      case Lumen::ColumnType::uint16:
        return {column.offset, 0, 2, true};
      case Lumen::ColumnType::uint32:
        return {column.offset, 0, 4, true};
      case Lumen::ColumnType::uint64:
        return {column.offset, 0, 8, true};
      case Lumen::ColumnType::ethAddr:
        return {column.offset, 0, 6, false};
      case Lumen::ColumnType::ipGenAddr:
        break;
    }
    if (addressBytes() == 0) refuse("expected an address family for column " + column.name + ", got none");
    const auto slot = Lumen::loadBytes<Lumen::VarSlot>(&table_.blankRow[column.offset]);
    return {slot.offset, column.offset, addressBytes(), false};
  }

  const TableSource& source_;
  Table table_;
};

}  // namespace

std::vector<TableSource> outputTables() {
  std::vector<TableSource> sources;
  TolmarHwLib::forEachOutputTable([&]<std::size_t, class Kind>(const TolmarHwLib::OutputTable<Kind>& table) {
    using Entry = typename Kind::ConfigEntry;
    sources.push_back({table.name, table.capacity, table.family, TolmarHwLib::RowSchema<Entry>::rowTypeName});
  });
  return sources;
}

Pipeline::Pipeline(std::span<const TableSource> sources) {
  for (const TableSource& source : sources) tables_.push_back(TableBuilder(source, tables_.size()).build());
}

const Table* Pipeline::table(std::uint32_t id) const noexcept {
  const std::size_t index = id - kFirstTableId;
  return index < tables_.size() ? &tables_[index] : nullptr;
}

}  // namespace Wire
