// The answer to one update.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Agent {

enum class Code : std::uint8_t {
  ok,
  alreadyExists,
  notFound,
  resourceExhausted,
  invalidArgument,
  hardwareError,
  deadlineExceeded,
  internal,
};

constexpr std::size_t kCodes = 8;

/// "OK", "ALREADY_EXISTS", ... as results are printed and expectations are written.
std::string_view codeName(Code code);
/// The code of that name, in either case; nothing for an unknown name.
std::optional<Code> codeOf(std::string_view name);
/// Every name, separated by ", ", for messages that say what was expected.
std::string codeNames();

struct Result {
  Code code = Code::ok;
  std::uint16_t hardwareCode = 0;  ///< the hardware's own code, set with Code::hardwareError only
  std::string message;             ///< empty when the update succeeded
};

}  // namespace Agent
