#include "apps/agent/Options.h"

#include <filesystem>
#include <string_view>

#include "apps/process/RuntimeFolder.h"
#include "cairn/Exception.h"

namespace Agent {

const char* const kHelp =
    R"(p4rt-agent: serves P4Runtime; writes table entries to the switching ASIC through the plugin

  p4rt-agent [options]                 serves controllers until SIGTERM
  p4rt-agent --p4info [FORMAT]         prints the P4Info: text (default), binary or json
  p4rt-agent [options] --cleanup       removes the tables, with all entries

  -p, --plugin PATH           plugin library (default: TolmarP4RuntimePlugin.so beside this program)
  -r, --runtime-folder DIR    folder of the shared-memory tables: this user's own, mode 0700, no link;
                              created when missing (default: /dev/shm/tolmar-UID)
  -t, --timeout SECONDS       time for the hardware's answer, 0.001 to 3600 (default: 10)
  -b, --busy-poll MICROSECONDS
                              after work, look for more for so long before sleeping, 0 to 1000000 (default: 0):
                              answers come sooner, and a processor is busy
  -T, --trace HANDLE:LEVEL    log the lines of this trace handle ("*": of all) and level (0 to 31); may be
                              given more than once

  -d, --device-id N           the device that controllers name (default: 1)
      --p4runtime-socket PATH Unix socket for controllers (default: p4runtime.sock in the runtime folder)
  -l, --listen ADDRESS:PORT   serve there, too (registered port: 9559); may be given more than once. Other
                              addresses than loopback need TLS or --insecure
      --tls-cert, --tls-key FILE   certificate and key in PEM
      --tls-client-ca FILE    clients must have a certificate of this authority
      --insecure              no TLS, on any address

      --client-timeout SECONDS  for a client to take what is sent to it, 0.001 to 3600 (default: 30)
      --max-message-bytes N   of one request (default: 16777216, 4194304 at least)
      --max-requests N        in flight (default: 256)
      --max-request-bytes N   of all requests in flight, 512 for each update besides (default: 67108864)
      --max-streams N         of controllers (default: 256, which is the least)
      --max-connections N     on each socket (default: 512)
      --max-roles N           remembered (default: 1024, which is the least)
      --max-metadata BYTES    of one entry (default: 1024)
      --details-per-update N  bytes of error details for each update, beside 8192 (default: 100)

      --log-level LEVEL       least level of the lines on standard error: error, warning, info (default) or
                              debug
  -h, --help                  this text
  -V, --version               the version

SIGTERM and SIGINT stop the agent and keep the tables.
Exit code: 0 when stopped, 1 when something failed, 2 for wrong usage.
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

std::pair<std::string, int> traceOf(const std::string& text) {
  const std::size_t colon = std::min(text.rfind(':'), text.size());
  const auto level =
      Process::numberIn(std::string_view(text).substr(std::min(colon + 1, text.size())), 0, 31);
  if (colon != 0 && level) return {text.substr(0, colon), *level};
  throw Cairn::Exception("expected HANDLE:LEVEL with a level from 0 to 31, got \"" + text + "\"");
}

Wire::P4InfoFormat formatOf(const std::string& name) {
  if (name == "text") return Wire::P4InfoFormat::text;
  if (name == "binary") return Wire::P4InfoFormat::binary;
  if (name == "json") return Wire::P4InfoFormat::json;
  throw Cairn::Exception("expected text, binary or json, got \"" + name + "\"");
}

using Process::CommandLine;

template <class Number>
void number(CommandLine& line, const std::string& names, Number low, Number high, Number& place) {
  line.number<Number>(names, "a number", low, high, [&place](Number value) { place = value; });
}

void addGeneral(CommandLine& line, Options& options) {
  line.take("-p,--plugin", [&](const std::string& value) { options.plugin = pluginPath(value); });
  line.take("-r,--runtime-folder", [&](const std::string& value) { options.runtimeFolder = value; });
  line.number<double>("-t,--timeout", "seconds", 0.001, 3600, [&](double seconds) {
    options.timeout = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  });
  line.number<std::uint32_t>("-b,--busy-poll", "microseconds", 0, 1'000'000, [&](std::uint32_t value) {
    options.busyPoll = std::chrono::microseconds(value);
  });
  line.take("-T,--trace", [&](const std::string& value) { options.traces.push_back(traceOf(value)); });
  line.flag("--cleanup", options.cleanup);
  line.take("--p4info", "text", [&](const std::string& value) { options.p4info = formatOf(value); });
}

void addListening(CommandLine& line, Server::Listening& listening) {
  line.take("--p4runtime-socket", [&](const std::string& value) { listening.unixSocket = value; });
  line.take("-l,--listen", [&](const std::string& value) { listening.addresses.push_back(value); });
  const auto tls = [&](const std::string& name, std::string Server::TlsFiles::*file) {
    line.take(name, [&listening, file](const std::string& value) {
      if (!listening.tls) listening.tls.emplace();
      (*listening.tls).*file = value;
    });
  };
  tls("--tls-cert", &Server::TlsFiles::certificate);
  tls("--tls-key", &Server::TlsFiles::key);
  tls("--tls-client-ca", &Server::TlsFiles::clientCa);
  line.flag("--insecure", listening.isInsecureAllowed);
}

void addLimits(CommandLine& line, Options& options) {
  constexpr std::size_t kMegabyte = std::size_t{1} << 20;
  Server::Device::Settings& device = options.device;
  number<std::uint64_t>(line, "-d,--device-id", 1, UINT64_MAX, device.arbitration.device);
  line.number<double>("--client-timeout", "seconds", 0.001, 3600, [&device](double seconds) {
    device.clientTimeout = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  });
  number<std::size_t>(line, "--max-streams", 256, 65'536, device.arbitration.maxStreams);
  number<std::size_t>(line, "--max-roles", 1024, 1'048'576, device.arbitration.maxRoles);
  number<std::size_t>(line, "--max-requests", 1, 65'536, device.maxRequests);
  number<std::size_t>(line, "--max-request-bytes", 4 * kMegabyte, 4096 * kMegabyte, device.maxRequestBytes);
  number<int>(line, "--max-message-bytes", 4 << 20, 256 << 20, options.listening.maxMessageBytes);
  number<std::size_t>(line, "--max-connections", 1, 65'536, options.listening.maxConnections);
  number<std::size_t>(line, "--max-metadata", 0, 65'536, device.maxMetadata);
  number<std::size_t>(line, "--details-per-update", 0, 65'536, device.details.perUpdate);
}

void check(const Options& options) {
  const auto& tls = options.listening.tls;
  if (tls && (tls->certificate.empty() || tls->key.empty())) {
    const bool neither = tls->certificate.empty() && tls->key.empty();
    throw Cairn::Exception(std::string("expected --tls-cert and --tls-key, got ") +
                           (neither ? "--tls-client-ca alone" : "one of them"));
  }
  if (tls && options.listening.addresses.empty()) {
    throw Cairn::Exception("expected --listen beside --tls-cert: the Unix socket is not encrypted");
  }
  if (static_cast<std::size_t>(options.listening.maxMessageBytes) > options.device.maxRequestBytes) {
    throw Cairn::Exception(
        fmt::format("--max-request-bytes: expected --max-message-bytes ({}) at least, got {}",
                    options.listening.maxMessageBytes, options.device.maxRequestBytes));
  }
}

}  // namespace

Process::Action readOptions(int count, char* const* arguments, Options& options) {
  options.plugin = pluginBesideProgram();
  options.runtimeFolder = Process::defaultRuntimeFolder();
  CommandLine line;
  addGeneral(line, options);
  addListening(line, options.listening);
  addLimits(line, options);
  const Process::Action action = line.read(count, arguments);
  if (action == Process::Action::run) check(options);
  return action;
}

}  // namespace Agent
