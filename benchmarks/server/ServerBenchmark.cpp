// Measures the P4Runtime server, agent and hardware agent as processes of their own, beside two yardsticks: a
// bare gRPC service, and the same with two bare tables to another process and back behind it (single updates
// alone).
//
//   server_bench [--rounds N] [--only service|tables|agent] [--rows N] [--busy-poll MICROSECONDS] [--tsv]
//
// With --rows, batches of that size alone, for a profiler; --busy-poll is that of agent and hardware agent.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BareService.h"
#include "Controller.h"
#include "benchmarks/rounds/Rounds.h"
#include "cairn/Exception.h"
#include "tests/RuntimeFolder.h"
#include "tests/end_to_end/Program.h"

namespace {

constexpr std::size_t kSingles = 500;
constexpr std::size_t kUpdatesPerRound = 16'384;
constexpr std::size_t kRequestsPerRound = 200;

const std::vector<std::string> kNames{"service", "tables", "agent"};

/// A server as processes of its own, and a client of it.
struct Contestant {
  RuntimeFolder folder{"/dev/shm"};
  std::vector<std::unique_ptr<Program>> programs;
  std::optional<Controller> controller;

  /// That all threads of the programs have used so far.
  double processorSeconds() const {
    double nanoseconds = 0;
    for (const auto& program : programs) {
      const std::string tasks = "/proc/" + std::to_string(program->pid()) + "/task";
      for (const auto& task : std::filesystem::directory_iterator(tasks)) {
        std::uint64_t running = 0;
        if (std::ifstream(task.path() / "schedstat") >> running) nanoseconds += static_cast<double>(running);
      }
    }
    return nanoseconds / 1e9;
  }
  void start(const std::vector<std::string>& command, const char* ready) {
    programs.push_back(std::make_unique<Program>(command));
    if (!programs.back()->says(ready)) throw Cairn::Exception(command[0] + ": " + programs.back()->output());
  }
};

std::unique_ptr<Contestant> make(const std::string& name, const Rounds::Plan& plan) {
  auto made = std::make_unique<Contestant>();
  const std::string& folder = made->folder.path();
  if (name != "agent") {
    made->start({"/proc/self/exe", "--serve", name, folder + "/socket"}, "serving");
    made->controller.emplace(folder + "/socket", Controller::Arbitration::none);
    return made;
  }
  const std::string busyPoll = std::to_string(plan.busyPoll.count());
  made->start({HW_AGENT, "-r", folder, "--busy-poll", busyPoll}, "following the tables");
  made->start({P4RT_AGENT, "-r", folder, "--busy-poll", busyPoll}, "serving P4Runtime at");
  made->controller.emplace(folder + "/p4runtime.sock", Controller::Arbitration::primary);
  made->controller->fill("l3IifTH3");
  return made;
}

std::vector<double> oneAtATime(Controller& controller) {
  std::vector<double> times;
  for (std::size_t i = 0; i < kSingles; ++i) {
    times.push_back(1e6 * Rounds::secondsOf([&controller] { controller.modify(1, 1, 1); }));
  }
  return times;
}

void inBatches(Contestant& contestant, std::size_t updates, std::size_t inFlight, std::size_t number,
               Rounds::Report& report) {
  const std::size_t requests =
      std::clamp(kUpdatesPerRound / updates, std::size_t{4}, kRequestsPerRound) * inFlight;
  const auto all = static_cast<double>(requests * updates);
  const double before = contestant.processorSeconds();
  const double seconds =
      Rounds::secondsOf([&] { contestant.controller->modify(requests, updates, inFlight); });
  const std::string name =
      "batches of " + std::to_string(updates) + ", " + std::to_string(inFlight) + " in flight";
  report.add(number, name, "updates/s", all / seconds);
  report.add(number, name + ", processor", "ns/update", 1e9 * (contestant.processorSeconds() - before) / all);
}

/// Every measure for all contestants before the next measure.
void run(std::vector<std::pair<std::string, std::unique_ptr<Contestant>>>& contestants,
         const Rounds::Plan& plan, Rounds::Report& report) {
  Rounds::each(plan, [&](std::size_t round) {
    const auto each = [&](const auto& measure) {
      Rounds::inTurn(round, contestants.size(), [&](std::size_t i) { measure(i, *contestants[i].second); });
    };
    if (plan.oneAtATime) {
      each([&](std::size_t i, Contestant& contestant) {
        report.addTimes(i, "one at a time", oneAtATime(*contestant.controller));
      });
    }
    for (const std::size_t updates : plan.batches) {
      for (const std::size_t inFlight : {std::size_t{1}, std::size_t{4}}) {
        each([&](std::size_t i, Contestant& contestant) {
          if (contestants[i].first == "tables" && updates != 1) return;
          inBatches(contestant, updates, inFlight, i, report);
        });
      }
    }
  });
}

}  // namespace

int main(int count, char** arguments) {
  try {
    if (count == 4 && std::strcmp(arguments[1], "--serve") == 0) {
      serveBare(arguments[3], std::strcmp(arguments[2], "tables") == 0);
    }
    const Rounds::Plan plan = Rounds::planOf({arguments + 1, arguments + count}, kNames);
    std::vector<std::pair<std::string, std::unique_ptr<Contestant>>> contestants;
    for (const std::string& name : kNames) {
      if (plan.only.empty() || plan.only == name) contestants.emplace_back(name, make(name, plan));
    }
    std::vector<std::string> names;
    for (const auto& [name, contestant] : contestants) names.push_back(name);
    Rounds::Report report(names, plan);
    run(contestants, plan, report);
    report.print();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "server_bench: %s\n", error.what());
    return 1;
  }
}
