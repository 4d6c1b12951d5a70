// tolmarctl explain: the life of one entry, from the traces of both programs.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "apps/ctl/Commands.h"
#include "apps/ctl/Tables.h"
#include "apps/ctl/Text.h"
#include "apps/ctl/Traces.h"
#include "cairn/Exception.h"

namespace Ctl {

namespace {

using Record = Skein::TraceRecord;
using Records = std::vector<Record>;

constexpr std::string_view kHardware = "./apps/hw/Programmer";
constexpr std::string_view kTracker = "PendingHwProgrammingSms";

using Values = std::vector<std::string>;

/// One step of the way from a request to its decision.
struct Step {
  std::string_view name;
  std::string_view what;
  const Record* record;  ///< null when no trace has it
};

bool isOf(const Record& record, std::string_view source) { return record.site->source == source; }
bool isOf(const Record& record, std::string_view source, std::string_view function) {
  return isOf(record, source) && record.site->function == function;
}

/// The last write of the entry with this handle, and the undo after it if there was one, oldest first.
std::vector<const Record*> lastWrites(const Records& records, const std::string& handle) {
  std::vector<const Record*> found;
  for (auto at = records.rbegin(); at != records.rend(); ++at) {
    const bool isWrite = isOf(*at, kCore, "write") && at->values.size() > 1 && at->values[1] == handle;
    const bool isUndo = isOf(*at, kCore, "undo") && !at->values.empty() && at->values[0] == handle;
    if (isWrite || (found.empty() && isUndo)) found.insert(found.begin(), &*at);
    if (isWrite) break;
  }
  return found;
}

std::string joined(const Fields& fields) {
  std::string text;
  for (const Field& field : fields) text += (text.empty() ? "" : " ") + field.text;
  return text;
}

/// The hardware agent's message for the row with these values: a handle and, unless the row was removed, its
/// genId. They identify one write, so the clocks of the two processes do not matter.
const Record* ofRow(const Records& records, std::string_view function, const Values& row) {
  const auto found = std::find_if(records.begin(), records.end(), [&](const Record& record) {
    const Values& values = record.values;
    return isOf(record, kHardware, function) && values.size() >= row.size() &&
           (values.size() == 1) == (row.size() == 1) && std::equal(row.begin(), row.end(), values.begin());
  });
  return found == records.end() ? nullptr : &*found;
}

/// The first message of the process of `write`, from there on or backwards, with this first value.
template <class Iterator>
const Record* near(Iterator begin, Iterator end, const Record& write, std::string_view source,
                   std::initializer_list<std::string_view> functions, const std::string& value) {
  const auto found = std::find_if(begin, end, [&](const Record& record) {
    return record.process->pid == write.process->pid && record.site->source == source &&
           std::find(functions.begin(), functions.end(), record.site->function) != functions.end() &&
           !record.values.empty() && record.values[0] == value;
  });
  return found == end ? nullptr : &*found;
}

/// What the hardware agent did with the row.
std::vector<Step> answerSteps(const Records& records, const Values& row) {
  return {{"seen", "by the hardware agent", ofRow(records, "changed", row)},
          {"answered", "in the status table",
           ofRow(records, row.size() == 1 ? "answerDeleted" : "answerPresent", row)}};
}

std::vector<Step> stepsOf(const Records& records, const Record& write, const Entry& entry) {
  const bool isUndo = write.site->function == "undo";
  const Values row(write.values.begin() + (isUndo ? 0 : 1), write.values.end());
  const auto at = records.begin() + (&write - records.data());
  const auto backwards = std::make_reverse_iterator(at);
  std::vector<Step> steps;
  if (!isUndo) {
    steps.push_back({"request", "taken by the agent",
                     near(backwards, records.rend(), write, kCore, {"submit"}, write.values[0])});
  }
  steps.push_back({"row", "to the config table", &write});
  std::ranges::copy(answerSteps(records, row), std::back_inserter(steps));
  steps.push_back({"completed", "seen by the agent",
                   near(at, records.end(), write, kTracker, {"onStatusRow"}, joined(entry.key))});
  if (isUndo) return steps;
  // A batch that has run out of time is decided without the hardware.
  const Record* const decided =
      near(at, records.end(), write, kCore, {"decide", "rollBack"}, write.values[0]);
  const Record* const completed = steps.back().record;
  const bool early = decided != nullptr && (completed == nullptr || completed > decided);
  steps.insert(early ? steps.begin() + 2 : steps.end(), {"decided", "its batch", decided});
  return steps;
}

/// 0 where the clocks of two processes disagree.
std::uint64_t between(const Record& before, const Record& after) {
  return after.monotonic > before.monotonic ? after.monotonic - before.monotonic : 0;
}

/// Of steps with a record, the one that came longest after the one before it.
const Step* slowestOf(const std::vector<Step>& steps) {
  const Step* slowest = nullptr;
  const Step* before = nullptr;
  std::uint64_t longest = 0;
  for (const Step& step : steps) {
    if (step.record == nullptr) continue;
    const std::uint64_t time = before == nullptr ? 0 : between(*before->record, *step.record);
    if (time > longest) slowest = &step;
    longest = std::max(longest, time);
    before = &step;
  }
  return slowest;
}

/// A step that is missing before others has been overwritten; at the end it may not have come yet.
void print(const std::vector<Step>& steps) {
  const Step* const slowest = slowestOf(steps);
  const Record* before = nullptr;
  for (auto step = steps.begin(); step != steps.end(); ++step) {
    if (step->record == nullptr) {
      const bool isOpen =
          std::all_of(step, steps.end(), [](const Step& each) { return each.record == nullptr; });
      fmt::print("  {:10} {:43} {}\n", step->name, isOpen ? "not yet, or its trace is gone" : "unknown",
                 step->what);
      continue;
    }
    const std::string after =
        before == nullptr ? std::string() : "+" + durationText(between(*before, *step->record));
    fmt::print("  {:10} {:32} {:10} {}{}\n", step->name, timeText(step->record->wall), after, step->what,
               &*step == slowest ? "  <- slowest" : "");
    before = step->record;
  }
}

/// The agent's trace no longer has the write; that of the hardware agent may reach back further.
void printWithoutWrite(const Records& records, const Entry& entry) {
  const auto first =
      std::find_if(records.begin(), records.end(), [](const Record& record) { return isOf(record, kCore); });
  fmt::print("its last write is unknown: the agent's trace begins at {}\n",
             first == records.end() ? "no time" : timeText(first->wall));
  Values row = {std::to_string(entry.config ? entry.config->handle : entry.status->handle)};
  if (entry.config) row.push_back(std::to_string(entry.config->genId));
  print(answerSteps(records, row));
}

const Entry& only(const std::vector<Table>& tables, const std::string& table) {
  const std::size_t found = tables.empty() ? 0 : tables[0].entries.size();
  if (found == 1) return tables[0].entries[0];
  throw Cairn::Exception(
      fmt::format("{}: expected the key of one entry, found {} with it in the tables", table, found));
}

int explain(const std::string& path, const Selection& selection) {
  const Folder folder(path);
  std::vector<Table> tables = readTables(folder, selection);
  addTimes(folder, tables);
  const Entry& entry = only(tables, selection.tables[0]);
  fmt::print("{} {}: {}\n  {}\n", selection.tables[0], textOf(entry.key), stateText(entry, now()),
             rowsText(entry));
  Skein::TraceProgress progress;
  std::vector<std::string> problems;
  const Records records = readTraces(folder, {}, progress, problems);
  for (const std::string& problem : problems) warn(problem);
  const std::uint64_t handle = entry.config ? entry.config->handle : entry.status->handle;
  const std::vector<const Record*> writes = lastWrites(records, std::to_string(handle));
  for (const Record* const write : writes) {
    fmt::print("{}\n", write->site->function == "undo" ? "undo" : write->text());
    print(stepsOf(records, *write, entry));
  }
  if (writes.empty()) printWithoutWrite(records, entry);
  return kFine;
}

}  // namespace

void addExplain(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("explain", "the life of one entry, step by step");
  const auto selection = std::make_shared<Selection>();
  command
      .add_option_function<std::string>(
          "TABLE", [selection](const std::string& table) { selection->tables = {table}; }, "its table")
      ->type_name("")
      ->required();
  command
      .add_option_function<std::vector<std::string>>(
          "KEY", [selection](const std::vector<std::string>& fields) { selection->addKey(fields); },
          "its key, as far as needed")
      ->type_name("FIELD=VALUE")
      ->required();
  command.footer(
      "From the traces of both programs: when the latest update of the entry was\n"
      "taken, written, seen by the hardware agent, answered, completed and decided,\n"
      "and which step took longest. What a trace no longer has is unknown.\n"
      "Exit code: 0, or 2 on error.");
  runsAs(command, line, [selection](const std::string& folder) { return explain(folder, *selection); });
}

}  // namespace Ctl
