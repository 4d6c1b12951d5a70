// Hash, equality and order of rows by key, for tables that do not know the row classes; and the registry of
// their generators by row type name. Used from one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "rows/BaseRow.h"

namespace Lumen {

/// The operations of one row class for one of its indexes. A row without buffer hashes to 0; comparing one
/// fails with LmNullRow. A row too short for the class fails with Cairn::AssertionException.
class RowOpsBase {
 public:
  virtual ~RowOpsBase();
  virtual std::uint32_t keyHash(const BaseRow& row) const = 0;
  virtual std::uint32_t rowHash(const BaseRow& row) const = 0;
  virtual bool keyEquals(const BaseRow& a, const BaseRow& b) const = 0;
  virtual bool rowEquals(const BaseRow& a, const BaseRow& b) const = 0;
  virtual bool keyLess(const BaseRow& a, const BaseRow& b) const = 0;
  virtual bool rowLess(const BaseRow& a, const BaseRow& b) const = 0;
  /// True if a key identifies at most one row.
  virtual bool unique() const = 0;
  virtual bool ordered() const = 0;
  virtual int index() const = 0;
  virtual std::uint64_t getTotalInstructionsExecuted() const = 0;
};

/// Makes the operations of one row class.
class RowOpsGenerator {
 public:
  /// Appends operations for every index of the class.
  virtual void operator()(std::vector<std::shared_ptr<RowOpsBase>>& operations) = 0;
  /// Operations for one index; empty if the class has no such index.
  virtual std::shared_ptr<RowOpsBase> operator()(unsigned char index) = 0;

 protected:
  ~RowOpsGenerator() = default;
};

/// Registers `generator` (not owned) under `rowTypeName`. The latest one under a name is used.
void installRowOpsGenerator(const std::string& rowTypeName, RowOpsGenerator* generator);
/// Removes `generator`; no effect if it is not registered.
void uninstallRowOpsGenerator(const RowOpsGenerator* generator);

/// The generator of that row type name, or null.
RowOpsGenerator* rowOpsGenerator(std::string_view rowTypeName);
/// Operations of that row class and index, or an empty pointer.
std::shared_ptr<RowOpsBase> rowOps(std::string_view rowTypeName, unsigned char index = 0);
/// The names under which generators are registered, in order of registration.
std::vector<std::string> rowOpsGeneratorNames();

}  // namespace Lumen
