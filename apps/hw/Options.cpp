#include "apps/hw/Options.h"

#include <getopt.h>

#include <charconv>
#include <string_view>

#include "apps/process/RuntimeFolder.h"
#include "cairn/Exception.h"

namespace HwAgent {

const char* const kHelp =
    "hw-agent: plays the hardware programming agent and the ASIC; answers every config row with a status "
    "row\n"
    "\n"
    "  hw-agent [options]\n"
    "\n"
    "  -r, --runtime-folder DIR    folder of the shared-memory tables, this user's own with rights 0700; "
    "made\n"
    "                              when missing (default: /dev/shm/tolmar-UID)\n"
    "  -f, --fail TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE\n"
    "                              entries with these values in these key fields fail with CODE (1 to "
    "65535);\n"
    "                              may be given more than once. Example: --fail l3IifTH3:l3Iif=99:7\n"
    "  -e, --fail-every N:CODE     every N-th entry of each table fails with CODE\n"
    "  -d, --delay MILLISECONDS    time from a change to its answer, 0 to 3600000 (default: 0)\n"
    "  -h, --help                  this text\n"
    "  -V, --version               the version\n"
    "\n"
    "Follows the tables until SIGTERM or SIGINT; the status tables stay and are gone on from at the next "
    "start.\n"
    "Removals never fail. Exit code: 0 when stopped, 1 when something failed, 2 for wrong usage.\n";

namespace {

std::chrono::milliseconds delayOf(std::string_view text) {
  std::uint32_t milliseconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), milliseconds);
  if (error != std::errc{} || end != text.data() + text.size() || milliseconds > 3'600'000) {
    throw Cairn::Exception("--delay: expected milliseconds from 0 to 3600000, got \"" + std::string(text) +
                           "\"");
  }
  return std::chrono::milliseconds(milliseconds);
}

constexpr option kOptions[] = {{"runtime-folder", required_argument, nullptr, 'r'},
                               {"fail", required_argument, nullptr, 'f'},
                               {"fail-every", required_argument, nullptr, 'e'},
                               {"delay", required_argument, nullptr, 'd'},
                               {"help", no_argument, nullptr, 'h'},
                               {"version", no_argument, nullptr, 'V'},
                               {nullptr, 0, nullptr, 0}};

}  // namespace

Options readOptions(int count, char* const* arguments) {
  Options options;
  options.runtimeFolder = Process::defaultRuntimeFolder();
  optind = 0;
  opterr = 0;
  for (int letter = 0; (letter = ::getopt_long(count, arguments, ":r:f:e:d:hV", kOptions, nullptr)) != -1;) {
    switch (letter) {
      case 'r':
        options.runtimeFolder = optarg;
        break;
      case 'f':
        options.settings.fails.push_back(readFail(optarg));
        break;
      case 'e':
        options.settings.failEvery = readFailEvery(optarg);
        break;
      case 'd':
        options.settings.delay = delayOf(optarg);
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
  if (optind < count) throw Cairn::Exception(std::string("expected options only, got ") + arguments[optind]);
  return options;
}

}  // namespace HwAgent
