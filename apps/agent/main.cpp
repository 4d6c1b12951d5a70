// The agent's process.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <deque>
#include <functional>
#include <optional>

#include "apps/agent/AgentProcess.h"
#include "apps/agent/Options.h"
#include "apps/agent/ScriptServer.h"
#include "apps/p4/P4Info.h"
#include "apps/process/Log.h"
#include "apps/process/MainLoop.h"
#include "apps/process/RuntimeFolder.h"
#include "apps/server/GrpcServer.h"
#include "cairn/Exception.h"
#include "quill/TraceHandle.h"
#include "vesta/segment/SegmentGuard.h"

namespace {

using Agent::Options;
using Agent::ResultTable;

struct Script {
  std::string name;
  std::string text;
};

/// The scripts of the command line, all read before anything starts.
std::deque<Script> readScripts(const std::vector<std::string>& paths) {
  std::deque<Script> scripts;
  for (const std::string& path : paths) {
    const std::string name = path == "-" ? "standard input" : path;
    std::FILE* const file = path == "-" ? stdin : std::fopen(path.c_str(), "re");
    if (file == nullptr) throw Cairn::SystemException("script " + name, errno);
    std::string text;
    std::array<char, 65536> bytes;
    while (const std::size_t length = std::fread(bytes.data(), 1, bytes.size(), file)) {
      text.append(bytes.data(), length);
    }
    const int error = std::ferror(file) != 0 ? errno : 0;
    if (file != stdin) std::fclose(file);
    if (error != 0) throw Cairn::SystemException("script " + name, error);
    scripts.push_back({name, std::move(text)});
  }
  return scripts;
}

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

/// Runs the scripts one after the other; `done` receives whether every result was as expected.
class ScriptQueue {
 public:
  ScriptQueue(Agent::AgentProcess& agent, std::deque<Script> scripts, bool colour,
              std::function<void(bool)> done)
      : agent_(agent),
        scripts_(std::move(scripts)),
        style_(colour ? ResultTable::Style::terminal : ResultTable::Style::plain),
        done_(std::move(done)) {
    next();
  }

 private:
  void next() {
    if (scripts_.empty()) return done_(asExpected_);
    const Script script = std::move(scripts_.front());
    scripts_.pop_front();
    print("== " + script.name + "\n");
    agent_.run(script.text, print, style_, [this](bool asExpected) {
      asExpected_ = asExpected_ && asExpected;
      next();
    });
  }

  Agent::AgentProcess& agent_;  // not owned
  std::deque<Script> scripts_;
  ResultTable::Style style_;
  std::function<void(bool)> done_;
  bool asExpected_ = true;
};

void requireKnownHandles(const Options& options) {
  const std::vector<std::string> names = Quill::TraceHandle::names();
  for (const auto& [handle, level] : options.traces) {
    if (handle == "*" || std::find(names.begin(), names.end(), handle) != names.end()) continue;
    throw Process::UsageError("--trace: expected a trace handle (" + Process::listed(names) +
                              ") or \"*\", got \"" + handle + "\"");
  }
}

void runForClient(Agent::AgentProcess& agent, const std::string& script,
                  Agent::ScriptServer::Client& client) {
  try {
    agent.run(
        script, [&client](std::string_view text) { client.write(text); }, ResultTable::Style::plain,
        [&client](bool) { client.end(); });
  } catch (const std::bad_alloc&) {
    client.write("out of memory\n");
    client.end();
  }
}

/// Serves P4Runtime until the loop is stopped, and answers then what is in flight.
void serve(Process::MainLoop& mainLoop, Agent::AgentProcess& agent, const Options& options,
           const std::string& folder, const std::function<void()>& abandoned) {
  Server::Device::Settings settings = options.device;
  settings.runtimeFolder = folder;
  settings.arbitration.takeoverTimeout = options.timeout;
  Server::Device device(
      mainLoop.loop(), agent.core(),
      [&agent](std::vector<Agent::Update> updates, Agent::Atomicity atomicity, Agent::AgentCore::Done done) {
        agent.submit(std::move(updates), atomicity, std::move(done));
      },
      settings);
  Server::Listening listening = options.listening;
  if (listening.unixSocket.empty()) listening.unixSocket = folder + "/p4runtime.sock";
  Server::GrpcServer server(mainLoop.loop(), device, listening);
  Process::log("serving P4Runtime at " + listening.unixSocket);
  for (const std::string& address : listening.addresses) Process::log("serving P4Runtime at " + address);
  mainLoop.run(abandoned);
  constexpr std::chrono::seconds kGrace{1};  // beside the time-out of what is in flight
  server.stop(std::chrono::steady_clock::now() + options.timeout + kGrace);
}

/// Removes the tables and what belongs to their entries; election ids and pipeline config stay.
void cleanUp(Agent::AgentProcess& agent, const std::string& folder) {
  agent.cleanup();
  for (const char* const name : {"p4rt-agent.metadata", "p4rt-agent.undo"}) {
    const std::string path = folder + "/" + name;
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) throw Cairn::SystemException("remove " + path, errno);
  }
  Process::log("removed the tables in " + folder);
}

/// True when every result was as expected.
bool runAgent(const Options& options) {
  std::deque<Script> scripts = readScripts(options.scripts);  // while signals still end the process
  Process::MainLoop mainLoop;
  mainLoop.busyPollIs(options.busyPoll);
  Process::RuntimeFolder folder(options.runtimeFolder);
  folder.lock();
  Process::logLibraries();
  for (const auto& [handle, level] : options.traces) Quill::TraceHandle::levelIs(handle, level, true);
  Agent::AgentProcess agent(mainLoop.loop(), folder.path(), options.plugin, options.timeout,
                            options.device.maxMetadata);
  requireKnownHandles(options);  // those of the plugin exist now
  // Not before the tables are this process's own: another agent's trace would be moved aside.
  folder.trace("p4rt-agent");
  if (options.cleanup) {
    cleanUp(agent, folder.path());
    return true;
  }
  const auto abandoned = [&agent] { agent.recover(); };
  std::optional<Agent::ScriptServer> server;
  if (!options.serveAt.empty()) {
    server.emplace(mainLoop.loop(), options.serveAt,
                   [&agent](const std::string& script, Agent::ScriptServer::Client& client) {
                     runForClient(agent, script, client);
                   });
    Process::log("serving " + options.serveAt);
  }
  if (scripts.empty()) {
    serve(mainLoop, agent, options, folder.path(), abandoned);
    return true;
  }
  std::optional<bool> asExpected;  // none until the scripts have ended
  const ScriptQueue queue(agent, std::move(scripts), options.colour, [&](bool result) {
    asExpected = result;
    if (!server) mainLoop.loop().stop();
  });
  mainLoop.run(abandoned);
  if (!asExpected) throw Cairn::Exception("stopped before the scripts had ended");
  return *asExpected;
}

/// True when the agent reports for every script that all results were as expected.
bool send(const Options& options) {
  bool asExpected = true;
  for (const Script& script : readScripts(options.scripts)) {
    std::string lastLine;
    Agent::sendScript(options.sendTo, script.text, [&lastLine](std::string_view text) {
      print(text);
      lastLine += text;
      const std::size_t end = lastLine.rfind('\n', lastLine.size() < 2 ? 0 : lastLine.size() - 2);
      if (end != std::string::npos) lastLine.erase(0, end + 1);
    });
    asExpected = asExpected && lastLine.starts_with("passed: ");
  }
  return asExpected;
}

}  // namespace

int main(int count, char** arguments) {
  Vesta::installSegmentGuard();
  std::signal(SIGPIPE, SIG_IGN);
  Options options;
  return Process::run(
      "p4rt-agent", Agent::kHelp, [&] { return Agent::readOptions(count, arguments, options); },
      [&] {
        if (options.p4info) {
          print(Wire::formatted(Wire::p4InfoOf(Wire::Pipeline(Wire::outputTables())), *options.p4info));
          return true;
        }
        return options.sendTo.empty() ? runAgent(options) : send(options);
      });
}
