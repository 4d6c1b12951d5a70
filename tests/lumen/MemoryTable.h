// A small table of (key, value) rows in memory with a record of changes, to stand behind tables in tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "lumen/LumenDB.h"

namespace LumenTest {

inline constexpr const char* kRowTypeName = "LumenTest::Pair";

inline bool pairMetadata(std::string_view rowTypeName, Lumen::LmClassMetadata& metadata) {
  metadata = {R"({"key":"uint64_t", "value":"uint64_t"})", 0, 1};
  return rowTypeName == kRowTypeName || rowTypeName == "LumenTest::Other";
}

inline Lumen::BaseRow pairRow(std::uint64_t key, std::uint64_t value = 0) {
  Lumen::BaseRow row(20);
  row.setColumn<std::uint64_t>(4, key, 20);
  row.setColumn<std::uint64_t>(12, value, 20);
  return row;
}

inline std::uint64_t column(const Lumen::BaseRow& row, Lumen::len_t offset) {
  std::uint64_t value = 0;
  row.getColumn(offset, value);
  return value;
}
inline std::uint64_t keyOf(const Lumen::BaseRow& row) { return column(row, 4); }
inline std::uint64_t valueOf(const Lumen::BaseRow& row) { return column(row, 12); }

using Rows = std::map<std::uint64_t, std::uint64_t>;

/// Walks a map; `make` gives what an element stands for. A walk over rows goes on when its row was erased,
/// one over changes must not.
/// No `override` here: the two bases do not have the same operations.
template <class Base, class Value>
struct MapIterator : Base {
  static constexpr bool strict = std::is_same_v<Base, Lumen::LmChangeIteratorImpl>;
  using Make = std::function<Value(const Rows::value_type&)>;
  MapIterator(const Rows& of, Rows::const_iterator where, Make making)
      : map(of), at(keyAt(where)), make(std::move(making)) {}
  std::optional<std::uint64_t> keyAt(Rows::const_iterator where) const {
    return where == map.end() ? std::nullopt : std::optional(where->first);
  }
  bool operator==(const Base& other) const { return at == dynamic_cast<const MapIterator&>(other).at; }
  bool operator!=(const Base& other) const { return !(*this == other); }
  explicit operator bool() const { return at.has_value(); }
  Value operator*() const { return make(*map.find(at.value())); }
  Value operator*() { return make(*map.find(at.value())); }
  MapIterator& operator++() {
    if (strict) static_cast<void>(map.at(at.value()));
    at = keyAt(map.upper_bound(at.value()));
    return *this;
  }
  std::unique_ptr<Base> clone() const { return std::make_unique<MapIterator>(*this); }
  const Rows& map;
  std::optional<std::uint64_t> at;
  Make make;
};

class MemoryTable : public Lumen::DefaultLmTableImplementation {
 public:
  explicit MemoryTable(const std::string& rowTypeName = kRowTypeName,
                       const Lumen::LmTableOps* tableOps = nullptr)
      : DefaultLmTableImplementation("MemoryTable", rowTypeName, 1, true, false, false, true, tableOps, {}) {}
  ~MemoryTable() override { *gone = true; }

  using DefaultLmTableImplementation::preWrite;
  using DefaultLmTableImplementation::preWriteActive;

  std::unique_ptr<Lumen::LmRowIteratorImpl> begin(unsigned) override {
    return std::make_unique<MapIterator<Lumen::LmRowIteratorImpl, Lumen::BaseRow>>(
        rows, rows.begin(), [](const auto& row) { return pairRow(row.first, row.second); });
  }
  void rowIs(const Lumen::BaseRow& row, bool) override {
    rows[keyOf(row)] = valueOf(row);
    record(keyOf(row), false);
  }
  void rowDel(const Lumen::BaseRow& keyRow) override {
    if (rows.erase(keyOf(keyRow)) != 0) record(keyOf(keyRow), true);
  }
  std::uint64_t oldestChangeIdx() const override { return oldest_; }
  std::uint64_t latestChangeIdx() const override { return latest_; }
  std::unique_ptr<Lumen::LmChangeIteratorImpl> nextChange(std::uint64_t idx) override {
    return changeAt(changes.upper_bound(idx));
  }
  std::unique_ptr<Lumen::LmChangeIteratorImpl> endChange() override { return changeAt(changes.end()); }
  void cleanChangeMap(std::uint64_t idx) {
    changes.erase(changes.begin(), changes.upper_bound(idx));
    oldest_ = idx;
  }

  Rows rows, changes;  // a change by its index: the key
  std::shared_ptr<bool> gone = std::make_shared<bool>(false);

 private:
  std::unique_ptr<Lumen::LmChangeIteratorImpl> changeAt(Rows::const_iterator at) {
    using Lumen::BasicLmTableChange;
    return std::make_unique<MapIterator<Lumen::LmChangeIteratorImpl, std::shared_ptr<BasicLmTableChange>>>(
        changes, at, [this](const auto& change) {
          const auto kind = change.first % 2 == 1 ? Lumen::ChangeKind::deleted : Lumen::ChangeKind::written;
          const auto row = rows.find(change.second);
          return std::make_shared<BasicLmTableChange>(BasicLmTableChange{
              change.first, kind, pairRow(change.second, row == rows.end() ? 0 : row->second)});
        });
  }
  void record(std::uint64_t key, bool deleted) {
    std::erase_if(changes, [key](const auto& change) { return change.second == key; });
    const std::uint64_t previous = latest_;
    latest_ = ((latest_ + 2) & ~std::uint64_t{1}) | (deleted ? 1 : 0);
    changes[latest_] = key;
    cleanChanges(*this, notifyObservers(previous, latest_, deleted, pairRow(key)));
  }

  std::uint64_t oldest_ = 1;
  std::uint64_t latest_ = 1;
};

/// Keeps a copy of the table, and lets a test do something within each call.
class Follower : public Lumen::LmTableObserver {
 public:
  void onReset() override {
    rows.clear();
    if (whenReset) whenReset();
  }
  void onChange(const Lumen::BasicLmTableChange& change) override {
    if (whenChanged) whenChanged(change);
    indices.push_back(change.index);
    rows.erase(keyOf(change.row));
    if (change.kind == Lumen::ChangeKind::written) rows[keyOf(change.row)] = valueOf(change.row);
  }
  void onChangesWaiting() override {
    if (prompt) consume();
  }
  void onException(const std::exception& exception) override {
    exceptions.emplace_back(exception.what());
    if (whenFailed) whenFailed();
  }

  bool prompt = true;
  Rows rows;
  std::vector<std::uint64_t> indices;
  std::vector<std::string> exceptions;
  std::function<void()> whenReset, whenFailed;
  std::function<void(const Lumen::BasicLmTableChange&)> whenChanged;
};

/// A database with two tables, "Pairs" and "Others", each served by a memory table.
struct Pairs {
  Pairs() {
    Lumen::LumenDB::metadataSourceIs(&pairMetadata);
    for (const auto& [name, served] : {std::pair("Pairs", memory), std::pair("Others", otherMemory)}) {
      db.registerTable(name, kRowTypeName, Lumen::TableType::external, 256, 256, "", {});
      db.tableImplementationIs(name, served);
    }
    table = db.table("Pairs");
    others = db.table("Others");
  }
  ~Pairs() { Lumen::LumenDB::metadataSourceDel(&pairMetadata); }

  std::shared_ptr<Follower> follower(bool prompt = true) const {
    auto made = std::make_shared<Follower>();
    made->prompt = prompt;
    table->observerIs(made);
    return made;
  }
  /// Puts a fresh implementation with one row in place.
  void replace() {
    memory = std::make_shared<MemoryTable>();
    db.tableImplementationIs("Pairs", memory);
    table->rowIs(pairRow(7, 70));
  }

  Lumen::LumenDB db;
  std::shared_ptr<MemoryTable> memory = std::make_shared<MemoryTable>();
  std::shared_ptr<MemoryTable> otherMemory = std::make_shared<MemoryTable>();
  std::shared_ptr<Lumen::LmTable> table, others;
};

}  // namespace LumenTest
