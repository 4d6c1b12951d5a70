#include "apps/script/Outcome.h"

#include <algorithm>
#include <cctype>

namespace Agent {

namespace {

constexpr StatusCode kCodes[] = {StatusCode::ok,
                                 StatusCode::alreadyExists,
                                 StatusCode::notFound,
                                 StatusCode::resourceExhausted,
                                 StatusCode::invalidArgument,
                                 StatusCode::outOfRange,
                                 StatusCode::permissionDenied,
                                 StatusCode::deadlineExceeded,
                                 StatusCode::aborted,
                                 StatusCode::unimplemented,
                                 StatusCode::internal};

bool sameLetters(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](unsigned char x, unsigned char y) { return std::toupper(x) == std::toupper(y); });
}

}  // namespace

std::string textOf(const UpdateStatus& status) {
  if (status.hardwareCode == 0) return std::string(statusCodeName(status.code));
  return std::string(kHardwareError).append(1, ' ').append(std::to_string(status.hardwareCode));
}

bool Expectation::meets(const UpdateStatus& status) const {
  if (!ofHardware) return status.code == code && status.hardwareCode == 0;
  return status.hardwareCode != 0 && (!hardwareCode || *hardwareCode == status.hardwareCode);
}

std::string Expectation::toString() const {
  if (!ofHardware) return std::string(statusCodeName(code));
  std::string text(kHardwareError);
  if (hardwareCode) text.append(1, ' ').append(std::to_string(*hardwareCode));
  return text;
}

std::optional<Expectation> expectationOf(std::string_view name) {
  if (sameLetters(name, kHardwareError)) return Expectation{StatusCode::internal, true, {}};
  for (const StatusCode code : kCodes) {
    if (sameLetters(statusCodeName(code), name)) return Expectation{code, false, {}};
  }
  return std::nullopt;
}

std::string outcomeNames() {
  std::string names;
  for (const StatusCode code : kCodes) names.append(statusCodeName(code)).append(", ");
  return names.append(kHardwareError);
}

}  // namespace Agent
