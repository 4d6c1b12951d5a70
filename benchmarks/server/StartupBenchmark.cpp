// How long an agent takes to serve and how much memory it needs, with empty and with four full tables, beside
// a bare gRPC service.
//
//   startup_bench [--rounds N] [--tsv]
#include <signal.h>

#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "BareService.h"
#include "Controller.h"
#include "benchmarks/rounds/Rounds.h"
#include "cairn/Exception.h"
#include "tests/RuntimeFolder.h"
#include "tests/end_to_end/Program.h"

namespace {

/// Megabytes that /proc states under `what` for the process.
double megabytes(pid_t process, const std::string& what) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with(what + ":")) return std::stod(line.substr(what.size() + 1)) / 1024;
  }
  throw Cairn::Exception("expected " + what + " in the status of a process, got none");
}

std::unique_ptr<Program> started(const std::vector<std::string>& command, const char* ready) {
  auto program = std::make_unique<Program>(command);
  if (!program->says(ready)) throw Cairn::Exception(command[0] + ": " + program->output());
  return program;
}

/// A contestant starts a program that is ready to serve.
void measure(std::size_t contestant, const std::function<std::unique_ptr<Program>()>& start,
             Rounds::Report& report) {
  std::unique_ptr<Program> program;
  report.add(contestant, "start-up", "ms", 1e3 * Rounds::secondsOf([&] { program = start(); }));
  report.add(contestant, "resident memory", "MB", megabytes(program->pid(), "VmRSS"));
  report.add(contestant, "resident memory, shared", "MB", megabytes(program->pid(), "RssShmem"));
  report.add(contestant, "resident memory, its own", "MB", megabytes(program->pid(), "RssAnon"));
  program->signal(SIGTERM);
  program->exitCode();
}

/// Tables in a folder of their own and the hardware agent that answers for them.
struct Device {
  RuntimeFolder folder{"/dev/shm"};
  std::unique_ptr<Program> hardware = started({HW_AGENT, "-r", folder.path()}, "following the tables");

  std::unique_ptr<Program> startAgent() const {
    return started({P4RT_AGENT, "-r", folder.path()}, "serving P4Runtime at");
  }
};

void fill(const Device& device) {
  const auto agent = device.startAgent();
  Controller(device.folder.path() + "/p4runtime.sock", Controller::Arbitration::primary).fillAll();
  agent->signal(SIGTERM);
  agent->exitCode();
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count == 3 && std::strcmp(arguments[1], "--serve") == 0) serveBare(arguments[2], false);
    const Rounds::Plan plan = Rounds::planOf({arguments + 1, arguments + count}, {});
    Rounds::Report report({"service", "empty agent", "full agent"}, plan);
    const RuntimeFolder bare("/dev/shm");
    const Device empty;
    const Device full;
    fill(full);
    Rounds::each(plan, [&](std::size_t) {
      measure(
          0,
          [&] {
            return started({"/proc/self/exe", "--serve", bare.path() + "/socket"}, "serving");
          },
          report);
      measure(
          1, [&] { return empty.startAgent(); }, report);
      measure(
          2, [&] { return full.startAgent(); }, report);
    });
    report.print();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "startup_bench: %s\n", error.what());
    return 1;
  }
}
