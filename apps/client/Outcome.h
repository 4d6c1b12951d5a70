// What became of an update, and how that is written in scripts and in what is printed.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Client {

/// An update that the hardware refused is HARDWARE_ERROR in text; in P4Runtime it is INTERNAL with a code.
inline constexpr std::string_view kHardwareError = "HARDWARE_ERROR";

struct Outcome {
  /// In place of a code: there was no answer, so that nobody knows whether the update was applied.
  static constexpr int kLost = -1;

  int code = 0;                    ///< canonical
  std::uint32_t hardwareCode = 0;  ///< the hardware's own when it refused the update, otherwise 0
  std::string message;

  bool ok() const noexcept { return code == 0; }
  /// Whether the entry's fate is unknown: no answer, or none of the hardware's in time.
  bool isLost() const noexcept;
};

/// "OK", "NOT_FOUND", "LOST"; HARDWARE_ERROR without its code.
std::string nameOf(const Outcome& outcome);
/// The same with the hardware's code: "HARDWARE_ERROR 7"
std::string textOf(const Outcome& outcome);

/// The outcome that a script expects of an update.
struct Expectation {
  int code = 0;
  bool ofHardware = false;                    ///< HARDWARE_ERROR; `code` does not count then
  std::optional<std::uint32_t> hardwareCode;  ///< any, when not given

  bool meets(const Outcome& outcome) const;
  std::string toString() const;
};

/// Nothing when there is no such outcome. Upper and lower case are the same.
std::optional<Expectation> expectationOf(std::string_view name);
/// All names, "OK, ALREADY_EXISTS, ..."
std::string outcomeNames();

}  // namespace Client
