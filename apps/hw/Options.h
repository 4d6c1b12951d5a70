#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/process/CommandLine.h"

namespace HwAgent {

/// Entries of one table that fail to be programmed: those whose key has these values in these fields.
struct FailOption {
  std::string table;
  std::vector<std::pair<std::string, std::string>> fields;
  std::uint16_t code;
};

/// Reads "TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE". Throws Cairn::Exception saying what was expected.
FailOption readFail(std::string_view text);

/// Every `every`-th entry of a table fails with `code`; none when `every` is 0.
struct FailEveryOption {
  std::uint64_t every = 0;
  std::uint16_t code = 0;
};

/// Reads "N:CODE".
FailEveryOption readFailEvery(std::string_view text);

/// How entries are answered.
struct Settings {
  std::vector<FailOption> fails;
  FailEveryOption failEvery;
  std::chrono::milliseconds delay{0};  ///< from a change to its answer
};

struct Options {
  std::string runtimeFolder;
  std::chrono::microseconds busyPoll{0};
  Settings settings;
};

/// Reads the command line into `options`. Throws Cairn::Exception saying what was expected and what came.
Process::Action readOptions(int count, char* const* arguments, Options& options);

/// What --help prints.
extern const char* const kHelp;

}  // namespace HwAgent
