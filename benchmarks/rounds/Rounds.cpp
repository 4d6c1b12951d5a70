#include "benchmarks/rounds/Rounds.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>

#include "cairn/Exception.h"

namespace Rounds {

namespace {

std::size_t numberOf(const char* what, std::string_view text, std::size_t largest) {
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number == 0 || number > largest) {
    throw Cairn::Exception("expected a number of " + std::string(what) + " from 1 to " +
                           std::to_string(largest) + ", got \"" + std::string(text) + "\"");
  }
  return number;
}

}  // namespace

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

Plan planOf(const std::vector<std::string_view>& arguments, const std::vector<std::string>& names,
            Plan plan) {
  const std::size_t mostRows = *std::max_element(plan.batches.begin(), plan.batches.end());
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string_view option = arguments[i];
    if (option == "--tsv") {
      plan.tsv = true;
      continue;
    }
    const std::string_view value = i + 1 < arguments.size() ? arguments[++i] : std::string_view();
    if (option == "--rounds") {
      plan.rounds = numberOf("rounds", value, 10'000);
    } else if (option == "--only" && std::find(names.begin(), names.end(), value) != names.end()) {
      plan.only = value;
    } else if (option == "--rows") {
      plan.oneAtATime = false;
      plan.batches = {numberOf("rows", value, mostRows)};
    } else if (option == "--busy-poll") {
      plan.busyPoll = std::chrono::microseconds(numberOf("microseconds", value, 1'000'000));
    } else {
      std::string known;
      for (const std::string& name : names) known += (known.empty() ? "--only " : "|") + name;
      throw Cairn::Exception("expected --rounds N, --rows N, " + known + (known.empty() ? "" : ", ") +
                             " --busy-poll MICROSECONDS or --tsv, got \"" + std::string(option) + " " +
                             std::string(value) + "\"");
    }
  }
  return plan;
}

void showProgress(std::size_t done, std::size_t rounds) {
  if (::isatty(STDERR_FILENO) == 0) return;
  std::fprintf(stderr, "\r%zu of %zu rounds", done, rounds);
  if (done == rounds) std::fprintf(stderr, "\r\033[K");
}

Report::Measure& Report::measure(const std::string& name, const char* unit) {
  const auto found = std::find_if(measures_.begin(), measures_.end(),
                                  [&name](const Measure& each) { return each.name == name; });
  if (found != measures_.end()) return *found;
  measures_.push_back({name, unit, false, std::vector<std::vector<double>>(names_.size())});
  return measures_.back();
}

void Report::add(std::size_t contestant, const std::string& name, const char* unit, double value) {
  measure(name, unit).values[contestant].push_back(value);
}

void Report::addTimes(std::size_t contestant, const std::string& name, std::vector<double> times) {
  std::sort(times.begin(), times.end());
  add(contestant, name + ", p50", "us", times[times.size() / 2]);
  add(contestant, name + ", p99", "us", times[times.size() * 99 / 100]);
  Measure& single = measure(name + ", each", "us");
  single.single = true;
  std::vector<double>& all = single.values[contestant];
  all.insert(all.end(), times.begin(), times.end());
}

void Report::printLine(const Measure& measure) const {
  std::printf("%-44s", (measure.name + " " + measure.unit).c_str());
  for (const auto& values : measure.values) {
    values.empty() ? std::printf(" %14s", "-") : std::printf(" %14.1f", median(values));
  }
  const std::vector<double>& measured = measure.values.back();
  for (std::size_t i = 0; i + 1 < measure.values.size(); ++i) {
    const std::vector<double>& yardstick = measure.values[i];
    std::vector<double> ratios;
    for (std::size_t round = 0; round < std::min(measured.size(), yardstick.size()); ++round) {
      ratios.push_back(measured[round] / yardstick[round]);
    }
    ratios.empty() ? std::printf(" %10s", "-") : std::printf(" %10.3f", median(ratios));
  }
  std::putchar('\n');
}

void Report::printSamples() const {
  for (const Measure& measure : measures_) {
    for (std::size_t i = 0; i < names_.size(); ++i) {
      for (const double value : measure.values[i]) {
        std::printf("%s\t%s\t%s\t%.3f\n", names_[i].c_str(), measure.name.c_str(), measure.unit, value);
      }
    }
  }
}

void Report::print() const {
  if (plan_.tsv) return printSamples();
  std::printf("%-44s", ("medians of " + std::to_string(plan_.rounds) + " rounds").c_str());
  for (const std::string& name : names_) std::printf(" %14s", name.c_str());
  for (std::size_t i = 0; i + 1 < names_.size(); ++i) std::printf(" %10s", "ratio");
  std::putchar('\n');
  for (const Measure& measure : measures_) {
    if (!measure.single) printLine(measure);
  }
}

}  // namespace Rounds
