// tolmarctl: shows an operator what the runtime folder holds.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

#include "apps/ctl/Commands.h"
#include "apps/process/CommandLine.h"
#include "apps/process/RuntimeFolder.h"
#include "vesta/segment/SegmentGuard.h"

namespace {

/// As the other programs refuse an empty value of any option.
void refuseEmptyValues(CLI::App& app, int count, char* const* arguments) {
  Process::refuseValues(app, count, arguments);
  const auto problem = [](const std::string& value) {
    return value.empty() ? std::string("expected a value, got an empty one") : std::string();
  };
  for (CLI::Option* const option : app.get_options([](const CLI::Option*) { return true; })) {
    if (option->get_expected_max() != 0) option->check(problem);
  }
}

template <class App>
auto commandsOf(App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

/// What is wrong with the command line. The library does not say which word it has taken for no command.
std::string problemOf(const CLI::App& app, const CLI::ParseError& error) {
  const bool noCommand = error.get_name() == "RequiredError" && app.get_subcommands().empty();
  if (!noCommand) return error.what();
  std::vector<std::string> names;
  for (const CLI::App* const command : commandsOf(app)) names.push_back(command->get_name());
  const std::vector<std::string> others = app.remaining();
  return fmt::format("expected a command ({}), got {}", Process::listed(names),
                     others.empty() ? "nothing" : '"' + others.front() + '"');
}

int run(const Ctl::CommandLine& line) {
  try {
    const int code = line.command(line.runtimeFolder);
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return code;
    Ctl::warn("standard output could not be written");
  } catch (const std::exception& error) {
    Ctl::warn(error.what());
  }
  return Ctl::kFailed;
}

}  // namespace

int main(int count, char** arguments) {
  Vesta::installSegmentGuard();
  Ctl::CommandLine line;
  line.runtimeFolder = Process::defaultRuntimeFolder();
  CLI::App app(
      "Shows what an agent and a hardware agent have in their runtime folder. Both\n"
      "may run, hang or be dead; only report and clean write anything.",
      "tolmarctl");
  app.add_option("-r,--runtime-folder", line.runtimeFolder, "default: /dev/shm/tolmar-UID")->type_name("DIR");
  app.set_version_flag("-V,--version", std::string("tolmarctl ") + Ctl::kVersion);
  app.require_subcommand(1);
  app.fallthrough();
  app.footer("tolmarctl COMMAND --help lists the options of a command.");
  Ctl::addShow(app, line);
  Ctl::addDiff(app, line);
  Ctl::addExplain(app, line);
  Ctl::addCheck(app, line);
  Ctl::addTrace(app, line);
  Ctl::addWatch(app, line);
  Ctl::addTop(app, line);
  Ctl::addMetrics(app, line);
  Ctl::addReport(app, line);
  Ctl::addClean(app, line);
  try {
    refuseEmptyValues(app, count, arguments);
    for (CLI::App* const command : commandsOf(app)) refuseEmptyValues(*command, count, arguments);
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    Ctl::warn(problemOf(app, error));
    return Ctl::kFailed;
  } catch (const std::exception& error) {
    Ctl::warn(error.what());
    return Ctl::kFailed;
  }
  return run(line);
}
