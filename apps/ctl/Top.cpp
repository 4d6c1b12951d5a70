// tolmarctl top: rates, occupancy and answer times.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <numeric>
#include <thread>

#include "apps/ctl/Commands.h"
#include "apps/ctl/Programs.h"
#include "apps/ctl/Text.h"

namespace Ctl {

namespace {

struct Options {
  bool once = false;
  double interval = 1;
};

std::string bar(std::uint64_t used, std::uint64_t capacity) {
  constexpr std::uint64_t kWidth = 20;
  const std::uint64_t full = capacity == 0 ? 0 : std::min(used, capacity) * kWidth / capacity;
  // One row can be seen.
  const std::uint64_t length = full == 0 && used != 0 ? 1 : full;
  return std::string(length, '#') + std::string(kWidth - length, '.');
}

std::string rateText(double rate) {
  if (rate >= 1e6) return fmt::format("{:.2f}M", rate / 1e6);
  if (rate >= 1e4) return fmt::format("{:.1f}k", rate / 1e3);
  return fmt::format("{:.0f}", rate);
}

/// "12.3us"
std::string timeText(std::uint64_t nanoseconds) {
  const auto time = static_cast<double>(nanoseconds);
  if (nanoseconds == 0) return "-";
  if (time < 1e6) return fmt::format("{:.4g}us", time / 1e3);
  return time < 1e9 ? fmt::format("{:.4g}ms", time / 1e6) : fmt::format("{:.4g}s", time / 1e9);
}

/// What a count has grown by in a second; 0 when the program was started in between.
double rate(std::uint64_t before, std::uint64_t now, double seconds) {
  return now < before || seconds <= 0 ? 0 : static_cast<double>(now - before) / seconds;
}

using Agent = Counters::AgentCounts;

std::string tableLine(const std::string& name, const Counters::AgentTableWords<std::uint64_t>& before,
                      const Counters::AgentTableWords<std::uint64_t>& now, double seconds,
                      const Counters::AnswerTimeCounts& times) {
  const auto sum = [](const auto& writes) {
    return std::accumulate(writes.begin(), writes.end(), std::uint64_t{0});
  };
  return fmt::format("{:16} {} {:>5} of {:<5} {:>6} {:>8} {:>8} {:>6} {:>8} {:>8} {:>8} {:>8}\n", name,
                     bar(now.used, now.capacity), now.used, now.capacity, now.highWater,
                     rateText(rate(sum(before.writes), sum(now.writes), seconds)),
                     rateText(rate(failedOf(before.completions), failedOf(now.completions), seconds)),
                     rateText(rate(before.timeouts, now.timeouts, seconds)),
                     timeText(Counters::quantile(times, 0.5)), timeText(Counters::quantile(times, 0.99)),
                     timeText(Counters::quantile(times, 0.999)), timeText(Counters::quantile(times, 1)));
}

std::string serverText(const Agent& before, const Agent& now, double seconds) {
  const auto& server = now.server;
  return fmt::format(
      "server: {} requests/s, {} bytes/s, {} rejected/s; in flight {} requests, {} bytes, {} batches; "
      "{} streams\n",
      rateText(rate(before.server.requests, server.requests, seconds)),
      rateText(rate(before.server.requestBytes, server.requestBytes, seconds)),
      rateText(rate(before.server.rejections, server.rejections, seconds)), server.requestsInFlight,
      server.bytesInFlight, server.batchesInFlight, server.streams);
}

/// `sinceStart`: answer times are those since the program's start, not since `before`.
std::string pageText(const Agent* before, const Programs& programs, double seconds, bool sinceStart) {
  std::string text = programs.agent().stateText() + "\n" + programs.hardware().stateText() + "\n";
  const Agent* const now = programs.agent().words();
  if (before == nullptr || now == nullptr) return text;
  text += serverText(*before, *now, seconds);
  text += fmt::format("\n{:16} {:20} {:>14} {:>6} {:>8} {:>8} {:>6} {:>8} {:>8} {:>8} {:>8}\n", "table", "",
                      "rows used", "most", "writes/s", "failed/s", "late/s", "p50", "p99", "p99.9", "max");
  for (std::size_t table = 0; table < tableNames().size(); ++table) {
    const auto& times = now->tables[table].answerTimes.buckets;
    text += tableLine(tableNames()[table], before->tables[table], now->tables[table], seconds,
                      sinceStart ? times : Counters::since(before->tables[table].answerTimes.buckets, times));
  }
  for (const Failure& failure : programs.failures()) {
    if (failure.number + 5 <= now->failures) break;
    text += fmt::format("{}{} {} handle={} {}", failure.number == now->failures ? "\n" : "",
                        Ctl::timeText(failure.time), failure.table, failure.handle, failure.status);
    text += failure.hardwareCode == 0 ? "\n" : fmt::format(" code={}\n", failure.hardwareCode);
  }
  return text;
}

int top(const std::string& folder, const Options& options) {
  Programs programs(folder);
  while (true) {
    const std::uint64_t time = programs.time();
    const auto before = programs.agent().view ? std::make_unique<Agent>(*programs.agent().words()) : nullptr;
    std::this_thread::sleep_for(std::chrono::duration<double>(options.interval));
    programs.read();
    const double seconds = static_cast<double>(programs.time() - time) / 1e9;
    constexpr const char* kHomeAndClear = "\033[H\033[J";
    fmt::print("{}{}", options.once ? "" : kHomeAndClear,
               pageText(before.get(), programs, seconds, options.once));
    if (options.once) return programs.faults().empty() ? kFine : kFound;
    if (std::fflush(stdout) != 0) return kFailed;
  }
}

}  // namespace

void addTop(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("top", "rates, occupancy and answer times");
  const auto options = std::make_shared<Options>();
  command.add_flag("--once", options->once, "once, as plain text; answer times since the start");
  command.add_option("--interval", options->interval, "seconds over which rates are taken (default: 1)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.05, 3600.0));
  command.footer(
      "Answer times are those from the write of an update to the hardware's answer.\n"
      "Exit code with --once: 0, 1 when a program is not running or hangs.");
  runsAs(command, line, [options](const std::string& folder) { return top(folder, *options); });
}

}  // namespace Ctl
