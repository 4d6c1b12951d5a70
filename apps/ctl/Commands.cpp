#include "apps/ctl/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <utility>

#include "apps/process/Log.h"

namespace Ctl {

const char* const kVersion = TOLMAR_VERSION;

void runsAs(CLI::App& command, CommandLine& line, Command run) {
  command.callback([&line, run = std::move(run)] { line.command = run; });
}

void addTables(CLI::App& command, std::vector<std::string>& tables) {
  command.add_option("TABLE", tables, "tables such as l3IifTH3 (default: all)")->type_name("");
}

void warn(const std::string& text) {
  std::fprintf(stderr, "tolmarctl: %s\n", Process::printable(text).c_str());
}

}  // namespace Ctl
