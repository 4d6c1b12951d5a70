#include "apps/hw/Options.h"

#include "apps/process/RuntimeFolder.h"
#include "cairn/Exception.h"

namespace HwAgent {

const char* const kHelp =
    R"(hw-agent: stands in for the hardware agent and the ASIC; answers every config row with a status row

  hw-agent [options]

  -r, --runtime-folder DIR    folder of the shared-memory tables: this user's own, mode 0700, no link;
                              created when missing (default: /dev/shm/tolmar-UID)
  -f, --fail TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE
                              entries with these values in these key fields fail with CODE (1 to 65535); may
                              be given more than once. Example: --fail l3IifTH3:l3Iif=99:7
  -e, --fail-every N:CODE     every N-th entry of each table fails with CODE
  -d, --delay MILLISECONDS    time from a change to its answer, 0 to 3600000 (default: 0)
  -h, --help                  this text
  -V, --version               the version

Follows the tables until SIGTERM or SIGINT. The status tables stay; the next start continues from them.
Removals never fail. Exit code: 0 when stopped, 1 when something failed, 2 for wrong usage.
)";

namespace {

std::chrono::milliseconds delayOf(const std::string& text) {
  const auto milliseconds = Process::numberIn<std::uint32_t>(text, 0, 3'600'000);
  if (milliseconds) return std::chrono::milliseconds(*milliseconds);
  throw Cairn::Exception("--delay: expected milliseconds from 0 to 3600000, got \"" + text + "\"");
}

}  // namespace

Process::Action readOptions(int count, char* const* arguments, Options& options) {
  options.runtimeFolder = Process::defaultRuntimeFolder();
  const Process::Option known[] = {
      {'r', "runtime-folder", [&](const std::string& value) { options.runtimeFolder = value; }},
      {'f', "fail", [&](const std::string& value) { options.settings.fails.push_back(readFail(value)); }},
      {'e', "fail-every",
       [&](const std::string& value) { options.settings.failEvery = readFailEvery(value); }},
      {'d', "delay", [&](const std::string& value) { options.settings.delay = delayOf(value); }},
  };
  std::vector<std::string> operands;
  const Process::Action action = Process::readCommandLine(count, arguments, known, operands);
  if (!operands.empty()) throw Cairn::Exception("expected options only, got " + operands[0]);
  if (action == Process::Action::run) checkFaults(options.settings);
  return action;
}

}  // namespace HwAgent
