// The agent's process.

#include <cerrno>
#include <cstdio>
#include <deque>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <optional>

#include "apps/agent/AgentProcess.h"
#include "apps/agent/Options.h"
#include "apps/agent/ScriptServer.h"
#include "apps/process/RuntimeFolder.h"
#include "apps/process/StopSignals.h"
#include "cairn/Exception.h"
#include "quill/TraceHandle.h"
#include "skein/Skein.h"

namespace {

using Agent::Options;
using Agent::ResultTable;

constexpr std::size_t kTraceBytes = 1u << 20;

std::string readAll(std::istream& in) {
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Script {
  std::string name;
  std::string text;
};

/// The scripts of the command line, all read before anything starts.
std::deque<Script> readScripts(const std::vector<std::string>& paths) {
  std::deque<Script> scripts;
  for (const std::string& path : paths) {
    if (path == "-") {
      scripts.push_back({"standard input", readAll(std::cin)});
      continue;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Cairn::SystemException("script " + path, errno);
    scripts.push_back({path, readAll(file)});
  }
  return scripts;
}

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

/// Runs the scripts one after the other; `done` is told whether every result was as expected.
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

/// True when every result was as expected.
bool runAgent(const Options& options) {
  Quill::EventLoop loop;
  const Process::StopSignals stop(loop, [&loop] { loop.stop(); });
  std::deque<Script> scripts = readScripts(options.scripts);
  Process::requireRuntimeFolder(options.runtimeFolder);
  for (const auto& [handle, level] : options.traces) Quill::TraceHandle::levelIs(handle, level, true);
  Agent::AgentProcess agent(loop, options);
  // Not before the tables are this process's own: another agent's trace would be set aside.
  Skein::ringIs(options.runtimeFolder + "/p4rt-agent.trace", kTraceBytes);
  std::optional<Agent::ScriptServer> server;
  if (!options.socket.empty()) {
    server.emplace(loop, options.socket,
                   [&agent](const std::string& script, Agent::ScriptServer::Client& client) {
                     agent.run(
                         script, [&client](std::string_view text) { client.write(text); },
                         ResultTable::Style::plain, [&client](bool) { client.end(); });
                   });
    print("p4rt-agent: serving " + options.socket + "\n");
  }
  if (scripts.empty()) {
    loop.run();
    return true;
  }
  bool asExpected = false;  // until the scripts are through
  const ScriptQueue queue(agent, std::move(scripts), options.colour, [&](bool result) {
    asExpected = result;
    if (!server) loop.stop();
  });
  loop.run();
  return asExpected;
}

/// True when the agent says of every script that all results were as expected.
bool send(const Options& options) {
  bool asExpected = true;
  for (const Script& script : readScripts(options.scripts)) {
    std::string lastLine;
    Agent::sendScript(options.socket, script.text, [&lastLine](std::string_view text) {
      print(text);
      lastLine += text;
      const std::size_t end = lastLine.rfind('\n', lastLine.size() < 2 ? 0 : lastLine.size() - 2);
      if (end != std::string::npos) lastLine.erase(0, end + 1);
    });
    asExpected = asExpected && lastLine.starts_with("passed: ");
  }
  return asExpected;
}

int usageError(const std::exception& error) {
  std::fprintf(stderr, "p4rt-agent: %s\n", error.what());
  return 2;
}

}  // namespace

int main(int count, char** arguments) {
  Options options;
  try {
    options = Agent::readOptions(count, arguments);
  } catch (const std::exception& error) {
    return usageError(error);
  }
  if (options.action == Options::Action::help) return std::fputs(Agent::kHelp, stdout) < 0 ? 1 : 0;
  if (options.action == Options::Action::version) {
    return std::puts("p4rt-agent " TOLMAR_VERSION) < 0 ? 1 : 0;
  }
  try {
    return (options.action == Options::Action::send ? send(options) : runAgent(options)) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "p4rt-agent: %s\n", error.what());
    return 1;
  }
}
