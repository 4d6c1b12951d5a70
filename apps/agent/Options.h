#pragma once

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

struct Options {
  enum class Action { run, send, help, version };

  Action action = Action::run;
  std::string plugin;                ///< path of the plugin library
  std::string runtimeFolder;         ///< of the shared-memory tables
  std::string socket;                ///< served (run) or spoken to (send); empty: none
  std::vector<std::string> scripts;  ///< files in order, "-" for standard input
  std::chrono::milliseconds timeout{10'000};
  std::vector<std::pair<std::string, int>> traces;  ///< handles ("*": all) and levels whose lines are printed
  bool colour = false;  ///< results in colour and progress in place, as on a terminal
};

/// Reads the command line. Throws Cairn::Exception saying what was expected and what came.
Options readOptions(int count, char* const* arguments);

/// What --help prints.
extern const char* const kHelp;

}  // namespace Agent
