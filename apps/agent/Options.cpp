#include "apps/agent/Options.h"

#include <getopt.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <string_view>

#include "apps/process/RuntimeFolder.h"
#include "cairn/Exception.h"

namespace Agent {

const char* const kHelp =
    "p4rt-agent: writes table entries to the switching ASIC through the plugin and reports every result\n"
    "\n"
    "  p4rt-agent [options] [SCRIPT...]     runs the scripts (\"-\": standard input); with --socket goes on "
    "to\n"
    "                                       serve until SIGTERM\n"
    "  p4rt-agent --send SOCKET SCRIPT...   sends the scripts to a running agent and prints what it answers\n"
    "\n"
    "  -p, --plugin PATH           plugin library (default: TolmarP4RuntimePlugin.so beside this program)\n"
    "  -r, --runtime-folder DIR    folder of the shared-memory tables, this user's own with rights 0700; "
    "made\n"
    "                              when missing (default: /dev/shm/tolmar-UID)\n"
    "  -s, --socket PATH           Unix socket on which scripts are taken: connect, write the script, shut "
    "down\n"
    "                              writing, read the results\n"
    "  -S, --send SOCKET           send the scripts to the agent that serves this socket\n"
    "  -t, --timeout SECONDS       time for the hardware's answer, 0.001 to 3600 (default: 10)\n"
    "  -c, --color WHEN            colours and progress in place: always, never or auto (default: auto, on "
    "a\n"
    "                              terminal)\n"
    "  -T, --trace HANDLE:LEVEL    print the trace lines of this handle (\"*\": of all) and level (0 to 31) "
    "to\n"
    "                              standard error; may be given more than once\n"
    "  -h, --help                  this text\n"
    "  -V, --version               the version\n"
    "\n"
    "SIGTERM and SIGINT stop the agent and keep the tables; a script's \"cleanup\" removes them.\n"
    "Exit code: 0 when every result was as expected, 1 when not or when something failed, 2 for wrong "
    "usage.\n";

namespace {

std::string pluginBesideProgram() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  return (program.parent_path() / "TolmarP4RuntimePlugin.so").string();
}

std::chrono::milliseconds timeoutOf(std::string_view text) {
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc{} || end != text.data() + text.size() || !(seconds >= 0.001 && seconds <= 3600)) {
    throw Cairn::Exception("--timeout: expected seconds from 0.001 to 3600, got \"" + std::string(text) +
                           "\"");
  }
  return std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

bool colourOf(std::string_view when) {
  if (when != "always" && when != "never" && when != "auto") {
    throw Cairn::Exception("--color: expected always, never or auto, got \"" + std::string(when) + "\"");
  }
  return when == "always" || (when == "auto" && ::isatty(STDOUT_FILENO) != 0);
}

std::pair<std::string, int> traceOf(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  const std::string_view level = colon == std::string_view::npos ? "" : text.substr(colon + 1);
  unsigned number = 0;
  const auto [end, error] = std::from_chars(level.data(), level.data() + level.size(), number);
  if (colon == 0 || error != std::errc{} || end != level.data() + level.size() || number > 31) {
    throw Cairn::Exception("--trace: expected HANDLE:LEVEL with a level from 0 to 31, got \"" +
                           std::string(text) + "\"");
  }
  return {std::string(text.substr(0, colon)), static_cast<int>(number)};
}

constexpr option kOptions[] = {
    {"plugin", required_argument, nullptr, 'p'},  {"runtime-folder", required_argument, nullptr, 'r'},
    {"socket", required_argument, nullptr, 's'},  {"send", required_argument, nullptr, 'S'},
    {"timeout", required_argument, nullptr, 't'}, {"color", required_argument, nullptr, 'c'},
    {"trace", required_argument, nullptr, 'T'},   {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},       {nullptr, 0, nullptr, 0}};

}  // namespace

Options readOptions(int count, char* const* arguments) {
  Options options;
  options.plugin = pluginBesideProgram();
  options.runtimeFolder = Process::defaultRuntimeFolder();
  options.colour = colourOf("auto");
  optind = 0;
  opterr = 0;
  for (int letter = 0;
       (letter = ::getopt_long(count, arguments, ":p:r:s:S:t:c:T:hV", kOptions, nullptr)) != -1;) {
    switch (letter) {
      case 'p':
        options.plugin = optarg;
        break;
      case 'r':
        options.runtimeFolder = optarg;
        break;
      case 's':
        options.socket = optarg;
        break;
      case 'S':
        options.action = Options::Action::send;
        options.socket = optarg;
        break;
      case 't':
        options.timeout = timeoutOf(optarg);
        break;
      case 'c':
        options.colour = colourOf(optarg);
        break;
      case 'T':
        options.traces.push_back(traceOf(optarg));
        break;
      case 'h':
        options.action = Options::Action::help;
        return options;
      case 'V':
        options.action = Options::Action::version;
        return options;
      case ':':
        throw Cairn::Exception(std::string("expected a value after ") + arguments[optind - 1] + ", got none");
      default:
        throw Cairn::Exception(std::string("expected an option of --help, got ") + arguments[optind - 1]);
    }
  }
  options.scripts.assign(arguments + optind, arguments + count);
  if (options.scripts.empty() && (options.action == Options::Action::send || options.socket.empty())) {
    throw Cairn::Exception("expected a script (\"-\" for standard input) or --socket, got neither");
  }
  return options;
}

}  // namespace Agent
