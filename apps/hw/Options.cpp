#include "apps/hw/Options.h"

#include "apps/process/RuntimeFolder.h"

namespace HwAgent {

const char* const kHelp =
    R"(hw-agent: stands in for the hardware agent and the ASIC; answers every config row with a status row

  hw-agent [options]

  -r, --runtime-folder DIR    folder of the shared-memory tables: this user's own, mode 0700, no link;
                              created when missing (default: /dev/shm/tolmar-UID)
  -f, --fail TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE
                              entries with these values in these fields fail with CODE (1 to 65535); may be
                              given more than once. Example: --fail l3IifTH3:l3Iif=99:7
  -F, --faults FILE           more of the kind, one per line, "#" starts a comment; read again on SIGHUP, for
                              the answers from then on. A file with an error changes nothing
  -e, --fail-every N:CODE     every N-th entry of each table fails with CODE
  -d, --delay MILLISECONDS    time from a change to its answer, 0 to 3600000 (default: 0)
  -b, --busy-poll MICROSECONDS
                              after work, look for more for so long before sleeping, 0 to 1000000 (default: 0):
                              answers come sooner, and a processor is busy
      --log-level LEVEL       least level of the lines on standard error: error, warning, info (default) or
                              debug
  -h, --help                  this text
  -V, --version               the version

Follows the tables until SIGTERM or SIGINT. The status tables stay; the next start continues from them.
Removals never fail. Exit code: 0 when stopped, 1 when something failed, 2 for wrong usage.
)";

Process::Action readOptions(int count, char* const* arguments, Options& options) {
  options.runtimeFolder = Process::defaultRuntimeFolder();
  Settings& settings = options.settings;
  Process::CommandLine line;
  line.take("-r,--runtime-folder", [&](const std::string& value) { options.runtimeFolder = value; });
  line.take("-f,--fail", [&](const std::string& value) { settings.faults.push_back(readFault(value)); });
  line.take("-F,--faults", [&](const std::string& value) { options.faultsFile = value; });
  line.take("-e,--fail-every", [&](const std::string& value) { settings.failEvery = readFailEvery(value); });
  line.number<std::uint32_t>("-d,--delay", "milliseconds", 0, 3'600'000,
                             [&](std::uint32_t value) { settings.delay = std::chrono::milliseconds(value); });
  line.number<std::uint32_t>("-b,--busy-poll", "microseconds", 0, 1'000'000, [&](std::uint32_t value) {
    options.busyPoll = std::chrono::microseconds(value);
  });
  return line.read(count, arguments);
}

}  // namespace HwAgent
