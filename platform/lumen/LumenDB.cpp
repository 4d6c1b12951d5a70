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

}  // namespace Lumen
