// A row table in memory with one row class of its own, so that the core is tested without plugin and
// hardware.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cairn/Exception.h"
#include "lumen/LumenDB.h"
#include "lumen/RowOps.h"

namespace Fake {

constexpr const char* kRowType = "Test::ThingRow";
constexpr Lumen::len_t kGenId = 4;
constexpr Lumen::len_t kHandle = 12;
constexpr Lumen::len_t kValid = 20;
constexpr Lumen::len_t kId = 21;

template <class T>
T column(const Lumen::BaseRow& row, Lumen::len_t offset) {
  T value{};
  row.getColumn(offset, value);
  return value;
}

class ThingOps final : public Lumen::RowOpsBase {
 public:
  std::uint32_t keyHash(const Lumen::BaseRow& row) const override {
    return column<std::uint32_t>(row, kId) % 4;
  }
  std::uint32_t rowHash(const Lumen::BaseRow&) const override { return 0; }
  bool keyEquals(const Lumen::BaseRow& a, const Lumen::BaseRow& b) const override {
    return column<std::uint32_t>(a, kId) == column<std::uint32_t>(b, kId);
  }
  bool rowEquals(const Lumen::BaseRow&, const Lumen::BaseRow&) const override { return false; }
  bool keyLess(const Lumen::BaseRow&, const Lumen::BaseRow&) const override { return false; }
  bool rowLess(const Lumen::BaseRow&, const Lumen::BaseRow&) const override { return false; }
  bool unique() const override { return true; }
  bool ordered() const override { return false; }
  int index() const override { return 0; }
  std::uint64_t getTotalInstructionsExecuted() const override { return 0; }
};

class ThingOpsGenerator final : public Lumen::RowOpsGenerator {
 public:
  ThingOpsGenerator() { Lumen::installRowOpsGenerator(kRowType, this); }
  ~ThingOpsGenerator() { Lumen::uninstallRowOpsGenerator(this); }
  void operator()(std::vector<std::shared_ptr<Lumen::RowOpsBase>>& operations) override {
    operations.push_back(std::make_shared<ThingOps>());
  }
  std::shared_ptr<Lumen::RowOpsBase> operator()(unsigned char) override {
    return std::make_shared<ThingOps>();
  }
};

/// Tells the row database of the row class while it exists.
class ThingMetadata {
 public:
  ThingMetadata() { Lumen::LumenDB::metadataSourceIs(tell); }
  ~ThingMetadata() { Lumen::LumenDB::metadataSourceDel(tell); }
  ThingMetadata(const ThingMetadata&) = delete;
  ThingMetadata& operator=(const ThingMetadata&) = delete;

 private:
  static bool tell(std::string_view name, Lumen::LmClassMetadata& metadata) {
    if (name != kRowType) return false;
    metadata = {
        R"({"genId":"uint64_t", "entryHandle":"uint64_t", "valid":"bool", "id":"uint32_t", "value":"uint16_t"})",
        3, 1};
    return true;
  }
};

/// Stands on one row or on none.
class FakeIterator final : public Lumen::LmRowIteratorImpl {
 public:
  explicit FakeIterator(Lumen::BaseRow row) : row_(std::move(row)) {}
  bool operator==(const LmRowIteratorImpl& other) const override {
    return static_cast<bool>(other) != row_.isNull();
  }
  bool operator!=(const LmRowIteratorImpl& other) const override { return !(*this == other); }
  explicit operator bool() const override { return !row_.isNull(); }
  Lumen::BaseRow operator*() const override { return row_; }
  LmRowIteratorImpl& operator++() override {
    row_ = Lumen::BaseRow();
    return *this;
  }
  std::unique_ptr<LmRowIteratorImpl> clone() const override { return std::make_unique<FakeIterator>(row_); }

 private:
  Lumen::BaseRow row_;
};

class FakeTable final : public Lumen::DefaultLmTableImplementation {
 public:
  struct Write {
    std::string what;  // "put" or "del"
    std::uint32_t id;
    std::uint64_t handle;
    std::uint64_t genId;
  };

  explicit FakeTable(std::size_t capacity)
      : DefaultLmTableImplementation("FakeTable", kRowType,
                                     static_cast<std::uint16_t>(Lumen::LumenDB::tableTypeId(kRowType, false)),
                                     true, false, false, true, nullptr, {}),
        capacity_(capacity) {}

  std::unique_ptr<Lumen::LmRowIteratorImpl> find(const Lumen::BaseRow& keyRow, unsigned) override {
    const auto found = rows.find(column<std::uint32_t>(keyRow, kId));
    return std::make_unique<FakeIterator>(found == rows.end() ? Lumen::BaseRow() : found->second);
  }
  void rowIs(const Lumen::BaseRow& row, bool) override {
    const auto id = column<std::uint32_t>(row, kId);
    if (broken) throw Cairn::NoPermissionException("write to read-only Vesta table");
    if (!rows.contains(id) && rows.size() == capacity_) {
      throw Cairn::ResourceExhaustedException("used " + std::to_string(capacity_) + " of " +
                                              std::to_string(capacity_));
    }
    rows[id] = row.clone();
    writes.push_back({"put", id, column<std::uint64_t>(row, kHandle), column<std::uint64_t>(row, kGenId)});
    allValid = allValid && column<bool>(row, kValid);
  }
  void rowDel(const Lumen::BaseRow& keyRow) override {
    const auto id = column<std::uint32_t>(keyRow, kId);
    writes.push_back({"del", id, column<std::uint64_t>(rows.at(id), kHandle), 0});
    rows.erase(id);
  }
  using DefaultLmTableImplementation::rowDel;

  std::map<std::uint32_t, Lumen::BaseRow> rows;
  std::vector<Write> writes;
  bool allValid = true;
  bool broken = false;

 private:
  std::size_t capacity_;
};

}  // namespace Fake
