#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/p4/P4Info.h"
#include "apps/process/CommandLine.h"
#include "apps/server/Device.h"
#include "apps/server/GrpcServer.h"

namespace Agent {

struct Options {
  std::string plugin;         ///< path of the plugin library
  std::string runtimeFolder;  ///< of the shared-memory tables
  std::chrono::milliseconds timeout{10'000};
  std::chrono::microseconds busyPoll{0};
  std::vector<std::pair<std::string, int>> traces;  ///< handles ("*": all) and levels whose lines are printed
  Server::Listening listening;                      ///< the Unix socket is in the runtime folder unless given
  Server::Device::Settings device;
  std::optional<Wire::P4InfoFormat> p4info;  ///< printed instead of anything else
  bool cleanup = false;                      ///< the tables are removed instead of anything else
};

/// Reads the command line into `options`. Throws Cairn::Exception saying what was expected and what came.
Process::Action readOptions(int count, char* const* arguments, Options& options);

/// What --help prints.
extern const char* const kHelp;

}  // namespace Agent
