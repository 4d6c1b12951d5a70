#include "apps/client/Outcome.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>

namespace Client {

namespace {

constexpr std::string_view kLostName = "LOST";
constexpr int kDeadlineExceeded = 4;
constexpr int kUnavailable = 14;
constexpr std::array<std::string_view, 17> kNames = {
    "OK",        "CANCELLED",      "UNKNOWN",           "INVALID_ARGUMENT",   "DEADLINE_EXCEEDED",
    "NOT_FOUND", "ALREADY_EXISTS", "PERMISSION_DENIED", "RESOURCE_EXHAUSTED", "FAILED_PRECONDITION",
    "ABORTED",   "OUT_OF_RANGE",   "UNIMPLEMENTED",     "INTERNAL",           "UNAVAILABLE",
    "DATA_LOSS", "UNAUTHENTICATED"};

std::string nameOf(int code) {
  if (code == Outcome::kLost) return std::string(kLostName);
  const auto index = static_cast<std::size_t>(code);
  return index < kNames.size() ? std::string(kNames[index]) : fmt::format("code {}", code);
}

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](unsigned char x, unsigned char y) { return std::toupper(x) == std::toupper(y); });
}

}  // namespace

bool Outcome::isLost() const noexcept {
  return code == kLost || code == kDeadlineExceeded || code == kUnavailable;
}

std::string nameOf(const Outcome& outcome) {
  return outcome.hardwareCode != 0 ? std::string(kHardwareError) : nameOf(outcome.code);
}

std::string textOf(const Outcome& outcome) {
  const std::string name = nameOf(outcome);
  return outcome.hardwareCode == 0 ? name : fmt::format("{} {}", name, outcome.hardwareCode);
}

bool Expectation::meets(const Outcome& outcome) const {
  if (!ofHardware) return outcome.code == code && outcome.hardwareCode == 0;
  return outcome.hardwareCode != 0 && (!hardwareCode || *hardwareCode == outcome.hardwareCode);
}

std::string Expectation::toString() const {
  if (!ofHardware) return nameOf(code);
  return hardwareCode ? fmt::format("{} {}", kHardwareError, *hardwareCode) : std::string(kHardwareError);
}

std::optional<Expectation> expectationOf(std::string_view name) {
  if (sameLetters(name, kHardwareError)) return Expectation{0, true, {}};
  if (sameLetters(name, kLostName)) return Expectation{Outcome::kLost, false, {}};
  const auto found = std::find_if(kNames.begin(), kNames.end(),
                                  [name](std::string_view each) { return sameLetters(each, name); });
  if (found == kNames.end()) return std::nullopt;
  return Expectation{static_cast<int>(found - kNames.begin()), false, {}};
}

std::string outcomeNames() {
  std::string names;
  for (const std::string_view name : kNames) names.append(name).append(", ");
  return names.append(kLostName).append(", ").append(kHardwareError);
}

}  // namespace Client
