// One row table that the agent writes, known by the descriptor of its rows alone.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

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

  /// The handle of the stored row with the key of `row`; nothing when there is none.
  std::optional<std::uint64_t> storedHandle(const Lumen::BaseRow& row) const;
  /// Writes the row with these bookkeeping columns and `valid` set. Throws what the table throws.
  void write(Lumen::BaseRow& row, std::uint64_t genId, std::uint64_t handle);
  void remove(const Lumen::BaseRow& row) { table_->rowDel(row); }
  /// The greatest genId or handle in the table; 0 when it is empty.
  std::uint64_t greatestNumber() const;
  void eachRow(const std::function<void(const Lumen::BaseRow&)>& visit) const;

  /// The entries whose removal the hardware has not answered yet: the handle under the key of `row`, or
  /// nothing. Only they are in flight without being in the table.
  std::optional<std::uint64_t> removal(const Lumen::BaseRow& row) const;
  void removalIs(const Lumen::BaseRow& row, std::uint64_t handle) { removals_.insert_or_assign(row, handle); }
  void removalDel(const Lumen::BaseRow& row) { removals_.erase(row); }

 private:
  struct KeyHash {
    const Lumen::RowOpsBase* operations;  // not owned
    std::size_t operator()(const Lumen::BaseRow& row) const { return operations->keyHash(row); }
  };
  struct KeyEquals {
    const Lumen::RowOpsBase* operations;  // not owned
    bool operator()(const Lumen::BaseRow& a, const Lumen::BaseRow& b) const {
      return operations->keyEquals(a, b);
    }
  };
  const Lumen::LmColumn& bookkeepingColumn(std::string_view columnName, Lumen::ColumnType type) const;
  bool isBookkeeping(const Lumen::LmColumn& column) const;

  std::string name_;
  std::shared_ptr<Lumen::LmTable> table_;
  const Lumen::LmClass* class_;  // the row database's, for the life of the process
  std::shared_ptr<Lumen::RowOpsBase> operations_;
  Lumen::len_t genIdOffset_;
  Lumen::len_t handleOffset_;
  Lumen::len_t validOffset_;
  std::unordered_map<Lumen::BaseRow, std::uint64_t, KeyHash, KeyEquals> removals_;
};

}  // namespace Agent
