// One row table that the agent writes, known by the descriptor of its rows alone.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "lumen/LumenDB.h"
#include "lumen/RowOps.h"
#include "lumen/RowText.h"

namespace Agent {

class ConfigTable {
 public:
  /// `table` has an implementation whose row class has bookkeeping columns genId, entryHandle and valid and
  /// registered row operations; Cairn::Exception when it has not.
  ConfigTable(std::string shortName, std::shared_ptr<Lumen::LmTable> table);

  const std::string& name() const noexcept { return name_; }

  /// A row of the table with these columns set and the others zero; every key column must be among them.
  /// Throws Cairn::Exception, saying what was expected and what came, for a column that is unknown, missing,
  /// given twice or the agent's own, and for a value that does not fit.
  Lumen::BaseRow row(std::span<const Lumen::ColumnText> fields) const;
  std::uint32_t keyHash(const Lumen::BaseRow& row) const { return operations_->keyHash(row); }
  bool keyEquals(const Lumen::BaseRow& a, const Lumen::BaseRow& b) const {
    return operations_->keyEquals(a, b);
  }

  /// The bookkeeping of a stored row.
  struct Stored {
    std::uint64_t handle;
    std::uint64_t genId;
  };
  /// That of the row with the key of `row`; nothing when there is none.
  std::optional<Stored> stored(const Lumen::BaseRow& row) const;
  void eachStored(const std::function<void(const Stored&)>& visit) const;
  void eachRow(const std::function<void(const Lumen::BaseRow&)>& visit) const;
  /// Writes the row with these bookkeeping columns and `valid` set. Throws what the table throws.
  void write(Lumen::BaseRow& row, std::uint64_t genId, std::uint64_t handle);
  void remove(const Lumen::BaseRow& row) { table_->rowDel(row); }

  /// Why no update of this table is attempted any more; empty while they are.
  const std::string& outOfService() const noexcept { return outOfService_; }
  void outOfServiceIs(std::string reason) { outOfService_ = std::move(reason); }

 private:
  Stored storedIn(const Lumen::BaseRow& row) const;
  const Lumen::LmColumn& bookkeepingColumn(std::string_view columnName, Lumen::ColumnType type) const;
  bool isBookkeeping(const Lumen::LmColumn& column) const;

  std::string name_;
  std::shared_ptr<Lumen::LmTable> table_;
  const Lumen::LmClass* class_;  // the row database's, for the life of the process
  std::shared_ptr<Lumen::RowOpsBase> operations_;
  Lumen::len_t genIdOffset_;
  Lumen::len_t handleOffset_;
  Lumen::len_t validOffset_;
  std::string outOfService_;
};

}  // namespace Agent
