// The agent's process.

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>

#include "apps/agent/AgentProcess.h"
#include "apps/agent/Options.h"
#include "apps/counters/CounterFile.h"
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
using Process::LogLevel;

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void requireKnownHandles(const Options& options) {
  const std::vector<std::string> names = Quill::TraceHandle::names();
  for (const auto& [handle, level] : options.traces) {
    if (handle == "*" || std::find(names.begin(), names.end(), handle) != names.end()) continue;
    throw Process::UsageError("--trace: expected a trace handle (" + Process::listed(names) +
                              ") or \"*\", got \"" + handle + "\"");
  }
}

/// Serves P4Runtime until the loop is stopped, and answers then what is in flight.
void serve(Process::MainLoop& mainLoop, Agent::AgentProcess& agent, const Options& options,
           const std::string& folder, const std::function<void()>& abandoned,
           Counters::AgentCounters* counters) {
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
  Process::log(LogLevel::info, "serving P4Runtime at " + listening.unixSocket);
  for (const std::string& address : listening.addresses)
    Process::log(LogLevel::info, "serving P4Runtime at " + address);
  constexpr std::chrono::milliseconds kCountEvery{400};
  const auto timer = mainLoop.loop().periodicTimerIs(kCountEvery, [&] {
    if (counters == nullptr) return;
    device.count(counters->server);
    server.count(counters->server);
  });
  mainLoop.run(abandoned);
  mainLoop.loop().timerDel(timer);
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
  Process::log(LogLevel::info, "removed the tables in " + folder);
}

void runAgent(const Options& options, const std::string& commandLine) {
  Process::MainLoop mainLoop;
  mainLoop.busyPollIs(options.busyPoll);
  Process::RuntimeFolder folder(options.runtimeFolder);
  folder.lock();
  Process::logLibraries();
  const auto counters =
      Counters::makeCounters<Counters::AgentCounters>(folder.path() + "/p4rt-agent.counters", commandLine);
  for (const auto& [handle, level] : options.traces) Quill::TraceHandle::levelIs(handle, level, true);
  Agent::AgentProcess agent(mainLoop.loop(), folder.path(), options.plugin, options.timeout,
                            options.device.maxMetadata, counters ? &counters->words() : nullptr);
  requireKnownHandles(options);  // those of the plugin exist now
  // Not before the start can fail no more: those of the agent before it would be moved aside.
  folder.trace("p4rt-agent");
  Counters::publish(counters);
  if (options.cleanup) return cleanUp(agent, folder.path());
  serve(
      mainLoop, agent, options, folder.path(), [&agent] { agent.recover(); },
      counters ? &counters->words() : nullptr);
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
        } else {
          runAgent(options, Counters::optionsText(count, arguments));
        }
        return true;
      });
}
