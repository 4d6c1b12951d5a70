// tolmarctl trace: the traces of both programs as one.
#include "apps/ctl/Traces.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iterator>
#include <memory>
#include <thread>

#include "apps/ctl/Commands.h"
#include "cairn/Exception.h"

namespace Ctl {

namespace {

struct Options {
  TraceSelection selection;
  bool follow = false;
};

int trace(const std::string& path, const Options& options) {
  const Folder folder(path);
  if (folder.traces().empty()) {
    throw Cairn::Exception("runtime folder " + folder.path() +
                           ": no trace in it, expected p4rt-agent.trace or " + "hw-agent.trace");
  }
  constexpr std::chrono::milliseconds kInterval{100};
  Skein::TraceProgress progress;
  std::vector<std::string> reported;
  for (bool first = true; first || options.follow; first = false) {
    if (!first) std::this_thread::sleep_for(kInterval);
    std::vector<std::string> problems;
    for (const auto& record : readTraces(folder, options.selection, progress, problems)) {
      fmt::print("{}\n", textOf(record));
    }
    if (std::fflush(stdout) != 0) break;
    if (problems == reported) continue;
    for (const std::string& problem : problems) warn(problem);
    reported = problems;
  }
  return reported.empty() ? kFine : kFailed;
}

}  // namespace

std::vector<Skein::TraceRecord> readTraces(const Folder& folder, const TraceSelection& selection,
                                           Skein::TraceProgress& progress,
                                           std::vector<std::string>& problems) {
  std::vector<Skein::TraceRecord> merged;
  for (const std::string& path : folder.traces()) {
    try {
      std::vector<Skein::TraceRecord> records = Skein::readTrace(path, progress);
      const std::size_t unreadable = std::erase_if(records, isUnreadable);
      if (unreadable != 0) {
        problems.push_back(fmt::format("{}: damaged: {} messages cannot be read", path, unreadable));
      }
      std::move(records.begin(), records.end(), std::back_inserter(merged));
    } catch (const Cairn::Exception& problem) {
      problems.push_back(problem.message());
    }
  }
  std::erase_if(merged, [&selection](const Skein::TraceRecord& record) {
    if (record.wall < selection.since) return true;
    const auto& values = record.values;
    return !selection.handle.empty() &&
           std::find(values.begin(), values.end(), selection.handle) == values.end();
  });
  Skein::sortByTime(merged);
  return merged;
}

bool isUnreadable(const Skein::TraceRecord& record) { return record.site->source.empty(); }

std::string textOf(const Skein::TraceRecord& record) {
  return fmt::format("{} {}[{}] {}:{} {}: {}", timeText(record.wall), record.process->name,
                     record.process->pid, record.site->source, record.site->line, record.site->function,
                     record.text());
}

void addTrace(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("trace", "the traces of both programs, merged by time");
  const auto options = std::make_shared<Options>();
  command.add_flag("-f,--follow", options->follow, "continue with what is traced from now on");
  command
      .add_option_function<std::string>(
          "--since", [options](const std::string& text) { options->selection.since = timeOf(text, now()); },
          "from this time on")
      ->type_name("TIME");
  command
      .add_option_function<std::uint64_t>(
          "--handle",
          [options](const std::uint64_t& handle) { options->selection.handle = std::to_string(handle); },
          "messages with this entry handle")
      ->type_name("H");
  command.footer(
      "TIME: 2026-11-22T07:15:11 (UTC; seconds may have a fraction), or how long ago:\n"
      "90s, 5m, 2h, 1d. Traces of processes that have ended or were killed and of\n"
      "each program's previous run are included.\n"
      "Exit code: 0, or 2 on error and when a trace is damaged.");
  runsAs(command, line, [options](const std::string& folder) { return trace(folder, *options); });
}

}  // namespace Ctl
