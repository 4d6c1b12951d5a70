#include "apps/script/ScriptRun.h"

#include <memory>

#include "apps/process/CommandLine.h"
#include "cairn/Exception.h"

namespace Agent {

namespace {
double secondsSince(ScriptRun::Clock::time_point begin) {
  return std::chrono::duration<double>(ScriptRun::Clock::now() - begin).count();
}
}  // namespace

ScriptRun::ScriptRun(std::string_view script, AgentCore& core, ResultTable::Output output,
                     ResultTable::Style style, std::function<void()> cleanup)
    : script_(parseScript(script)),
      cursor_(script_),
      core_(core),
      table_(std::move(output), style),
      cleanup_(std::move(cleanup)) {}

bool ScriptRun::proceed() {
  constexpr int kSteps = 256;
  for (int steps = 0; batchSize_ == 0 && !finished_; ++steps) {
    if (steps == kSteps) return true;
    ScriptStep step = cursor_.next();
    if (auto* batch = std::get_if<BatchStep>(&step)) {
      if (batch->updates.empty()) return true;
      submit(std::move(*batch));
    } else if (const auto* print = std::get_if<PrintStep>(&step)) {
      table_.text(print->text);
    } else if (const auto* shown = std::get_if<ShowStep>(&step)) {
      show(shown->table);
    } else if (std::holds_alternative<CleanupStep>(step)) {
      cleanup();
    } else {
      finished_ = true;
      table_.totals(secondsSince(started_), failedSteps_);
    }
  }
  return false;
}

void ScriptRun::abandon() noexcept {
  ++failedSteps_;
  finished_ = true;
  try {
    table_.text("stopped: out of memory");
    table_.totals(secondsSince(started_), failedSteps_);
  } catch (const std::bad_alloc&) {
    // the script has failed all the same
  }
}

void ScriptRun::submit(BatchStep step) {
  std::vector<Update> updates;
  updates.reserve(step.updates.size());
  for (const ScriptUpdate& update : step.updates) updates.push_back(updateOf(update));
  const std::size_t size = updates.size();
  const Clock::time_point begin = Clock::now();
  core_.submit(
      std::move(updates), Atomicity::continueOnError,
      [this, begin, asked = std::move(step.updates)](const std::vector<UpdateStatus>& results) {
        batchSize_ = 0;
        try {
          table_.batch(asked, results, secondsSince(begin));
        } catch (const std::bad_alloc&) {
          ++failedSteps_;  // what cannot be printed has not come out as expected
        }
      },
      [this](std::size_t answered) { table_.progress(answered, batchSize_); }, begin);
  batchSize_ = size;
}

Update ScriptRun::updateOf(const ScriptUpdate& from) {
  Update update;
  update.type = from.type;
  if (!from.malformed.empty()) {
    update.defect = std::make_unique<const Status>(
        Status{StatusCode::invalidArgument, "line " + std::to_string(from.line) + ": " + from.malformed});
    return update;
  }
  update.table = core_.table(from.table);
  try {
    if (update.table == nullptr) {
      throw Cairn::Exception("expected a table (" + Process::listed(tableNames()) + "), got \"" +
                             std::string(from.table) + "\"");
    }
    std::vector<Lumen::ColumnText> fields;
    for (const ScriptUpdate::Field& field : from.fields) fields.push_back({field.name, field.value});
    update.row = update.table->row(fields);
  } catch (const Cairn::Exception& error) {
    update.defect = std::make_unique<const Status>(
        Status{StatusCode::invalidArgument, "line " + std::to_string(from.line) + ": " + error.message()});
  }
  return update;
}

std::vector<std::string> ScriptRun::tableNames() const {
  std::vector<std::string> names;
  for (const auto& table : core_.tables()) names.push_back(table->name());
  return names;
}

void ScriptRun::show(const std::string& tableName) {
  const ConfigTable* table = core_.table(tableName);
  if (table == nullptr) {
    ++failedSteps_;
    table_.text("show: expected a table (" + Process::listed(tableNames()) + "), got \"" + tableName + "\"");
    return;
  }
  std::size_t rows = 0;
  core_.eachDecidedRow(*table, [&](const Lumen::BaseRow& row) {
    table_.text("  " + Lumen::rowText(row));
    ++rows;
  });
  table_.text("  " + std::to_string(rows) + " rows in " + tableName);
}

void ScriptRun::cleanup() {
  try {
    cleanup_();
    table_.text("cleanup: the tables are removed");
  } catch (const std::exception& error) {
    ++failedSteps_;
    table_.text(std::string("cleanup: ") + error.what());
  }
}

}  // namespace Agent
