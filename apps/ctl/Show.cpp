// tolmarctl show, tolmarctl diff: config beside status.
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "apps/ctl/Commands.h"
#include "apps/ctl/Tables.h"
#include "apps/ctl/Text.h"

namespace Ctl {

namespace {

using Json = nlohmann::ordered_json;

struct Options {
  Selection selection;
  bool asJson = false;
};

Json jsonOf(const Fields& fields) {
  Json object = Json::object();
  for (const Field& field : fields) {
    object[std::string(field.name)] = field.isQuoted ? Json(field.text) : Json::parse(field.text);
  }
  return object;
}

Json jsonOf(const std::optional<ConfigRow>& row) {
  if (!row) return nullptr;
  Json object{{"genId", row->genId}, {"entryHandle", row->handle}, {"valid", row->valid}};
  object.update(jsonOf(row->data));
  return object;
}

Json jsonOf(const std::optional<StatusRow>& row) {
  if (!row) return nullptr;
  return {{"genId", row->genId},
          {"entryHandle", row->handle},
          {"errorCode", row->errorCode},
          {"deleted", row->deleted}};
}

Json jsonOf(const Entry& entry, WallTime time) {
  Json object{{"key", jsonOf(entry.key)}, {"state", textOf(entry.state())}};
  if (const auto age = ageOf(entry, time)) {
    object[age->isExact ? "seconds" : "secondsAtMost"] = static_cast<double>(age->nanoseconds) / 1e9;
  }
  object["undecided"] = entry.undecided;
  object["config"] = jsonOf(entry.config);
  object["status"] = jsonOf(entry.status);
  if (entry.undecided) object["before"] = jsonOf(entry.before);
  return object;
}

Json jsonOf(const Side& side) {
  return {{"file", side.file},
          {"missing", side.missing},
          {"rows", side.rows},
          {"damage", side.damage},
          {"writer", {{"process", side.writer.process}, {"state", textOf(side.writer.state)}}}};
}

void printText(const Table& table, WallTime time) {
  fmt::print("{}", headText(table));
  std::size_t keyWidth = 0;
  std::size_t stateWidth = 0;
  for (const Entry& entry : table.entries) {
    keyWidth = std::max(keyWidth, textOf(entry.key).size());
    stateWidth = std::max(stateWidth, stateText(entry, time).size());
  }
  for (const Entry& entry : table.entries) {
    fmt::print("  {:{}}  {:{}}  {}\n", textOf(entry.key), keyWidth, stateText(entry, time), stateWidth,
               rowsText(entry));
  }
}

bool isDamaged(const Table& table) { return !table.config.damage.empty() || !table.status.damage.empty(); }

int show(const std::string& path, const Options& options) {
  const Folder folder(path);
  std::vector<Table> tables = readTables(folder, options.selection);
  addTimes(folder, tables);
  const WallTime time = now();
  if (options.asJson) {
    fmt::print("{}\n", jsonText(path, tables, time));
  } else {
    for (const Table& table : tables) printText(table, time);
  }
  return std::any_of(tables.begin(), tables.end(), isDamaged) ? kFailed : kFine;
}

int diff(const std::string& path, const Selection& selection) {
  const Folder folder(path);
  std::vector<Table> tables = readTables(folder, selection);
  addTimes(folder, tables);
  const WallTime time = now();
  std::size_t all = 0;
  std::size_t different = 0;
  bool damaged = false;
  for (Table& table : tables) {
    all += table.entries.size();
    std::erase_if(table.entries, [](const Entry& entry) { return entry.matches(); });
    if (!table.config.isReadable) table.entries.clear();  // all of them would be without config
    different += table.entries.size();
    const bool known = !isDamaged(table) && !table.config.missing && !table.status.missing;
    damaged = damaged || !known;
    if (!known || !table.entries.empty()) printText(table, time);
  }
  fmt::print("{} of {} entries differ\n", different, all);
  return damaged ? kFailed : different != 0 ? kFound : kFine;
}

void addSelection(CLI::App& command, Selection& selection) {
  addTables(command, selection.tables);
  command
      .add_option_function<std::vector<std::string>>(
          "--key", [&selection](const std::vector<std::string>& fields) { selection.addKey(fields); },
          "entries with this value in a key field")
      ->type_name("FIELD=VALUE")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

std::string jsonText(const std::string& folder, const std::vector<Table>& tables, WallTime time) {
  Json document{{"folder", folder}, {"time", timeText(time)}, {"tables", Json::array()}};
  for (const Table& table : tables) {
    Json entries = Json::array();
    for (const Entry& entry : table.entries) entries.push_back(jsonOf(entry, time));
    document["tables"].push_back({{"name", table.name},
                                  {"capacity", table.capacity},
                                  {"config", jsonOf(table.config)},
                                  {"status", jsonOf(table.status)},
                                  {"entries", std::move(entries)}});
  }
  return document.dump(1);
}

void addShow(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("show", "entries, config beside status");
  const auto options = std::make_shared<Options>();
  addSelection(command, options->selection);
  command.add_flag("--json", options->asJson, "all columns, as JSON");
  command.footer(
      "Data columns that are 0 are left out. States: programmed; pending, the\n"
      "hardware has not answered; failed, to be undone; not programmed, the undo was\n"
      "refused, too; status without config, a removal is not answered; removed. An\n"
      "undecided entry may still be undone. An age is an upper bound where the trace\n"
      "no longer has the write: genIds count up from the start of the agent.\n"
      "Exit code: 0, or 2 on error and when a table is damaged.");
  runsAs(command, line, [options](const std::string& folder) { return show(folder, *options); });
}

void addDiff(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("diff", "entries whose status does not match");
  const auto selection = std::make_shared<Selection>();
  addSelection(command, *selection);
  command.footer(
      "As show, without entries that the hardware has answered with success.\n"
      "Exit code: 0 when there are none, 1 when there are, 2 on error and when a\n"
      "table is damaged or missing.");
  runsAs(command, line, [selection](const std::string& folder) { return diff(folder, *selection); });
}

}  // namespace Ctl
