#include "apps/core/Result.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace Agent {

namespace {
constexpr std::array<std::string_view, kCodes> kNames = {"OK",
                                                         "ALREADY_EXISTS",
                                                         "NOT_FOUND",
                                                         "RESOURCE_EXHAUSTED",
                                                         "INVALID_ARGUMENT",
                                                         "HARDWARE_ERROR",
                                                         "DEADLINE_EXCEEDED",
                                                         "INTERNAL"};

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](unsigned char x, unsigned char y) { return std::toupper(x) == std::toupper(y); });
}
}  // namespace

std::string_view codeName(Code code) { return kNames.at(static_cast<std::size_t>(code)); }

std::optional<Code> codeOf(std::string_view name) {
  for (std::size_t i = 0; i < kNames.size(); ++i) {
    if (sameLetters(kNames[i], name)) return static_cast<Code>(i);
  }
  return std::nullopt;
}

std::string codeNames() {
  std::string names;
  for (const std::string_view name : kNames) {
    if (!names.empty()) names += ", ";
    names += name;
  }
  return names;
}

}  // namespace Agent
