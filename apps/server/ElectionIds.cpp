#include "apps/server/ElectionIds.h"

#include <fmt/format.h>

#include <cstring>
#include <string_view>

namespace Server {

namespace {

template <class Number>
void append(std::string& bytes, Number number) {
  bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

/// Takes the next `length` bytes off; false when there are fewer.
bool take(std::string_view& bytes, std::size_t length, std::string_view& taken) {
  if (bytes.size() < length) return false;
  taken = bytes.substr(0, length);
  bytes.remove_prefix(length);
  return true;
}

template <class Number>
bool take(std::string_view& bytes, Number& number) {
  std::string_view taken;
  if (!take(bytes, sizeof number, taken)) return false;
  std::memcpy(&number, taken.data(), sizeof number);
  return true;
}

}  // namespace

std::string textOf(const ElectionId& id) { return fmt::format("{{{}, {}}}", id.high, id.low); }

ElectionIds::ElectionIds(const std::string& folder) : file_(folder, kElectionIdsFile) {}

ElectionIds::ByRole ElectionIds::read() const {
  const std::string contents = file_.read().value_or(std::string());
  std::string_view bytes = contents;
  ByRole ids;
  while (!bytes.empty()) {
    std::uint16_t length = 0;
    std::string_view name;
    ElectionId id;
    const bool isWhole =
        take(bytes, length) && take(bytes, length, name) && take(bytes, id.high) && take(bytes, id.low);
    if (!isWhole) file_.refuse("a role's record is cut short");
    ids.emplace(name, id);
  }
  return ids;
}

void ElectionIds::replace(const ByRole& ids) {
  std::string contents;
  for (const auto& [name, id] : ids) {
    append(contents, static_cast<std::uint16_t>(name.size()));
    contents += name;
    append(contents, id.high);
    append(contents, id.low);
  }
  file_.replace(contents);
}

}  // namespace Server
