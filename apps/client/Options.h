#pragma once

#include <string>
#include <vector>

#include "apps/client/Connection.h"
#include "apps/client/Load.h"
#include "apps/process/CommandLine.h"

namespace Client {

struct Options {
  Target target;
  std::string runtimeFolder;       ///< of the agent whose socket is used without an address
  std::string command;             ///< "run", "write", "read" or "load"
  std::vector<std::string> words;  ///< behind the command
  std::string results;             ///< file; empty: none
  LoadSettings load;
  bool colour = false;
};

/// Reads the command line into `options`. Throws Cairn::Exception saying what was expected and what came.
Process::Action readOptions(int count, char* const* arguments, Options& options);

/// What --help prints.
extern const char* const kHelp;

}  // namespace Client
