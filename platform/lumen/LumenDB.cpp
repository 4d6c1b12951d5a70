#include "lumen/LumenDB.h"

#include <algorithm>
#include <deque>
#include <string>

#include "lumen/LmErrors.h"

namespace Lumen {

namespace {

// The number 0 is that of fresh rows, 0xffff that of "not yet known" in the row classes.
constexpr std::size_t kMaxClasses = 0xfffe;

struct Metadata {
  std::deque<LmClass> classes;  // the class with number n at n - 1
  std::vector<LumenDB::MetadataSource> sources;
};

// Sources register while libraries are loaded, before this unit's own objects would be made.
Metadata& metadata() {
  static Metadata theMetadata;
  return theMetadata;
}

}  // namespace

const LmClass* LumenDB::lmClass(std::string_view rowTypeName) {
  const auto& classes = metadata().classes;
  const auto found = std::find_if(classes.begin(), classes.end(),
                                  [&](const LmClass& known) { return known.name() == rowTypeName; });
  return found != classes.end() ? &*found : nullptr;
}

const LmClass* LumenDB::lmClass(std::uint16_t oid) {
  const auto& classes = metadata().classes;
  return oid != 0 && oid <= classes.size() ? &classes[oid - 1u] : nullptr;
}

void LumenDB::metadataIs(std::string_view rowTypeName) {
  if (lmClass(rowTypeName) != nullptr) return;
  auto& [classes, sources] = metadata();
  if (classes.size() >= kMaxClasses) {
    throw LmMetadataError("no row type number left for \"" + std::string(rowTypeName) + "\": used " +
                          std::to_string(classes.size()) + " of " + std::to_string(kMaxClasses));
  }
  LmClassMetadata found;
  for (const MetadataSource source : sources) {
    if (!source(rowTypeName, found)) continue;
    classes.emplace_back(rowTypeName, static_cast<std::uint16_t>(classes.size() + 1), found);
    return;
  }
  throw LmMetadataError("no metadata for row type \"" + std::string(rowTypeName) + "\" in " +
                        std::to_string(sources.size()) + " sources");
}

std::uint32_t LumenDB::tableTypeId(std::string_view rowTypeName, bool loadedOnly) {
  if (!loadedOnly) metadataIs(rowTypeName);
  const LmClass* const known = lmClass(rowTypeName);
  if (known == nullptr) {
    throw LmMetadataError("metadata of row type \"" + std::string(rowTypeName) + "\" is not loaded");
  }
  return known->oid();
}

void LumenDB::metadataSourceIs(MetadataSource source) { metadata().sources.push_back(source); }

void LumenDB::metadataSourceDel(MetadataSource source) { std::erase(metadata().sources, source); }

LumenDB::~LumenDB() = default;

void LumenDB::registerTable(const std::string& tableName, const std::string& rowTypeName, TableType type,
                            std::uint16_t rowsHint, std::uint16_t changesHint, const std::string& folder,
                            const IndexMap& indexMap) {
  metadataIs(rowTypeName);
  TableRegistration registration{tableName, rowTypeName, type, rowsHint, changesHint, folder, indexMap};
  if (const auto known = table(tableName)) {
    if (known->registration() == registration) return;
    throw LmTableError("table " + tableName + " is already registered differently, with rows of type " +
                       known->registration().rowTypeName + "; requested: " + rowTypeName);
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
  const Quill::Registrant* const registrant = Quill::Registrant::current();
  const Quill::Registrant*& known = registrants_[tableName];
  if (known != nullptr && registrant != nullptr && known != registrant) {
    throw LmTableError("table " + tableName + " is served by another plugin library");
  }
  serve(table, implementation);
  known = registrant;
}

void LumenDB::tableImplementationDel(const std::string& tableName) {
  serve(registered(tableName), nullptr);
  registrants_.erase(tableName);
}

void LumenDB::tableImplementationDelAll(const Quill::Registrant& registrant) {
  for (const auto& table : tables_) {
    const auto known = registrants_.find(table->name());
    if (known != registrants_.end() && known->second == &registrant) tableImplementationDel(table->name());
  }
}

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
