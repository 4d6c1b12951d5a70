#pragma once

#include <string>

#include "apps/hw/Tables.h"

namespace HwAgent {

struct Options {
  enum class Action { run, help, version };

  Action action = Action::run;
  std::string runtimeFolder;
  Settings settings;
};

/// Reads the command line. Throws Cairn::Exception saying what was expected and what came.
Options readOptions(int count, char* const* arguments);

/// What --help prints.
extern const char* const kHelp;

}  // namespace HwAgent
