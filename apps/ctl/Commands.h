// The commands, each in a source file of its own: it declares its options and what is run with them.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace Ctl {

/// How a command ends.
enum ExitCode : int {
  kFine = 0,
  kFound = 1,   ///< what the command looks for is there: an entry that does not match, a fault
  kFailed = 2,  ///< the command could not do its work
};

/// Runs a command over a runtime folder; returns an ExitCode. Throws std::exception: the command failed.
using Command = std::function<int(const std::string& folder)>;

/// What the command line says beside the options of the command.
struct CommandLine {
  std::string runtimeFolder;
  Command command;  ///< the one that was chosen
};

void addShow(CLI::App& app, CommandLine& line);
void addDiff(CLI::App& app, CommandLine& line);
void addCheck(CLI::App& app, CommandLine& line);
void addExplain(CLI::App& app, CommandLine& line);
void addTrace(CLI::App& app, CommandLine& line);
void addWatch(CLI::App& app, CommandLine& line);
void addReport(CLI::App& app, CommandLine& line);
void addClean(CLI::App& app, CommandLine& line);
void addTop(CLI::App& app, CommandLine& line);
void addMetrics(CLI::App& app, CommandLine& line);

extern const char* const kVersion;

/// Has the command line run `run` when `command` is chosen.
void runsAs(CLI::App& command, CommandLine& line, Command run);
/// Adds the operand TABLE.
void addTables(CLI::App& command, std::vector<std::string>& tables);

/// Writes one line to standard error.
void warn(const std::string& text);

}  // namespace Ctl
