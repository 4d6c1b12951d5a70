// What the programs have in common: how options are read, how a program ends.
#pragma once

#include <fmt/format.h>

#include <charconv>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "cairn/Exception.h"

namespace CLI {
class App;
}

namespace Process {

/// A command line that the program cannot follow, found out after it was read.
class UsageError : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~UsageError() override;
};

enum class Action { run, help, version };

/// `text`, all of it, as a decimal number from `low` to `high`; nothing when it is anything else.
template <class Number>
std::optional<Number> numberIn(std::string_view text, Number low, Number high) {
  Number number{};
  const char* const last = text.data() + text.size();
  const auto [end, error] = std::from_chars(text.data(), last, number);
  if (error != std::errc{} || end != last || !(number >= low && number <= high)) return std::nullopt;
  return number;
}

/// The options of one program. Every program has --help (-h), --version (-V) and --log-level. Names are given
/// as "-d,--delay"; an option without value, or with an empty one, is refused, and so is a flag with a value.
class CommandLine {
 public:
  /// Takes one value; throws Cairn::Exception when it does not fit.
  using Take = std::function<void(const std::string& value)>;

  CommandLine();
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// An option that may be given more than once.
  void take(const std::string& names, const Take& take);
  /// The same, with `otherwise` where no value follows.
  void take(const std::string& names, const std::string& otherwise, const Take& take);
  void flag(const std::string& names, bool& place);
  /// The arguments that belong to no option; without this call there may be none.
  void operands(std::vector<std::string>& place);
  /// A number from `low` to `high`, which messages call `what`.
  template <class Number>
  void number(const std::string& names, const std::string& what, Number low, Number high,
              const std::function<void(Number)>& use) {
    take(names, [=](const std::string& value) {
      const auto number = numberIn(value, low, high);
      if (number) return use(*number);
      throw Cairn::Exception(fmt::format("expected {} from {} to {}, got \"{}\"", what, low, high, value));
    });
  }

  /// Has each option take its values. Throws Cairn::Exception saying what was expected and what came; what
  /// an option throws is preceded by its name. Stops at --help and --version.
  Action read(int count, char* const* arguments);

 private:
  std::unique_ptr<CLI::App> app_;
};

/// Throws Cairn::Exception for an argument "--name=VALUE" with an empty value, and for a flag's with any,
/// among the options of `app`. To the library an empty value is none: a flag ignores it, an option takes the
/// next argument instead.
void refuseValues(const CLI::App& app, int count, char* const* arguments);

/// "a, b, c"
std::string listed(const std::vector<std::string>& names);

/// The rest of main(): reads the options, prints `help` or the version or runs `body`, and returns the exit
/// code: 0 when `body` returns true, 1 when it returns false, throws or standard output could not be written,
/// 2 when reading the options throws or `body` throws UsageError. What was thrown is one line on standard
/// error: a log line, or after `name` alone for exit code 2.
int run(const char* name, const char* help, const std::function<Action()>& readOptions,
        const std::function<bool()>& body);

}  // namespace Process
