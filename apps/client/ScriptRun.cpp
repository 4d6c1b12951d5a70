#include "apps/client/ScriptRun.h"

#include <fmt/format.h>

#include <chrono>

#include "apps/client/Progress.h"
#include "apps/process/Log.h"
#include "cairn/Exception.h"

namespace Client {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

constexpr int kInvalidArgument = 3;
constexpr int kAborted = 10;

bool isReadable(const ScriptUpdate& update) { return update.problem.empty(); }

}  // namespace

bool ScriptRun::run(const std::string& name, std::string_view script) {
  const Clock::time_point begin = Clock::now();
  ResultTable table(output_, style_);
  std::size_t failedReads = 0;
  for (const ScriptStep& step : parseScript(script)) {
    if (const auto* batch = std::get_if<BatchStep>(&step)) {
      write(name, *batch, table);
    } else if (const auto* print = std::get_if<PrintStep>(&step)) {
      table.text(print->text);
    } else {
      const ReadStep& read = std::get<ReadStep>(step);
      try {
        const std::size_t count = printEntries(connection_, catalogue_, read.words, output_);
        table.text(fmt::format("  {} {}", count, count == 1 ? "entry" : "entries"));
      } catch (const Cairn::Exception& error) {
        ++failedReads;
        table.text(fmt::format("{}:{}: {}", name, read.line, error.message()));
      }
    }
  }
  table.totals(secondsSince(begin), failedReads);
  if (log_ != nullptr) log_->flush();
  return failedReads == 0 && table.totals().unexpected == 0;
}

void ScriptRun::write(const std::string& name, const BatchStep& batch, ResultTable& table) {
  const Clock::time_point begin = Clock::now();
  std::vector<ScriptUpdate> updates;
  for (const Line& line : batch.lines) resolve(line, catalogue_, updates);
  for (ScriptUpdate& update : updates) {
    if (!isReadable(update)) update.problem = fmt::format("{}:{}: {}", name, update.line, update.problem);
  }
  const std::vector<Outcome> outcomes = send(updates, batch.isRollback);
  table.batch(updates, outcomes, secondsSince(begin));
  if (log_ == nullptr) return;
  for (std::size_t i = 0; i < updates.size(); ++i) log_->add(name, updates[i], outcomes[i]);
}

/// What cannot be read is not sent, and nothing of a batch that is to be applied as a whole.
std::vector<Outcome> ScriptRun::send(const std::vector<ScriptUpdate>& updates, bool isRollback) {
  std::vector<p4::v1::Update> sent;
  for (const ScriptUpdate& update : updates) {
    if (!isReadable(update)) continue;
    p4::v1::Update& message = sent.emplace_back();
    message.set_type(update.type);
    *message.mutable_entity()->mutable_table_entry() = update.entry;
  }
  std::vector<Outcome> answers;
  if (isRollback && sent.size() != updates.size()) {
    answers.assign(sent.size(), {kAborted, 0, "not sent, since the batch cannot be read as a whole"});
  } else if (!sent.empty()) {
    const Progress progress(sent.size());
    answers = connection_.write(std::move(sent), isRollback ? Connection::Atomicity::rollbackOnError
                                                            : Connection::Atomicity::continueOnError);
  }
  std::vector<Outcome> outcomes;
  auto answer = answers.begin();
  for (const ScriptUpdate& update : updates) {
    outcomes.push_back(isReadable(update) ? std::move(*answer++)
                                          : Outcome{kInvalidArgument, 0, update.problem});
  }
  return outcomes;
}

std::size_t printEntries(Connection& connection, const Catalogue& catalogue,
                         const std::vector<std::string>& words, const ResultTable::Output& output) {
  p4::v1::TableEntry wanted;
  if (!words.empty()) {
    wanted = entryOf(catalogue.table(words[0]), fieldsOf(std::span(words).subspan(1)), Part::key);
  }
  std::size_t count = 0;
  connection.read({wanted}, [&](const p4::v1::TableEntry& entry) {
    const Table* const table = catalogue.table(entry.table_id());
    if (table == nullptr)
      throw Cairn::Exception("got an entry of table " + std::to_string(entry.table_id()) +
                             ", which P4Info does not have");
    output(fmt::format("insert {} {}\n", table->name, joined(fieldsOf(*table, entry, Part::whole))));
    ++count;
  });
  return count;
}

}  // namespace Client
