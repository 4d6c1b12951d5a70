// A small table of (key, value) rows in memory with a record of changes, to stand behind tables in tests.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "lumen/LumenDB.h"

namespace LumenTest {

inline constexpr const char* kRowTypeName = "LumenTest::Pair";

inline bool pairMetadata(std::string_view rowTypeName, Lumen::LmClassMetadata& metadata) {
  if (rowTypeName != kRowTypeName && rowTypeName != "LumenTest::Other") return false;
  metadata = {R"({"key":"uint64_t", "value":"uint64_t"})", 0, 1};
  return true;
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

class MemoryTable : public Lumen::DefaultLmTableImplementation {
 public:
  struct RowIterator : Lumen::LmRowIteratorImpl {
    RowIterator(const Rows& all, Rows::const_iterator where) : rows(all), at(where) {}
    bool operator==(const LmRowIteratorImpl& other) const override {
      return at == dynamic_cast<const RowIterator&>(other).at;
    }
    bool operator!=(const LmRowIteratorImpl& other) const override { return !(*this == other); }
    explicit operator bool() const override { return at != rows.end(); }
    Lumen::BaseRow operator*() const override { return pairRow(at->first, at->second); }
    RowIterator& operator++() override {
      ++at;
      return *this;
    }
    std::unique_ptr<LmRowIteratorImpl> clone() const override { return std::make_unique<RowIterator>(*this); }
    const Rows& rows;
    Rows::const_iterator at;
  };

  struct ChangeIterator : Lumen::LmChangeIteratorImpl {
    ChangeIterator(const MemoryTable& of, Rows::const_iterator where) : table(of), at(where) {}
    bool operator==(const LmChangeIteratorImpl& other) const override {
      return at == dynamic_cast<const ChangeIterator&>(other).at;
    }
    bool operator!=(const LmChangeIteratorImpl& other) const override { return !(*this == other); }
    std::shared_ptr<Lumen::BasicLmTableChange> operator*() override {
      const bool deleted = at->first % 2 == 1;
      const auto kind = deleted ? Lumen::ChangeKind::deleted : Lumen::ChangeKind::written;
      const std::uint64_t value = deleted ? 0 : table.rows_.at(at->second);
      return std::make_shared<Lumen::BasicLmTableChange>(
          Lumen::BasicLmTableChange{at->first, kind, pairRow(at->second, value)});
    }
    ChangeIterator& operator++() override {
      ++at;
      return *this;
    }
    std::unique_ptr<LmChangeIteratorImpl> clone() const override {
      return std::make_unique<ChangeIterator>(*this);
    }
    const MemoryTable& table;
    Rows::const_iterator at;
  };

  explicit MemoryTable(const std::string& rowTypeName = kRowTypeName, std::uint64_t unobservedSpan = 1000)
      : DefaultLmTableImplementation("MemoryTable", rowTypeName, 1, true, false, false, true, nullptr, {}) {
    unobservedSpanIs(unobservedSpan);
  }
  ~MemoryTable() override { *gone = true; }

  std::size_t size() const override { return rows_.size(); }
  Lumen::BaseRow row(const Lumen::BaseRow& keyRow, unsigned) override {
    const auto found = rows_.find(keyOf(keyRow));
    return found == rows_.end() ? Lumen::BaseRow() : pairRow(found->first, found->second);
  }
  std::unique_ptr<Lumen::LmRowIteratorImpl> begin(unsigned) override {
    return std::make_unique<RowIterator>(rows_, rows_.begin());
  }
  std::unique_ptr<Lumen::LmRowIteratorImpl> end(unsigned) override {
    return std::make_unique<RowIterator>(rows_, rows_.end());
  }
  std::unique_ptr<Lumen::LmRowIteratorImpl> find(const Lumen::BaseRow& keyRow, unsigned) override {
    return std::make_unique<RowIterator>(rows_, rows_.find(keyOf(keyRow)));
  }
  using DefaultLmTableImplementation::rowDel;
  void rowIs(const Lumen::BaseRow& row, bool) override {
    rows_[keyOf(row)] = valueOf(row);
    record(keyOf(row), false);
  }
  void rowDel(const Lumen::BaseRow& keyRow) override {
    if (rows_.erase(keyOf(keyRow)) != 0) record(keyOf(keyRow), true);
  }
  std::uint64_t oldestChangeIdx() const override { return oldest_; }
  std::uint64_t latestChangeIdx() const override { return latest_; }
  std::unique_ptr<Lumen::LmChangeIteratorImpl> nextChange(std::uint64_t idx) override {
    return std::make_unique<ChangeIterator>(*this, changes_.upper_bound(idx));
  }
  std::unique_ptr<Lumen::LmChangeIteratorImpl> endChange() override {
    return std::make_unique<ChangeIterator>(*this, changes_.end());
  }
  void cleanChangeMap(std::uint64_t idx) {
    changes_.erase(changes_.begin(), changes_.upper_bound(idx));
    oldest_ = idx;
  }

  const Rows& rows() const { return rows_; }
  const Rows& changes() const { return changes_; }
  std::shared_ptr<bool> gone = std::make_shared<bool>(false);

 private:
  void record(std::uint64_t key, bool deleted) {
    std::erase_if(changes_, [key](const auto& change) { return change.second == key; });
    const std::uint64_t previous = latest_;
    latest_ = ((latest_ + 2) & ~std::uint64_t{1}) | (deleted ? 1 : 0);
    changes_[latest_] = key;
    cleanChanges(*this, notifyObservers(previous, latest_, deleted, pairRow(key)));
  }

  Rows rows_;
  Rows changes_;
  std::uint64_t oldest_ = 1;
  std::uint64_t latest_ = 1;
};

/// Keeps a copy of the table, and lets a test do something within each call.
class Follower : public Lumen::LmTableObserver {
 public:
  void onReset() override {
    ++resets;
    rows.clear();
    if (whenReset) whenReset();
  }
  void onChange(const Lumen::BasicLmTableChange& change) override {
    if (whenChanged) whenChanged(change);
    indices.push_back(change.index);
    if (change.kind == Lumen::ChangeKind::written) {
      rows[keyOf(change.row)] = valueOf(change.row);
    } else {
      rows.erase(keyOf(change.row));
    }
  }
  void onChangesWaiting() override {
    if (prompt) consume();
  }
  void onException(const std::exception& exception) override { exceptions.emplace_back(exception.what()); }

  bool prompt = true;
  int resets = 0;
  Rows rows;
  std::vector<std::uint64_t> indices;
  std::vector<std::string> exceptions;
  std::function<void()> whenReset;
  std::function<void(const Lumen::BasicLmTableChange&)> whenChanged;
};

/// A database with one table "Pairs", served by `memory`.
class Pairs {
 public:
  Pairs() {
    Lumen::LumenDB::metadataSourceIs(&pairMetadata);
    db.registerTable("Pairs", kRowTypeName, Lumen::TableType::external, 256, 256, "", {});
    db.tableImplementationIs("Pairs", memory);
    table = db.table("Pairs");
  }
  ~Pairs() { Lumen::LumenDB::metadataSourceDel(&pairMetadata); }
  Pairs(const Pairs&) = delete;
  Pairs& operator=(const Pairs&) = delete;

  std::shared_ptr<Follower> follower() const {
    auto made = std::make_shared<Follower>();
    table->observerIs(made);
    return made;
  }
  /// Puts a fresh, empty implementation in place.
  std::shared_ptr<MemoryTable> replaced() {
    memory = std::make_shared<MemoryTable>();
    db.tableImplementationIs("Pairs", memory);
    return memory;
  }

  Lumen::LumenDB db;
  std::shared_ptr<MemoryTable> memory = std::make_shared<MemoryTable>();
  std::shared_ptr<Lumen::LmTable> table;
};

}  // namespace LumenTest
