// tolmarctl: shows an operator what the runtime folder holds.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

#include "apps/ctl/Commands.h"
#include "apps/process/RuntimeFolder.h"
#include "vesta/segment/SegmentGuard.h"

namespace {

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
    app.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() == 0) return app.exit(error);
    Ctl::warn(error.what());
    return Ctl::kFailed;
  } catch (const std::exception& error) {
    Ctl::warn(error.what());
    return Ctl::kFailed;
  }
  return run(line);
}
