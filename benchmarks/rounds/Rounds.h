// Contestants that do the same work in turn, round after round, so that what else the machine does falls on
// all of them, and what they needed.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Rounds {

double median(std::vector<double> values);

/// Seconds that `work` takes.
template <class Work>
double secondsOf(const Work& work) {
  const auto begin = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

struct Plan {
  std::size_t rounds = 21;
  std::string only;  ///< the one contestant's name; empty: all
  std::chrono::microseconds busyPoll{0};
  bool tsv = false;
  bool oneAtATime = true;
  std::vector<std::size_t> batches{1, 10, 100, 1000, 8192};
};

/// Changes `plan` by --rounds N, --only NAME (one of `names`), --rows N (at most the largest batch),
/// --busy-poll MICROSECONDS and --tsv. Throws Cairn::Exception saying what was expected and what came.
Plan planOf(const std::vector<std::string_view>& arguments, const std::vector<std::string>& names,
            Plan plan = {});

void showProgress(std::size_t done, std::size_t rounds);

/// What the contestants needed: for each measure one value per round. What is measured comes last, its
/// yardsticks before it; a measure may leave some of them out.
class Report {
 public:
  Report(std::vector<std::string> names, Plan plan) : names_(std::move(names)), plan_(std::move(plan)) {}

  void add(std::size_t contestant, const std::string& measure, const char* unit, double value);
  /// Microseconds, any order: adds their p50 and p99, and each of them to the samples.
  void addTimes(std::size_t contestant, const std::string& measure, std::vector<double> times);

  /// Medians of the rounds, and medians of the rounds' ratios to each yardstick. With --tsv, every sample
  /// instead: contestant, measure, unit and value, separated by tabs.
  void print() const;

 private:
  struct Measure {
    std::string name;
    const char* unit;
    bool single = false;                      // samples of single times, not of rounds
    std::vector<std::vector<double>> values;  // by contestant
  };
  Measure& measure(const std::string& name, const char* unit);
  void printLine(const Measure& measure) const;
  void printSamples() const;

  std::vector<std::string> names_;
  Plan plan_;
  std::vector<Measure> measures_;  // in the order in which they were first added
};

/// Calls `measure(round)` for each round of the plan; shows progress where standard error is a terminal.
template <class Call>
void each(const Plan& plan, const Call& measure) {
  for (std::size_t round = 0; round < plan.rounds; ++round) {
    showProgress(round, plan.rounds);
    measure(round);
  }
  showProgress(plan.rounds, plan.rounds);
}

/// Calls `measure(contestant)` for 0 to `count` - 1; the first to be called changes every round.
template <class Call>
void inTurn(std::size_t round, std::size_t count, const Call& measure) {
  for (std::size_t i = 0; i < count; ++i) measure((round + i) % count);
}

}  // namespace Rounds
