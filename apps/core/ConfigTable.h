// One row table that the agent writes, known by the descriptor of its rows alone.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "apps/counters/Layout.h"
#include "lumen/LumenDB.h"
#include "lumen/RowOps.h"

namespace Agent {

class ConfigTable {
 public:
  /// `table` has an implementation whose row class has bookkeeping columns genId, entryHandle and valid and
  /// registered row operations; Cairn::Exception when it has not.
  /// `index` is its place among the core's tables; `capacity` the number of rows it holds.
  ConfigTable(std::string shortName, std::shared_ptr<Lumen::LmTable> table, std::size_t index,
              std::size_t capacity);

  const std::string& name() const noexcept { return name_; }
  std::size_t index() const noexcept { return index_; }
  std::size_t capacity() const noexcept { return capacity_; }
  const Lumen::LmClass& rowClass() const noexcept { return *class_; }

  std::uint32_t keyHash(const Lumen::BaseRow& row) const { return operations_->keyHash(row); }
  bool keyEquals(const Lumen::BaseRow& a, const Lumen::BaseRow& b) const {
    return operations_->keyEquals(a, b);
  }

  /// The stored row with the key of `row`; a null row if there is none.
  Lumen::BaseRow stored(const Lumen::BaseRow& row) const;
  std::uint64_t handle(const Lumen::BaseRow& row) const { return number(row, handleOffset_); }
  std::uint64_t genId(const Lumen::BaseRow& row) const { return number(row, genIdOffset_); }
  void eachRow(const std::function<void(const Lumen::BaseRow&)>& visit) const;
  /// Writes the row with these bookkeeping columns and `valid` set. Throws what the table throws.
  void write(Lumen::BaseRow& row, std::uint64_t genId, std::uint64_t handle);
  void remove(const Lumen::BaseRow& row) { table_->rowDel(row); }
  /// Makes a row that an earlier process wrote one of this table. Throws Cairn::AssertionException for bytes
  /// that cannot be one.
  void adopt(Lumen::BaseRow& row) const;

  /// Counts one more row as used; false if there is no room for it, unless `forced`.
  bool reserve(bool forced = false);
  void unreserve() noexcept { --reserved_; }
  bool isFull() const { return table_->size() >= capacity_; }
  /// Rows in the table, and those that count as used beside them.
  std::size_t used() const { return table_->size() + reserved_; }
  /// Where the core counts what becomes of the table's updates. Set before anything else is called.
  using Words = Counters::AgentTableWords<Counters::Counter>;
  Words& counters() const noexcept { return *counters_; }
  void countersAre(Words& counters) noexcept { counters_ = &counters; }
  /// "table is full: used N of M"
  std::string fullText() const;

  /// Why no update of this table is attempted any more; empty while they are.
  const std::string& outOfService() const noexcept { return outOfService_; }
  void outOfServiceIs(std::string reason) { outOfService_ = std::move(reason); }

 private:
  static std::uint64_t number(const Lumen::BaseRow& row, Lumen::len_t offset) {
    std::uint64_t value = 0;
    row.getColumn(offset, value);
    return value;
  }
  const Lumen::LmColumn& bookkeepingColumn(std::string_view columnName, Lumen::ColumnType type) const;

  std::string name_;
  std::shared_ptr<Lumen::LmTable> table_;
  const Lumen::LmClass* class_;  // the row database's, for the life of the process
  std::shared_ptr<Lumen::RowOpsBase> operations_;
  Lumen::len_t genIdOffset_;
  Lumen::len_t handleOffset_;
  Lumen::len_t validOffset_;
  std::size_t index_;
  std::size_t capacity_;
  std::size_t reserved_ = 0;   // rows that count as used beside those in the table
  Words* counters_ = nullptr;  // not owned
  std::string outOfService_;
};

}  // namespace Agent
