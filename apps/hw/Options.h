#pragma once

#include <string>

#include "apps/hw/Tables.h"
#include "apps/process/CommandLine.h"

namespace HwAgent {

struct Options {
  std::string runtimeFolder;
  Settings settings;
};

/// Reads the command line into `options`. Throws Cairn::Exception saying what was expected and what came.
Process::Action readOptions(int count, char* const* arguments, Options& options);

/// What --help prints.
extern const char* const kHelp;

}  // namespace HwAgent
