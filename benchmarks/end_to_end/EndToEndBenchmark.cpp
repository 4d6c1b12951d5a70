// Measures the end-to-end path, from a batch of updates to its results, beside the yardstick: both do the
// same work in turn, round after round, so that other load on the machine affects both. Prints medians over
// the rounds, and the median of the rounds' ratios.
//
//   end_to_end_bench [rounds] [path|yardstick|both] [rows]
//
// Defaults: 21 rounds of both, one update at a time and in batches. With `rows`, batches of that size alone,
// for a profiler.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "EndToEnd.h"
#include "Yardstick.h"
#include "cairn/Exception.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kSingles = 1000;
constexpr std::size_t kRowsPerRound = 8192;

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double secondsOf(Contestant& contestant, std::size_t rows) {
  contestant.prepare(rows);
  const auto begin = Clock::now();
  contestant.batch();
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// What one contestant did: one value per round.
struct Figures {
  std::vector<double> p50;  // microseconds
  std::vector<double> p99;
  std::map<std::size_t, std::vector<double>> rates;  // rows per second, by rows in a batch
};

void oneAtATime(Contestant& contestant, Figures& figures) {
  std::vector<double> times;
  for (std::size_t i = 0; i < kSingles; ++i) times.push_back(1e6 * secondsOf(contestant, 1));
  std::sort(times.begin(), times.end());
  figures.p50.push_back(times[kSingles / 2]);
  figures.p99.push_back(times[kSingles * 99 / 100]);
}

void inBatches(Contestant& contestant, std::size_t rows, std::vector<double>& rates) {
  double seconds = 0;
  std::size_t done = 0;
  for (; done < std::min(kRowsPerRound, 1000 * rows); done += rows) seconds += secondsOf(contestant, rows);
  rates.push_back(static_cast<double>(done) / seconds);
}

struct Entrant {
  const char* name;
  std::unique_ptr<Contestant> contestant;
  Figures figures;
};

struct Plan {
  std::size_t rounds = 21;
  std::string_view only = "both";
  bool oneAtATime = true;
  std::vector<std::size_t> batches{1, 10, 100, 1000, 8192};
};

/// Every measure for all entrants before the next measure, and the first to start changes every round.
void run(std::vector<Entrant>& entrants, const Plan& plan) {
  for (std::size_t round = 0; round < plan.rounds; ++round) {
    const auto each = [&](const auto& measure) {
      for (std::size_t i = 0; i < entrants.size(); ++i) measure(entrants[(round + i) % entrants.size()]);
    };
    if (plan.oneAtATime) each([](Entrant& entrant) { oneAtATime(*entrant.contestant, entrant.figures); });
    for (const std::size_t rows : plan.batches) {
      each([rows](Entrant& entrant) { inBatches(*entrant.contestant, rows, entrant.figures.rates[rows]); });
    }
  }
}

void printLine(const char* what, const std::vector<Entrant>& entrants,
               const std::function<const std::vector<double>&(const Figures&)>& values) {
  std::printf("%-30s", what);
  for (const Entrant& entrant : entrants) std::printf(" %14.1f", median(values(entrant.figures)));
  if (entrants.size() == 2) {
    std::vector<double> ratios;
    const auto& first = values(entrants[0].figures);
    const auto& second = values(entrants[1].figures);
    for (std::size_t i = 0; i < first.size(); ++i) ratios.push_back(second[i] / first[i]);
    std::printf(" %10.3f", median(ratios));
  }
  std::putchar('\n');
}

void print(const std::vector<Entrant>& entrants, const Plan& plan) {
  std::printf("%-30s", ("medians of " + std::to_string(plan.rounds) + " rounds").c_str());
  for (const Entrant& entrant : entrants) std::printf(" %14s", entrant.name);
  std::puts(entrants.size() == 2 ? "      ratio" : "");
  if (plan.oneAtATime) {
    printLine(
        "one at a time, p50 us", entrants, [](const Figures& f) -> const auto& { return f.p50; });
    printLine(
        "one at a time, p99 us", entrants, [](const Figures& f) -> const auto& { return f.p99; });
  }
  for (const std::size_t rows : plan.batches) {
    const std::string what = "batches of " + std::to_string(rows) + ", rows/s";
    printLine(
        what.c_str(), entrants, [rows](const Figures& f) -> const auto& { return f.rates.at(rows); });
  }
}

std::size_t numberOf(const char* what, std::string_view text, std::size_t largest) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number == 0 || number > largest) {
    throw Cairn::Exception("expected a number of " + std::string(what) + " from 1 to " +
                           std::to_string(largest) + ", got \"" + std::string(text) + "\"");
  }
  return number;
}

Plan planOf(const std::vector<std::string_view>& arguments) {
  Plan plan;
  if (!arguments.empty()) plan.rounds = numberOf("rounds", arguments[0], 10'000);
  if (arguments.size() > 1) plan.only = arguments[1];
  if (plan.only != "both" && plan.only != "path" && plan.only != "yardstick") {
    throw Cairn::Exception("expected path, yardstick or both, got \"" + std::string(plan.only) + "\"");
  }
  if (arguments.size() > 2) {
    plan.oneAtATime = false;
    plan.batches = {numberOf("rows", arguments[2], Yardstick::kRows)};
  }
  return plan;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    const Plan plan = planOf({arguments + 1, arguments + count});
    std::vector<Entrant> entrants;
    if (plan.only != "path") entrants.push_back({"yardstick", std::make_unique<Yardstick::TwoTables>(), {}});
    if (plan.only != "yardstick")
      entrants.push_back({"path", std::make_unique<EndToEnd>(HW_AGENT, PLUGIN), {}});
    run(entrants, plan);
    print(entrants, plan);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "end_to_end_bench: %s\n", error.what());
    return 1;
  }
}
