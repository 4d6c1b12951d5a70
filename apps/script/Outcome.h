// How outcomes are written in scripts and in what is printed.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "apps/core/Status.h"

namespace Agent {

/// An update that the hardware refused is HARDWARE_ERROR in text; in P4Runtime it is INTERNAL with a code.
inline constexpr std::string_view kHardwareError = "HARDWARE_ERROR";

/// "OK", "NOT_FOUND", "HARDWARE_ERROR 7"
std::string textOf(const UpdateStatus& status);

/// The outcome that a script expects of an update.
struct Expectation {
  StatusCode code = StatusCode::ok;
  bool ofHardware = false;                    ///< HARDWARE_ERROR; `code` does not count then
  std::optional<std::uint16_t> hardwareCode;  ///< any, when not given

  bool meets(const UpdateStatus& status) const;
  std::string toString() const;
};

/// Nothing when there is no such outcome. Upper and lower case are the same.
std::optional<Expectation> expectationOf(std::string_view name);
/// All names, "OK, ALREADY_EXISTS, ..."
std::string outcomeNames();

}  // namespace Agent
