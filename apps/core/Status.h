// The outcome of a request or of one update, in the canonical codes that P4Runtime and gRPC share.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

namespace Agent {

/// With the numbers that travel.
enum class StatusCode : std::uint8_t {
  ok = 0,
  cancelled = 1,
  unknown = 2,
  invalidArgument = 3,
  deadlineExceeded = 4,
  notFound = 5,
  alreadyExists = 6,
  permissionDenied = 7,
  resourceExhausted = 8,
  failedPrecondition = 9,
  aborted = 10,
  outOfRange = 11,
  unimplemented = 12,
  internal = 13,
  unavailable = 14,
};

/// "OK", "INVALID_ARGUMENT", ...
constexpr std::string_view statusCodeName(StatusCode code) {
  constexpr std::array<std::string_view, 15> kNames = {
      "OK",        "CANCELLED",      "UNKNOWN",           "INVALID_ARGUMENT",   "DEADLINE_EXCEEDED",
      "NOT_FOUND", "ALREADY_EXISTS", "PERMISSION_DENIED", "RESOURCE_EXHAUSTED", "FAILED_PRECONDITION",
      "ABORTED",   "OUT_OF_RANGE",   "UNIMPLEMENTED",     "INTERNAL",           "UNAVAILABLE"};
  return kNames.at(static_cast<std::size_t>(code));
}

struct [[nodiscard]] Status {
  StatusCode code = StatusCode::ok;
  std::string message;  ///< what was expected and what came; empty with StatusCode::ok

  bool ok() const noexcept { return code == StatusCode::ok; }
};

/// The outcome of one update.
struct UpdateStatus : Status {
  std::uint16_t hardwareCode = 0;  ///< the hardware's own code when it refused the update, otherwise 0
};

}  // namespace Agent
