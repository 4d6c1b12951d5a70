// A table registered with the row database: what its users hold.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "lumen/DefaultLmTableImplementation.h"
#include "lumen/LmTableObserver.h"

namespace Lumen {

/// How a table is stored, by the number that registrations carry: by its implementation.
enum class TableType : std::uint16_t { external = 2 };

/// What a table was registered with.
struct TableRegistration {
  std::string tableName;
  std::string rowTypeName;
  TableType type = TableType::external;
  std::uint16_t rowsHint = 0;     ///< rows expected at first; sizes nothing of an external table
  std::uint16_t changesHint = 0;  ///< changes expected between two visits of an observer; likewise
  std::string folder;  ///< where the database would keep a table itself; not used by an external one
  IndexMap indexMap;   ///< further key indices by name

  friend bool operator==(const TableRegistration&, const TableRegistration&) = default;
};

/// The handle stays valid when the implementation is replaced or dropped; operations on a table that has none
/// throw LmTableError. Whatever an operation is called on stays alive until it returns.
/// Thread safety: none; used on the thread that runs the framework's callbacks.
class LmTable final : public LmTableInterface, public std::enable_shared_from_this<LmTable> {
 public:
  explicit LmTable(TableRegistration registration) : registration_(std::move(registration)) {}
  ~LmTable() override;
  LmTable(const LmTable&) = delete;
  LmTable& operator=(const LmTable&) = delete;

  const TableRegistration& registration() const noexcept { return registration_; }
  const std::string& name() const noexcept { return registration_.tableName; }
  /// The row type's descriptor: the JSON object of its column names and types, in order.
  std::string descriptor() const;
  /// What serves the table, or null.
  const std::shared_ptr<LmTableImplementation>& implementation() const noexcept { return implementation_; }

  // Rows, by key index 0. Errors as LmTableImplementation and the implementation say.
  std::size_t size() const { return served()->size(); }
  BaseRow row(const BaseRow& keyRow) const { return served()->row(keyRow, 0); }
  LmRowIterator find(const BaseRow& keyRow) const;
  LmRowIterator begin() const;
  LmRowIterator end() const;
  void rowIs(const BaseRow& row) { served()->rowIs(row, false); }
  void rowDel(const BaseRow& keyRow) { served()->rowDel(keyRow); }
  void rowDel(const LmRowIterator& at) { served()->rowDel(at.impl()); }
  void rowDelAll() { served()->rowDelAll(); }

  // Changes. Those up to oldestChangeIdx() are forgotten: who has seen less walks the rows again.
  std::uint64_t oldestChangeIdx() const { return served()->oldestChangeIdx(); }
  std::uint64_t latestChangeIdx() const { return served()->latestChangeIdx(); }
  LmChangeIterator nextChange(std::uint64_t idx) const;
  LmChangeIterator endChange() const;

  /// Attaches an observer; it is shared until dropped. Throws LmTableError for one that follows a table
  /// already. Its first call comes at once, or after the calls now under way.
  void observerIs(const std::shared_ptr<LmTableObserver>& observer);
  /// Drops an observer; it is not called any more. Nothing happens when it does not follow this table.
  void observerDel(const LmTableObserver& observer);

  bool observed() const noexcept override { return !observers_.empty(); }
  std::optional<std::uint64_t> notifyObservers(std::uint64_t previousIdx, std::uint64_t latestIdx,
                                               bool deleted, const BaseRow& row) override;
  void implementationIs(const std::shared_ptr<LmTableImplementation>& implementation) override;

 private:
  /// The implementation, kept alive by the caller's copy.
  std::shared_ptr<LmTableImplementation> served() const;
  void tellObservers();

  TableRegistration registration_;
  std::shared_ptr<LmTableImplementation> implementation_;
  std::vector<std::shared_ptr<LmTableObserver>> observers_;  // in order of attachment
  bool telling_ = false;
};

}  // namespace Lumen
