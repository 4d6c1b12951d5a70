// What the programs have in common: how options are read, how a program ends.
#pragma once

#include <charconv>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "cairn/Exception.h"

namespace Process {

/// A command line that the program cannot follow, found out after it was read.
class UsageError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~UsageError() override;
};

enum class Action { run, help, version };

/// One option of a program. --help (-h) and --version (-V) are every program's own.
struct Option {
  char letter;
  const char* name;
  /// Takes the value, which every such option has; throws Cairn::Exception when it does not fit.
  std::function<void(const std::string& value)> take;
};

/// Has each option take its value and puts the other arguments into `operands`. Throws Cairn::Exception
/// saying what was expected and what came; stops at --help and --version.
Action readCommandLine(int count, char* const* arguments, std::span<const Option> options,
                       std::vector<std::string>& operands);

/// `text`, all of it, as a decimal number from `low` to `high`; nothing when it is anything else.
template <class Number>
std::optional<Number> numberIn(std::string_view text, Number low, Number high) {
  Number number{};
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc{} || end != last || !(number >= low && number <= high)) return std::nullopt;
  return number;
}

/// "a, b, c"
std::string listed(const std::vector<std::string>& names);

/// The rest of main(): reads the options, prints `help` or the version or runs `body`, and returns the exit
/// code: 0 when `body` returns true, 1 when it returns false, throws or standard output could not be written,
/// 2 when reading the options throws or `body` throws UsageError. What was thrown is one line on standard
/// error: a log line, or after `name` alone for exit code 2.
int run(const char* name, const char* help, const std::function<Action()>& readOptions,
        const std::function<bool()>& body);

}  // namespace Process
