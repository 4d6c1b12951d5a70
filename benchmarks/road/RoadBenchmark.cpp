// Measures the road beside the yardstick: both do the same work in turn, round after round, so that what else
// the machine does falls on both. Prints medians over the rounds, and the median of the rounds' ratios.
//
//   road_bench [rounds] [road|yardstick]       21 rounds and both unless told otherwise
#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "Road.h"
#include "Yardstick.h"
#include "cairn/Exception.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::array<std::size_t, 5> kBatches{1, 10, 100, 1000, 8192};
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
  std::array<std::vector<double>, kBatches.size()> rates;  // rows per second
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

/// Every measure for all entrants before the next measure, and the first to start changes every round.
void run(std::vector<Entrant>& entrants, std::size_t rounds) {
  for (std::size_t round = 0; round < rounds; ++round) {
    const auto each = [&](const auto& measure) {
      for (std::size_t i = 0; i < entrants.size(); ++i) measure(entrants[(round + i) % entrants.size()]);
    };
    each([](Entrant& entrant) { oneAtATime(*entrant.contestant, entrant.figures); });
    for (std::size_t b = 0; b < kBatches.size(); ++b) {
      each([b](Entrant& entrant) { inBatches(*entrant.contestant, kBatches[b], entrant.figures.rates[b]); });
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

void print(const std::vector<Entrant>& entrants, std::size_t rounds) {
  std::printf("%-30s", ("medians of " + std::to_string(rounds) + " rounds").c_str());
  for (const Entrant& entrant : entrants) std::printf(" %14s", entrant.name);
  std::printf(entrants.size() == 2 ? "      ratio\n" : "\n");
  printLine(
      "one at a time, p50 us", entrants, [](const Figures& f) -> const auto& { return f.p50; });
  printLine(
      "one at a time, p99 us", entrants, [](const Figures& f) -> const auto& { return f.p99; });
  for (std::size_t b = 0; b < kBatches.size(); ++b) {
    const std::string what = "batches of " + std::to_string(kBatches[b]) + ", rows/s";
    printLine(
        what.c_str(), entrants, [b](const Figures& f) -> const auto& { return f.rates[b]; });
  }
}

std::size_t roundsOf(std::string_view text) {
  std::size_t rounds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), rounds);
  if (error != std::errc() || end != text.data() + text.size() || rounds == 0 || rounds > 10'000) {
    throw Cairn::Exception("expected a number of rounds from 1 to 10000, got \"" + std::string(text) + "\"");
  }
  return rounds;
}

}  // namespace

int main(int count, char** arguments) {
  try {
    const std::size_t rounds = count > 1 ? roundsOf(arguments[1]) : 21;
    const std::string_view only = count > 2 ? arguments[2] : "";
    if (!only.empty() && only != "road" && only != "yardstick") {
      throw Cairn::Exception("expected road or yardstick, got \"" + std::string(only) + "\"");
    }
    std::vector<Entrant> entrants;
    if (only != "road") entrants.push_back({"yardstick", std::make_unique<Yardstick::TwoTables>(), {}});
    if (only != "yardstick") entrants.push_back({"road", std::make_unique<Road>(HW_AGENT, PLUGIN), {}});
    run(entrants, rounds);
    print(entrants, rounds);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "road_bench: %s\n", error.what());
    return 1;
  }
}
