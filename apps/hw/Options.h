#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "apps/hw/Fault.h"
#include "apps/process/CommandLine.h"

namespace HwAgent {

/// How entries are answered.
struct Settings {
  std::vector<Fault> faults;
  FailEvery failEvery;
  std::chrono::milliseconds delay{0};  ///< from a change to its answer
};

struct Options {
  std::string runtimeFolder;  ///< of the tables
  std::chrono::microseconds busyPoll{0};
  std::string faultsFile;  ///< of more faults; empty: none
  Settings settings;
};

/// Reads the command line, without the file of faults, into `options`. Throws Cairn::Exception saying what
/// was expected and what came.
Process::Action readOptions(int count, char* const* arguments, Options& options);

/// What --help prints.
extern const char* const kHelp;

}  // namespace HwAgent
