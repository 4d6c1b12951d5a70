#include "apps/client/Options.h"

#include <unistd.h>

#include "apps/process/RuntimeFolder.h"
#include "cairn/Exception.h"

namespace Client {

const char* const kHelp =
    R"(p4rt-client: writes and reads table entries over P4Runtime

  p4rt-client [options] run SCRIPT...              runs scripts ("-": standard input)
  p4rt-client [options] write VERB TABLE FIELD=VALUE...
                                                   insert, modify or delete one entry
  p4rt-client [options] read [TABLE [FIELD=VALUE...]]
                                                   prints entries, as statements for run
  p4rt-client [options] load VERB TABLE FIRST..LAST[/STEP] [FIELD=VALUE...]
                                                   generated entries: each field holds the number unless given

  -a, --address ADDRESS       Unix socket (a path with a slash) or HOST:PORT (default: p4runtime.sock in the
                              runtime folder). A Unix socket must be served by the same user
  -r, --runtime-folder DIR    of the agent (default: /dev/shm/tolmar-UID)
  -w, --wait SECONDS          wait so long for the server to come, 0 to 3600 (default: 0)
      --tls-ca FILE           HOST:PORT over TLS; the server must have a certificate of this authority
      --tls-cert, --tls-key FILE   of this client, in PEM
  -d, --device-id N           (default: 1)
      --role NAME             (default: the one that may write everything)
      --election-id N         (default: one above the highest that the server knows, so that this client
                              takes over)

      --results FILE          run: one line of JSON for each update
  -c, --color WHEN            run: always, never or auto (default: auto, which means on a terminal)
      --batch N               load: updates in a Write, 1 to 100000 (default: 1000)
      --in-flight N           load: Writes at a time, 1 to 64 (default: 4)
      --log-level LEVEL       least level of the lines on standard error: error, warning, info (default) or
                              debug
  -h, --help                  this text
  -V, --version               the version

Values: decimal, 0x..., true or false (1 bit), MAC, IPv4 and IPv6 addresses where the width fits; VALUE/MASK for
ternary fields. Exit code: 0 when every result was as expected, 1 when not or when something failed, 2 for wrong
usage.
)";

namespace {

bool colourOf(const std::string& when) {
  if (when != "always" && when != "never" && when != "auto") {
    throw Cairn::Exception("expected always, never or auto, got \"" + when + "\"");
  }
  return when == "always" || (when == "auto" && ::isatty(STDOUT_FILENO) != 0);
}

/// A command and the words that it needs at least.
struct Command {
  const char* name;
  std::size_t words;
  const char* expected;
};
constexpr Command kCommands[] = {{"run", 1, "SCRIPT..."},
                                 {"write", 2, "VERB TABLE FIELD=VALUE..."},
                                 {"read", 0, ""},
                                 {"load", 3, "VERB TABLE FIRST..LAST"}};

void takeCommand(Options& options) {
  const std::string got = options.words.empty() ? "nothing" : '"' + options.words[0] + '"';
  for (const Command& command : kCommands) {
    if (options.words.empty() || options.words[0] != command.name) continue;
    options.command = command.name;
    options.words.erase(options.words.begin());
    if (options.words.size() >= command.words) return;
    throw Cairn::Exception(fmt::format("expected {} after {}, got {} words", command.expected, command.name,
                                       options.words.size()));
  }
  throw Cairn::Exception("expected run, write, read or load, got " + got);
}

void addTarget(Process::CommandLine& line, Options& options) {
  Target& target = options.target;
  line.take("-a,--address", [&](const std::string& value) { target.address = value; });
  line.take("-r,--runtime-folder", [&](const std::string& value) { options.runtimeFolder = value; });
  line.number<double>("-w,--wait", "seconds", 0, 3600, [&](double seconds) {
    target.wait = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  });
  line.take("--tls-ca", [&](const std::string& value) { target.tlsCa = value; });
  line.take("--tls-cert", [&](const std::string& value) { target.tlsCert = value; });
  line.take("--tls-key", [&](const std::string& value) { target.tlsKey = value; });
  line.take("--role", [&](const std::string& value) { target.role = value; });
  line.number<std::uint64_t>("-d,--device-id", "a number", 1, UINT64_MAX,
                             [&](std::uint64_t value) { target.device = value; });
  line.number<std::uint64_t>("--election-id", "a number", 0, UINT64_MAX,
                             [&](std::uint64_t value) { target.electionId = value; });
}

void addCommands(Process::CommandLine& line, Options& options) {
  line.operands(options.words);
  line.take("--results", [&](const std::string& value) { options.results = value; });
  line.take("-c,--color", [&](const std::string& value) { options.colour = colourOf(value); });
  line.number<std::size_t>("--batch", "updates", 1, 100'000,
                           [&](std::size_t value) { options.load.batch = value; });
  line.number<std::size_t>("--in-flight", "requests", 1, 64,
                           [&](std::size_t value) { options.load.inFlight = value; });
}

void check(const Target& target) {
  if (target.tlsCert.empty() != target.tlsKey.empty()) {
    throw Cairn::Exception("expected --tls-cert and --tls-key, got one of them");
  }
  if (target.tlsCa.empty() && !target.tlsCert.empty()) {
    throw Cairn::Exception("expected --tls-ca beside --tls-cert, got none");
  }
}

}  // namespace

Process::Action readOptions(int count, char* const* arguments, Options& options) {
  options.runtimeFolder = Process::defaultRuntimeFolder();
  options.colour = colourOf("auto");
  Process::CommandLine line;
  addTarget(line, options);
  addCommands(line, options);
  const Process::Action action = line.read(count, arguments);
  if (action != Process::Action::run) return action;
  takeCommand(options);
  check(options.target);
  if (options.target.address.empty()) options.target.address = options.runtimeFolder + "/p4runtime.sock";
  return action;
}

}  // namespace Client
