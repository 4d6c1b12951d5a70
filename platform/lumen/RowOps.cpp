#include "lumen/RowOps.h"

#include <algorithm>

namespace Lumen {

namespace {

struct Registration {
  std::string rowTypeName;
  RowOpsGenerator* generator;  // not owned
};

// Generators register while libraries are loaded, before this unit's own objects would be made.
std::vector<Registration>& registrations() {
  static std::vector<Registration> theRegistrations;
  return theRegistrations;
}

}  // namespace

RowOpsBase::~RowOpsBase() = default;

void installRowOpsGenerator(const std::string& rowTypeName, RowOpsGenerator* generator) {
  registrations().push_back({rowTypeName, generator});
}

void uninstallRowOpsGenerator(const RowOpsGenerator* generator) {
  std::erase_if(registrations(), [&](const Registration& known) { return known.generator == generator; });
}

RowOpsGenerator* rowOpsGenerator(std::string_view rowTypeName) {
  const auto& known = registrations();
  const auto found = std::find_if(known.rbegin(), known.rend(), [&](const Registration& registration) {
    return registration.rowTypeName == rowTypeName;
  });
  return found != known.rend() ? found->generator : nullptr;
}

std::shared_ptr<RowOpsBase> rowOps(std::string_view rowTypeName, unsigned char index) {
  RowOpsGenerator* const generator = rowOpsGenerator(rowTypeName);
  return generator != nullptr ? (*generator)(index) : nullptr;
}

std::vector<std::string> rowOpsGeneratorNames() {
  std::vector<std::string> names;
  for (const auto& registration : registrations()) names.push_back(registration.rowTypeName);
  return names;
}

}  // namespace Lumen
