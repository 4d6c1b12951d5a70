#include "apps/process/CommandLine.h"

#include <getopt.h>

#include <cstdio>
#include <exception>

#include "apps/process/Log.h"

namespace Process {

UsageError::~UsageError() = default;

namespace {

/// What getopt_long has stumbled over: a word, or one letter out of a word of several.
std::string culprit(char* const* arguments, const std::string& letters) {
  const bool known = optopt == 0 || letters.find(static_cast<char>(optopt)) != std::string::npos;
  return known ? arguments[optind - 1] : std::string("-") + static_cast<char>(optopt);
}

}  // namespace

Action readCommandLine(int count, char* const* arguments, std::span<const Option> options,
                       std::vector<std::string>& operands) {
  std::string letters = ":hV";
  std::vector<option> names = {{"help", no_argument, nullptr, 'h'}, {"version", no_argument, nullptr, 'V'}};
  for (const Option& each : options) {
    letters.append(1, each.letter).append(1, ':');
    names.push_back({each.name, required_argument, nullptr, each.letter});
  }
  names.push_back({nullptr, 0, nullptr, 0});
  optind = 0;
  opterr = 0;
  int letter = 0;
  while ((letter = ::getopt_long(count, arguments, letters.c_str(), names.data(), nullptr)) != -1) {
    if (letter == 'h') return Action::help;
    if (letter == 'V') return Action::version;
    if (letter == ':')
      throw Cairn::Exception("expected a value after " + culprit(arguments, letters) + ", got none");
    if (letter == '?')
      throw Cairn::Exception("expected an option of --help, got " + culprit(arguments, letters));
    for (const Option& each : options) {
      if (each.letter == letter) each.take(optarg);
    }
  }
  operands.assign(arguments + optind, arguments + count);
  return Action::run;
}

std::string listed(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

int run(const char* name, const char* help, const std::function<Action()>& readOptions,
        const std::function<bool()>& body) {
  bool reading = true;
  const auto wrongUsage = [name](const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", name, printable(error.what()).c_str());
    return 2;
  };
  try {
    const Action action = readOptions();
    reading = false;
    bool passed = true;
    if (action == Action::help) {
      std::fputs(help, stdout);
    } else if (action == Action::version) {
      std::printf("%s %s\n", name, TOLMAR_VERSION);
    } else {
      passed = body();
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
      throw Cairn::Exception("standard output could not be written");
    }
    return passed ? 0 : 1;
  } catch (const UsageError& error) {
    return wrongUsage(error);
  } catch (const std::exception& error) {
    if (reading) return wrongUsage(error);
    log(error.what());
    return 1;
  }
}

}  // namespace Process
