// Base classes of the row operations of one row class, and of the generator that makes them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "P4RuntimeTolmar/RowColumns.h"
#include "lumen/RowOps.h"

namespace TolmarHwLib {

/// Rows may be generic: they are read as rows of the class, whatever the row type in their header.
template <class RowT>
class EntryRowOps : public Lumen::RowOpsBase {
 public:
  using Row = RowT;
  using Entry = typename Row::EntryType;
  using BaseRow = Lumen::BaseRow;

  std::uint32_t keyHash(const BaseRow& row) const final {
    return row.isNull() ? 0 : KeyColumns<Entry>::hash(columnBytes<Entry>(row));
  }
  std::uint32_t rowHash(const BaseRow& row) const final {
    return row.isNull() ? 0 : AllColumns<Entry>::hash(columnBytes<Entry>(row));
  }
  bool keyEquals(const BaseRow& a, const BaseRow& b) const final {
    return KeyColumns<Entry>::equal(columnBytes<Entry>(a), columnBytes<Entry>(b));
  }
  bool rowEquals(const BaseRow& a, const BaseRow& b) const final {
    return AllColumns<Entry>::equal(columnBytes<Entry>(a), columnBytes<Entry>(b));
  }
  bool keyLess(const BaseRow& a, const BaseRow& b) const final {
    return KeyColumns<Entry>::less(columnBytes<Entry>(a), columnBytes<Entry>(b));
  }
  bool rowLess(const BaseRow& a, const BaseRow& b) const final {
    return AllColumns<Entry>::less(columnBytes<Entry>(a), columnBytes<Entry>(b));
  }
  bool unique() const final { return true; }
  bool ordered() const final { return false; }
  int index() const final { return 0; }
  std::uint64_t getTotalInstructionsExecuted() const final { return 0; }
};

/// Registered under the row type name of the class while it exists. A class has one set of operations, at
/// index 0.
template <class Ops>
class EntryRowOpsGenerator : public Lumen::RowOpsGenerator {
 public:
  using Row = typename Ops::Row;
  EntryRowOpsGenerator(const EntryRowOpsGenerator&) = delete;
  EntryRowOpsGenerator& operator=(const EntryRowOpsGenerator&) = delete;

  void operator()(std::vector<std::shared_ptr<Lumen::RowOpsBase>>& operations) override {
    operations.push_back(std::make_shared<Ops>());
  }
  std::shared_ptr<Lumen::RowOpsBase> operator()(unsigned char index) override {
    return index == 0 ? std::make_shared<Ops>() : nullptr;
  }

 protected:
  EntryRowOpsGenerator() { Lumen::installRowOpsGenerator(std::string(Row::rowTypeName()), this); }
  ~EntryRowOpsGenerator() { Lumen::uninstallRowOpsGenerator(this); }
};

}  // namespace TolmarHwLib
