#include "apps/core/ConfigTable.h"

#include <algorithm>
#include <utility>

#include "cairn/Exception.h"

namespace Agent {

namespace {

const Lumen::LmClass& classOf(const Lumen::LmTable& table) {
  const std::string& rowTypeName = table.registration().rowTypeName;
  Lumen::LumenDB::metadataIs(rowTypeName);
  return *Lumen::LumenDB::lmClass(rowTypeName);
}

}  // namespace

ConfigTable::ConfigTable(std::string shortName, std::shared_ptr<Lumen::LmTable> table, std::size_t index,
                         std::size_t capacity)
    : name_(std::move(shortName)),
      table_(std::move(table)),
      class_(&classOf(*table_)),
      operations_(Lumen::rowOps(class_->name())),
      genIdOffset_(bookkeepingColumn("genId", Lumen::ColumnType::uint64).offset),
      handleOffset_(bookkeepingColumn("entryHandle", Lumen::ColumnType::uint64).offset),
      validOffset_(bookkeepingColumn("valid", Lumen::ColumnType::boolean).offset),
      index_(index),
      capacity_(capacity) {
  if (!operations_) throw Cairn::Exception("table " + name_ + ": no row operations for " + class_->name());
}

const Lumen::LmColumn& ConfigTable::bookkeepingColumn(std::string_view columnName,
                                                      Lumen::ColumnType type) const {
  const Lumen::LmColumn* const column = class_->column(columnName);
  if (column != nullptr && column->type == type) return *column;
  throw Cairn::Exception("table " + name_ + ": expected a column " + std::string(columnName) + " in " +
                         class_->descriptor());
}

// By way of row(), which makes no iterator: a row that the agent wrote has a handle, the empty row has none.
Lumen::BaseRow ConfigTable::stored(const Lumen::BaseRow& row) const {
  Lumen::BaseRow found = table_->row(row);
  return handle(found) == 0 ? Lumen::BaseRow() : found;
}

void ConfigTable::write(Lumen::BaseRow& row, std::uint64_t genId, std::uint64_t handle) {
  row.setColumn(genIdOffset_, genId, class_->fixedLength());
  row.setColumn(handleOffset_, handle, class_->fixedLength());
  row.setColumn(validOffset_, true, class_->fixedLength());
  table_->rowIs(row);
}

void ConfigTable::adopt(Lumen::BaseRow& row) const {
  row.requireLayout(class_->fixedLength(), class_->variableColumns());
  row.rowTypeIs(class_->oid());
}

// Nothing else makes more rows used than there were.
bool ConfigTable::reserve(bool forced) {
  if (!forced) {
    const std::size_t before = used();
    if (before >= capacity_) return false;
    counters_->highWater.raise(before + 1);
  }
  ++reserved_;
  return true;
}

std::string ConfigTable::fullText() const {
  // A batch whose insertions have taken the room of its removals counts it twice until it is decided.
  return "table is full: used " + std::to_string(std::min(used(), capacity_)) + " of " +
         std::to_string(capacity_);
}

void ConfigTable::eachRow(const std::function<void(const Lumen::BaseRow&)>& visit) const {
  for (Lumen::LmRowIterator at = table_->begin(); at; ++at) visit(*at);
}

}  // namespace Agent
