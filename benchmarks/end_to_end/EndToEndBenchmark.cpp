// Measures the end-to-end path, from a batch of updates to its results, beside the yardstick.
//
//   end_to_end_bench [--rounds N] [--only path|yardstick] [--rows N] [--busy-poll MICROSECONDS] [--tsv]
//
// 21 rounds of both, one update at a time and in batches, unless options say otherwise. With --rows, batches
// of that size alone, for a profiler. With --busy-poll, both sides of both poll for so long before they
// sleep. With --tsv, every sample instead: contestant, measure, unit and value, separated by tabs.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "EndToEnd.h"
#include "Yardstick.h"
#include "benchmarks/rounds/Rounds.h"

namespace {

constexpr std::size_t kSingles = 1000;
constexpr std::size_t kRowsPerRound = 8192;

double secondsOf(Contestant& contestant, std::size_t rows) {
  contestant.prepare(rows);
  return Rounds::secondsOf([&contestant] { contestant.batch(); });
}

std::vector<double> oneAtATime(Contestant& contestant) {
  std::vector<double> times;
  for (std::size_t i = 0; i < kSingles; ++i) times.push_back(1e6 * secondsOf(contestant, 1));
  return times;
}

double rateInBatches(Contestant& contestant, std::size_t rows) {
  double seconds = 0;
  std::size_t done = 0;
  for (; done < std::min(kRowsPerRound, 1000 * rows); done += rows) seconds += secondsOf(contestant, rows);
  return static_cast<double>(done) / seconds;
}

/// Every measure for both contestants before the next measure.
void run(const std::vector<std::unique_ptr<Contestant>>& contestants, const Rounds::Plan& plan,
         Rounds::Report& report) {
  Rounds::each(plan, [&](std::size_t round) {
    if (plan.oneAtATime) {
      Rounds::inTurn(round, contestants.size(), [&](std::size_t i) {
        report.addTimes(i, "one at a time", oneAtATime(*contestants[i]));
      });
    }
    for (const std::size_t rows : plan.batches) {
      Rounds::inTurn(round, contestants.size(), [&](std::size_t i) {
        report.add(i, "batches of " + std::to_string(rows), "rows/s", rateInBatches(*contestants[i], rows));
      });
    }
  });
}

}  // namespace

int main(int count, char** arguments) {
  try {
    const Rounds::Plan plan = Rounds::planOf({arguments + 1, arguments + count}, {"yardstick", "path"});
    std::vector<std::string> names;
    std::vector<std::unique_ptr<Contestant>> contestants;
    if (plan.only != "path") {
      names.push_back("yardstick");
      contestants.push_back(std::make_unique<Yardstick::TwoTables>(plan.busyPoll));
    }
    if (plan.only != "yardstick") {
      names.push_back("path");
      contestants.push_back(std::make_unique<EndToEnd>(HW_AGENT, PLUGIN, plan.busyPoll));
    }
    Rounds::Report report(names, plan);
    run(contestants, plan, report);
    report.print();
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "end_to_end_bench: %s\n", error.what());
    return 1;
  }
}
