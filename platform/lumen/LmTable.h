// A table registered with the row database, as its users hold it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "lumen/DefaultLmTableImplementation.h"

namespace Lumen {

/// A value that owns an iterator and keeps the table implementation that it belongs to alive.
template <class Impl>
class LmIterator {
 public:
  LmIterator(std::shared_ptr<LmTableImplementation> table, std::unique_ptr<Impl> impl)
      : table_(std::move(table)), impl_(std::move(impl)) {}
  LmIterator(const LmIterator& other) : table_(other.table_), impl_(other.impl_->clone()) {}
  LmIterator(LmIterator&&) noexcept = default;
  LmIterator& operator=(const LmIterator& other) { return *this = LmIterator(other); }
  LmIterator& operator=(LmIterator&& other) noexcept {
    impl_ = std::move(other.impl_);  // first: it may refer to the table
    table_ = std::move(other.table_);
    return *this;
  }
  ~LmIterator() = default;

  bool operator==(const LmIterator& other) const { return *impl_ == *other.impl_; }
  explicit operator bool() const requires requires(const Impl& impl) { static_cast<bool>(impl); }
  { return static_cast<bool>(*impl_); }
  auto operator*() const { return **impl_; }
  LmIterator& operator++() {
    ++*impl_;
    return *this;
  }
  const Impl& impl() const noexcept { return *impl_; }

 private:
  std::shared_ptr<LmTableImplementation> table_;
  std::unique_ptr<Impl> impl_;
};

using LmRowIterator = LmIterator<LmRowIteratorImpl>;
using LmChangeIterator = LmIterator<LmChangeIteratorImpl>;

/// How a table is stored; the number is part of registrations.
enum class TableType : std::uint16_t { external = 2 /* by its implementation */ };

/// What a table was registered with.
struct TableRegistration {
  std::string tableName;
  std::string rowTypeName;
  TableType type = TableType::external;
  std::uint16_t rowsHint = 0;     ///< rows expected; not used for external tables, like the next two
  std::uint16_t changesHint = 0;  ///< changes expected between two reads of changes
  std::string folder;             ///< where the database keeps the table
  IndexMap indexMap;              ///< further key indices by name

  friend bool operator==(const TableRegistration&, const TableRegistration&) = default;
};

/// The handle stays valid when the implementation is replaced or dropped; operations on a table that has none
/// throw LmTableError. The implementation stays alive until an operation on it returns.
/// Thread safety: none; used on the thread that runs the framework's callbacks.
class LmTable final : public LmTableInterface {
 public:
  explicit LmTable(TableRegistration registration) : registration_(std::move(registration)) {}
  ~LmTable() override;
  LmTable(const LmTable&) = delete;
  LmTable& operator=(const LmTable&) = delete;

  const TableRegistration& registration() const noexcept { return registration_; }
  const std::string& name() const noexcept { return registration_.tableName; }
  /// The row type's descriptor: the JSON object of its column names and types, in order.
  std::string descriptor() const;
  /// The current implementation, or null.
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

  // Changes. Those up to oldestChangeIdx() are forgotten: a caller that has seen less reads the rows again.
  std::uint64_t oldestChangeIdx() const { return served()->oldestChangeIdx(); }
  std::uint64_t latestChangeIdx() const { return served()->latestChangeIdx(); }
  LmChangeIterator nextChange(std::uint64_t idx) const;
  LmChangeIterator endChange() const;

  void implementationIs(const std::shared_ptr<LmTableImplementation>& implementation) override {
    implementation_ = implementation;
  }

 private:
  /// The implementation; throws LmTableError when there is none. The caller's copy keeps it alive.
  std::shared_ptr<LmTableImplementation> served() const;

  TableRegistration registration_;
  std::shared_ptr<LmTableImplementation> implementation_;
};

}  // namespace Lumen
