#include "apps/hw/Options.h"

#include "apps/hw/Tables.h"
#include "apps/process/MainLoop.h"
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
  -b, --busy-poll MICROSECONDS
                              after work, look for more for so long before sleeping, 0 to 1000000 (default: 0):
                              answers come sooner, and a processor is busy
  -h, --help                  this text
  -V, --version               the version

Follows the tables until SIGTERM or SIGINT. The status tables stay; the next start continues from them.
Removals never fail. Exit code: 0 when stopped, 1 when something failed, 2 for wrong usage.
)";

namespace {

[[noreturn]] void refuse(const char* option, const std::string& expected, std::string_view got) {
  throw Cairn::Exception(std::string(option) + ": expected " + expected + ", got \"" + std::string(got) +
                         "\"");
}

std::uint16_t codeOf(const char* option, std::string_view text) {
  const auto code = Process::numberIn<std::uint16_t>(text, 1, 65535);
  if (!code) refuse(option, "a code from 1 to 65535", text);
  return *code;
}

std::chrono::milliseconds delayOf(const std::string& text) {
  const auto milliseconds = Process::numberIn<std::uint32_t>(text, 0, 3'600'000);
  if (!milliseconds) refuse("--delay", "milliseconds from 0 to 3600000", text);
  return std::chrono::milliseconds(*milliseconds);
}

}  // namespace

FailOption readFail(std::string_view text) {
  // IPv6 addresses have colons of their own: the table ends at the first, the code begins at the last.
  const std::size_t first = text.find(':');
  const std::size_t last = text.rfind(':');
  if (first == last) refuse("--fail", "TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE", text);
  FailOption option{std::string(text.substr(0, first)), {}, codeOf("--fail", text.substr(last + 1))};
  std::string_view fields = text.substr(first + 1, last - first - 1);
  if (fields.empty()) refuse("--fail", "at least one FIELD=VALUE", text);
  for (bool more = true; more;) {
    const std::size_t comma = fields.find(',');
    const std::string_view field = fields.substr(0, comma);
    const std::size_t equals = field.find('=');
    if (equals == std::string_view::npos || equals == 0) refuse("--fail", "FIELD=VALUE", field);
    option.fields.emplace_back(field.substr(0, equals), field.substr(equals + 1));
    more = comma != std::string_view::npos;
    if (more) fields.remove_prefix(comma + 1);
  }
  return option;
}

FailEveryOption readFailEvery(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) refuse("--fail-every", "N:CODE", text);
  const auto every = Process::numberIn<std::uint64_t>(text.substr(0, colon), 1, ~std::uint64_t{0});
  if (!every) refuse("--fail-every", "a number above 0", text.substr(0, colon));
  return {*every, codeOf("--fail-every", text.substr(colon + 1))};
}

Process::Action readOptions(int count, char* const* arguments, Options& options) {
  options.runtimeFolder = Process::defaultRuntimeFolder();
  const Process::Option known[] = {
      {'r', "runtime-folder", [&](const std::string& value) { options.runtimeFolder = value; }},
      {'f', "fail", [&](const std::string& value) { options.settings.fails.push_back(readFail(value)); }},
      {'e', "fail-every",
       [&](const std::string& value) { options.settings.failEvery = readFailEvery(value); }},
      {'d', "delay", [&](const std::string& value) { options.settings.delay = delayOf(value); }},
      {'b', "busy-poll", [&](const std::string& value) { options.busyPoll = Process::busyPollOf(value); }},
  };
  std::vector<std::string> operands;
  const Process::Action action = Process::readCommandLine(count, arguments, known, operands);
  if (!operands.empty()) throw Cairn::Exception("expected options only, got " + operands[0]);
  if (action == Process::Action::run) checkFaults(options.settings);
  return action;
}

}  // namespace HwAgent
