#include <algorithm>

#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"

namespace Lumen {

LumenDB::~LumenDB() = default;

void LumenDB::registerTable(const std::string& tableName, const std::string& rowTypeName, TableType type,
                            std::uint16_t rowsHint, std::uint16_t changesHint, const std::string& folder,
                            const IndexMap& indexMap) {
  metadataIs(rowTypeName);
  TableRegistration registration{tableName, rowTypeName, type, rowsHint, changesHint, folder, indexMap};
  if (const auto known = table(tableName)) {
    if (known->registration() == registration) return;
    throw LmTableError("table " + tableName + " is registered otherwise: with rows of type " +
                       known->registration().rowTypeName + ", now asked for with " + rowTypeName);
  }
  tables_.push_back(std::make_shared<LmTable>(std::move(registration)));
}

void LumenDB::tableImplementationIs(const std::string& tableName,
                                    std::shared_ptr<LmTableImplementation> implementation) {
  LmTable& table = registered(tableName);
  if (implementation == nullptr) throw LmTableError("null implementation for table " + tableName);
  const std::string& expected = table.registration().rowTypeName;
  if (implementation->rowTypeName() != expected) {
    throw LmTableError("table " + tableName + " has rows of type " + expected +
                       ", its implementation of type " + implementation->rowTypeName());
  }
  if (implementation != table.implementation() && implementation->boundInterfacesCount() != 0) {
    throw LmTableError("the implementation for table " + tableName + " serves another table");
  }
  serve(table, implementation);
}

void LumenDB::tableImplementationDel(const std::string& tableName) { serve(registered(tableName), nullptr); }

void LumenDB::serve(LmTable& table, const std::shared_ptr<LmTableImplementation>& implementation) {
  const auto old = table.implementation();
  if (old == implementation) return;
  if (old != nullptr) {
    old->replaceImplementation(implementation, *this);
    old->cleanup();
  } else {
    implementation->addInterface(table);
    table.implementationIs(implementation);
  }
}

std::shared_ptr<LmTable> LumenDB::table(std::string_view tableName) const {
  const auto found =
      std::ranges::find_if(tables_, [&](const auto& known) { return known->name() == tableName; });
  return found == tables_.end() ? nullptr : *found;
}

LmTable& LumenDB::registered(const std::string& tableName) const {
  const auto known = table(tableName);
  if (known == nullptr) {
    throw LmTableError("no table named " + tableName + " among " + std::to_string(tables_.size()) +
                       " registered");
  }
  return *known;
}

}  // namespace Lumen
