#include "apps/process/CommandLine.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

#include "apps/process/Log.h"

namespace Process {

UsageError::~UsageError() = default;

namespace {

std::string longName(const std::string& names) { return names.substr(names.rfind(',') + 1); }

/// Hands the values on; errors begin with the option's name.
auto taker(const std::string& names, const CommandLine::Take& take) {
  return [name = longName(names), take](const std::vector<std::string>& values) {
    for (const std::string& value : values) {
      if (value.empty()) throw Cairn::Exception(name + ": expected a value, got an empty one");
      try {
        take(value);
      } catch (const Cairn::Exception& error) {
        throw Cairn::Exception(name + ": " + error.message());
      }
    }
    return true;
  };
}

}  // namespace

CommandLine::CommandLine() : app_(std::make_unique<CLI::App>()) {
  app_->set_help_flag("-h,--help");
  app_->set_version_flag("-V,--version", std::string());
  take("--log-level", [](const std::string& value) { logLevelIs(logLevelOf(value)); });
}

CommandLine::~CommandLine() = default;

void CommandLine::take(const std::string& names, const Take& take) {
  app_->add_option(names, taker(names, take))
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void CommandLine::take(const std::string& names, const std::string& otherwise, const Take& take) {
  app_->add_option(names, taker(names, take))->expected(0, 1)->default_str(otherwise);
}

void CommandLine::flag(const std::string& names, bool& place) { app_->add_flag(names, place); }

void CommandLine::operands(std::vector<std::string>& place) { app_->add_option("OPERAND", place); }

void refuseValues(const CLI::App& app, int count, char* const* arguments) {
  for (int i = 1; i < count && arguments[i] != std::string_view("--"); ++i) {
    const std::string_view given = arguments[i];
    const std::size_t equals = given.find('=');
    if (!given.starts_with('-') || equals == given.npos) continue;
    const CLI::Option* const option = app.get_option_no_throw(std::string(given.substr(0, equals)));
    if (option == nullptr) continue;
    const std::string& name = option->get_lnames().at(0);
    const std::string_view value = given.substr(equals + 1);
    if (option->get_expected_max() == 0) {
      throw Cairn::Exception(fmt::format("--{}: expected no value, got \"{}\"", name, value));
    }
    if (value.empty()) throw Cairn::Exception(fmt::format("--{}: expected a value, got an empty one", name));
  }
}

Action CommandLine::read(int count, char* const* arguments) {
  refuseValues(*app_, count, arguments);
  try {
    app_->parse(count, arguments);
    return Action::run;
  } catch (const CLI::CallForHelp&) {
    return Action::help;
  } catch (const CLI::CallForVersion&) {
    return Action::version;
  } catch (const CLI::ParseError& error) {
    throw Cairn::Exception(std::string("expected options of --help: ") + error.what());
  }
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
    log(LogLevel::error, error.what());
    return 1;
  }
}

}  // namespace Process
