#include "apps/agent/Options.h"

#include <unistd.h>

#include <filesystem>
#include <string_view>

#include "apps/process/MainLoop.h"
#include "apps/process/RuntimeFolder.h"
#include "cairn/Exception.h"

namespace Agent {

const char* const kHelp =
    R"(p4rt-agent: writes table entries to the switching ASIC through the plugin and reports every result

  p4rt-agent [options] [SCRIPT...]     runs the scripts ("-": standard input); with --socket, then serves
                                       until SIGTERM
  p4rt-agent --send SOCKET SCRIPT...   sends the scripts to a running agent and prints its answers

  -p, --plugin PATH           plugin library (default: TolmarP4RuntimePlugin.so beside this program)
  -r, --runtime-folder DIR    folder of the shared-memory tables: this user's own, mode 0700, no link;
                              created when missing (default: /dev/shm/tolmar-UID)
  -s, --socket PATH           Unix socket on which scripts are accepted: connect, write the script, shut down
                              writing, read the results
  -S, --send SOCKET           send the scripts to the agent that serves this socket
  -t, --timeout SECONDS       time for the hardware's answer, 0.001 to 3600 (default: 10)
  -b, --busy-poll MICROSECONDS
                              after work, look for more for so long before sleeping, 0 to 1000000 (default: 0):
                              answers come sooner, and a processor is busy
  -c, --color WHEN            colours and progress in place: always, never or auto (default: auto, which means
                              on a terminal)
  -T, --trace HANDLE:LEVEL    log the lines of this trace handle ("*": of all) and level (0 to 31); may be
                              given more than once
  -h, --help                  this text
  -V, --version               the version

SIGTERM and SIGINT stop the agent and keep the tables; a script's "cleanup" removes them.
Exit code: 0 when every result was as expected, 1 when not or when something failed, 2 for wrong usage.
)";

namespace {

std::string pluginBesideProgram() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / "TolmarP4RuntimePlugin.so").string();
}

/// A name without a slash is looked for by the loader elsewhere than in the current folder.
std::string pluginPath(const std::string& path) {
  return path.find('/') == std::string::npos ? "./" + path : path;
}

std::chrono::milliseconds timeoutOf(const std::string& text) {
  const auto seconds = Process::numberIn(text, 0.001, 3600.0);
  if (seconds) return std::chrono::milliseconds(static_cast<std::int64_t>(*seconds * 1000));
  throw Cairn::Exception("--timeout: expected seconds from 0.001 to 3600, got \"" + text + "\"");
}

bool colourOf(const std::string& when) {
  if (when != "always" && when != "never" && when != "auto") {
    throw Cairn::Exception("--color: expected always, never or auto, got \"" + when + "\"");
  }
  return when == "always" || (when == "auto" && ::isatty(STDOUT_FILENO) != 0);
}

std::pair<std::string, int> traceOf(const std::string& text) {
  const std::size_t colon = std::min(text.rfind(':'), text.size());
  const auto level =
      Process::numberIn(std::string_view(text).substr(std::min(colon + 1, text.size())), 0, 31);
  if (colon != 0 && level) return {text.substr(0, colon), *level};
  throw Cairn::Exception("--trace: expected HANDLE:LEVEL with a level from 0 to 31, got \"" + text + "\"");
}

}  // namespace

Process::Action readOptions(int count, char* const* arguments, Options& options) {
  options.plugin = pluginBesideProgram();
  options.runtimeFolder = Process::defaultRuntimeFolder();
  options.colour = colourOf("auto");
  const Process::Option known[] = {
      {'p', "plugin", [&](const std::string& value) { options.plugin = pluginPath(value); }},
      {'r', "runtime-folder", [&](const std::string& value) { options.runtimeFolder = value; }},
      {'s', "socket", [&](const std::string& value) { options.serveAt = value; }},
      {'S', "send", [&](const std::string& value) { options.sendTo = value; }},
      {'t', "timeout", [&](const std::string& value) { options.timeout = timeoutOf(value); }},
      {'b', "busy-poll", [&](const std::string& value) { options.busyPoll = Process::busyPollOf(value); }},
      {'c', "color", [&](const std::string& value) { options.colour = colourOf(value); }},
      {'T', "trace", [&](const std::string& value) { options.traces.push_back(traceOf(value)); }},
  };
  const Process::Action action = Process::readCommandLine(count, arguments, known, options.scripts);
  if (action != Process::Action::run) return action;
  if (!options.serveAt.empty() && !options.sendTo.empty()) {
    throw Cairn::Exception("expected --socket or --send, got both");
  }
  if (options.scripts.empty() && options.serveAt.empty()) {
    throw Cairn::Exception("expected a script (\"-\" for standard input) or --socket, got neither");
  }
  return action;
}

}  // namespace Agent
