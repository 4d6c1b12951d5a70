// The agent's process.

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>

#include "apps/agent/AgentProcess.h"
#include "apps/agent/Options.h"
#include "apps/agent/ScriptServer.h"
#include "apps/process/RuntimeFolder.h"
#include "apps/process/StopSignals.h"
#include "cairn/Exception.h"

namespace {

using Agent::Options;
using Agent::ResultTable;

std::string readAll(std::istream& in) {
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// The scripts of the command line, read before anything starts, one after the other.
std::string readScripts(const std::vector<std::string>& paths) {
  std::string scripts;
  for (const std::string& path : paths) {
    if (path == "-") {
      scripts += readAll(std::cin);
    } else {
      std::ifstream file(path, std::ios::binary);
      if (!file) throw Cairn::SystemException("script " + path, errno);
      scripts += readAll(file);
    }
    if (!scripts.empty() && scripts.back() != '\n') scripts += '\n';
  }
  return scripts;
}

void print(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

/// True when every result was as expected.
bool runAgent(const Options& options) {
  Quill::EventLoop loop;
  const Process::StopSignals stop(loop, [&loop] { loop.stop(); });
  const std::string scripts = readScripts(options.scripts);
  Process::requireRuntimeFolder(options.runtimeFolder);
  Agent::AgentProcess agent(loop, options);
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
  bool asExpected = true;
  if (!options.scripts.empty()) {
    const auto style =
        ::isatty(STDOUT_FILENO) != 0 ? ResultTable::Style::terminal : ResultTable::Style::plain;
    asExpected = false;  // until the scripts are through
    agent.run(scripts, print, style, [&](bool result) {
      asExpected = result;
      if (!server) loop.stop();
    });
  }
  loop.run();
  return asExpected;
}

/// True when the agent says that every result was as expected.
bool send(const Options& options) {
  std::string last;
  Agent::sendScript(options.socket, readScripts(options.scripts), [&last](std::string_view text) {
    print(text);
    last += text;
    const std::size_t end = last.rfind('\n', last.size() < 2 ? 0 : last.size() - 2);
    if (end != std::string::npos) last.erase(0, end + 1);
  });
  return last.starts_with("passed: ");
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
