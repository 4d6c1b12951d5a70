// Measures the end-to-end path, from a batch of updates to its results, beside the yardstick: both do the
// same work in turn, round after round, so that other load on the machine affects both. Prints medians over
// the rounds, and the median of the rounds' ratios.
//
//   end_to_end_bench [--rounds N] [--only path|yardstick] [--rows N] [--busy-poll MICROSECONDS] [--tsv]
//
// 21 rounds of both, one update at a time and in batches, unless options say otherwise. With --rows, batches
// of that size alone, for a profiler. With --busy-poll, both sides of both poll for so long before they
// sleep. With --tsv, every sample instead: bench, metric, unit and value, separated by tabs.
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
  std::string_view only;  // the one entrant's name; empty: both
  std::chrono::microseconds busyPoll{0};
  bool tsv = false;
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

void printSamples(const std::vector<Entrant>& entrants) {
  for (const Entrant& entrant : entrants) {
    const auto each = [&entrant](const std::string& metric, const char* unit,
                                 const std::vector<double>& values) {
      for (const double value : values) {
        std::printf("%s\t%s\t%s\t%.3f\n", entrant.name, metric.c_str(), unit, value);
      }
    };
    each("one at a time, p50", "us", entrant.figures.p50);
    each("one at a time, p99", "us", entrant.figures.p99);
    for (const auto& [rows, rates] : entrant.figures.rates) {
      each("batches of " + std::to_string(rows), "rows/s", rates);
    }
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

Plan planOf(std::vector<std::string_view> arguments) {
  Plan plan;
  arguments.emplace_back();  // after an option without its value
  for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
    const std::string_view option = arguments[i];
    if (option == "--tsv") {
      plan.tsv = true;
      continue;
    }
    const std::string_view value = arguments[++i];
    if (option == "--rounds") {
      plan.rounds = numberOf("rounds", value, 10'000);
    } else if (option == "--only" && (value == "path" || value == "yardstick")) {
      plan.only = value;
    } else if (option == "--rows") {
      plan.oneAtATime = false;
      plan.batches = {numberOf("rows", value, Yardstick::kRows)};
    } else if (option == "--busy-poll") {
      plan.busyPoll = std::chrono::microseconds(numberOf("microseconds", value, 1'000'000));
    } else {
      throw Cairn::Exception("expected the options that the head of EndToEndBenchmark.cpp names, got \"" +
                             std::string(option) + " " + std::string(value) + "\"");
    }
  }
  return plan;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    const Plan plan = planOf({arguments + 1, arguments + count});
    std::vector<Entrant> entrants;
    if (plan.only != "path")
      entrants.push_back({"yardstick", std::make_unique<Yardstick::TwoTables>(plan.busyPoll), {}});
    if (plan.only != "yardstick")
      entrants.push_back({"path", std::make_unique<EndToEnd>(HW_AGENT, PLUGIN, plan.busyPoll), {}});
    run(entrants, plan);
    plan.tsv ? printSamples(entrants) : print(entrants, plan);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "end_to_end_bench: %s\n", error.what());
    return 1;
  }
}
