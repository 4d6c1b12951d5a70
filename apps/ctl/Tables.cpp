#include "apps/ctl/Tables.h"

#include <algorithm>
#include <map>
#include <utility>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/ctl/Commands.h"
#include "apps/ctl/Records.h"
#include "apps/ctl/Traces.h"
#include "apps/ctl/TypedView.h"
#include "apps/process/CommandLine.h"
#include "cairn/Assert.h"
#include "cairn/Exception.h"
#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"
#include "lumen/RowText.h"

namespace Ctl {

namespace {

using Agent::BeforeImages;
using TolmarHwLib::forEachOutputTable;
using TolmarHwLib::kOutputTablePrefix;

/// Reads both sides of one table.
template <class Kind>
class Reader {
  using Key = typename Kind::Key;
  using Config = typename Kind::ConfigEntry;
  using Status = typename Kind::StatusEntry;

 public:
  Reader(const Folder& folder, const TolmarHwLib::OutputTable<Kind>& table)
      : table_{table.name, table.capacity, {}, {}, {}},
        config_(folder.path(), TolmarHwLib::configPath(kOutputTablePrefix, table.name), table.capacity),
        status_(folder.path(), TolmarHwLib::statusPath(kOutputTablePrefix, table.name), table.capacity) {}

  Table read(const std::vector<BeforeImages::Image>& undecided, std::size_t number) {
    config_.each(table_.config.damage, [&](const Config& entry) { rows_[entry.key()].config = entry; });
    status_.each(table_.status.damage, [&](const Status& entry) { rows_[entry.key()].status = entry; });
    for (const BeforeImages::Image& image : undecided) {
      if (image.table == number) add(image);
    }
    describe(table_.config, config_.segment());
    describe(table_.status, status_.segment());
    for (auto& [key, rows] : rows_) addEntry(key, rows);
    return std::move(table_);
  }

 private:
  struct Rows {
    std::optional<Config> config;
    std::optional<Status> status;
    bool undecided = false;
    std::optional<Config> before;
  };

  // The newest image of an entry comes first; the oldest is what the entry goes back to.
  void add(const BeforeImages::Image& image) {
    try {
      const Config record = recordOf<Config>(image.row);
      Rows& rows = rows_[record.key()];
      rows.undecided = true;
      rows.before = image.present ? std::optional(record) : std::nullopt;
    } catch (const Cairn::AssertionException& problem) {
      table_.config.damage.push_back("a before-image: " + problem.message());
    }
  }

  void addEntry(const Key& key, Rows& rows) {
    Entry entry = entryOf(key, rows);
    // The two sides were walked one after the other: an entry that does not match may have changed meanwhile.
    for (int attempt = 0; attempt < 3 && !entry.matches(); ++attempt) {
      const bool configMoved = readAgain(config_, table_.config, key, rows.config);
      const bool statusMoved = readAgain(status_, table_.status, key, rows.status);
      if (!configMoved && !statusMoved) break;
      entry = entryOf(key, rows);
    }
    if (!entry.config && !entry.status && !entry.undecided) return;
    table_.config.rows += entry.config ? 1 : 0;
    table_.status.rows += entry.status ? 1 : 0;
    table_.entries.push_back(std::move(entry));
  }

  /// Whether the row is another one now. Of a side with damage the walk has found what there is.
  template <class View, class Row>
  static bool readAgain(View& view, Side& side, const Key& key, std::optional<Row>& row) {
    if (!side.damage.empty()) return false;
    try {
      std::optional<Row> found = view.find(key);
      std::swap(row, found);
      return row != found;
    } catch (const Cairn::CorruptionDetectedException& damage) {
      side.damage.push_back(damage.message());
    } catch (const Cairn::Exception&) {
      // it keeps changing
    }
    return false;
  }

  static Entry entryOf(const Key& key, const Rows& rows) {
    Entry entry;
    entry.key = fieldsOf(key, Key::keyColumns);
    if (rows.config) entry.config = configRowOf(*rows.config);
    if (const auto& status = rows.status) {
      entry.status = {status->genId, status->entryHandle, status->errorCode, status->deleted};
    }
    entry.undecided = rows.undecided;
    if (rows.before) entry.before = configRowOf(*rows.before);
    return entry;
  }

  static void describe(Side& side, const Vesta::SegmentView& segment) {
    side.file = segment.path().path() + "/" + segment.path().collection();
    side.missing = segment.missing();
    side.isReadable = segment.hasRows();
    if (segment.fault()) side.damage.insert(side.damage.begin(), segment.fault().text);
    const Vesta::SegmentView::Writer writer = segment.writer();
    side.writer = writerOf(writer.process, writer.living);
  }

  Table table_;
  TypedView<Key, Config> config_;
  TypedView<Key, Status> status_;
  std::map<Key, Rows> rows_;
};

/// The value as the fields print it.
template <class Kind>
std::string canonical(std::string_view table, const std::string& name, const std::string& value) {
  constexpr std::string_view kRowType = TolmarHwLib::RowSchema<typename Kind::ConfigEntry>::rowTypeName;
  Lumen::LumenDB::metadataIs(kRowType);
  const Lumen::LmColumn* const column = Lumen::LumenDB::lmClass(kRowType)->column(name);
  if (column == nullptr || !column->isKey) return {};
  try {
    return std::visit(
        [](const auto& known) {
          std::ostringstream text;
          Lumen::Encoding<std::remove_cvref_t<decltype(known)>>::print(text, known);
          return text.str();
        },
        Lumen::parseColumn(*column, value));
  } catch (const Lumen::LmTextError& error) {
    throw Cairn::Exception(std::string(table) + ": " + error.message());
  }
}

template <class Kind>
bool hasField(const std::string& name) {
  bool found = false;
  TolmarHwLib::forEachColumn(Kind::Key::keyColumns,
                             [&](const auto& column) { found = found || column.name == name; });
  return found;
}

template <class Kind>
void keepSelected(Table& table, const Selection& selection) {
  for (const auto& [name, value] : selection.fields) {
    const std::string wanted = canonical<Kind>(table.name, name, value);
    std::erase_if(table.entries, [&, &name = name](const Entry& entry) {
      return std::none_of(entry.key.begin(), entry.key.end(),
                          [&](const Field& field) { return field.name == name && field.text == wanted; });
    });
  }
}

std::string tableNames() {
  std::vector<std::string> names;
  forEachOutputTable([&]<std::size_t>(const auto& table) { names.emplace_back(table.name); });
  return Process::listed(names);
}

[[noreturn]] void refuseField(const std::string& name) {
  throw Cairn::Exception("key: expected a key field of the selected tables, got \"" + name + "\"");
}

}  // namespace

State Entry::state() const {
  if (!config) return status && !status->deleted ? State::removing : State::removed;
  const bool answered =
      status && !status->deleted && status->handle == config->handle && status->genId == config->genId;
  if (!answered) return State::pending;
  if (status->errorCode == 0) return State::programmed;
  return undecided ? State::failed : State::notProgrammed;
}

void Selection::addKey(const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw Cairn::Exception("key: expected FIELD=VALUE, got \"" + text + "\"");
    }
    fields.emplace_back(text.substr(0, equals), text.substr(equals + 1));
  }
}

void requireTables(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    bool known = false;
    forEachOutputTable([&]<std::size_t>(const auto& table) { known = known || table.name == name; });
    if (!known) throw Cairn::Exception("expected a table of " + tableNames() + ", got \"" + name + "\"");
  }
}

std::vector<Table> readTables(const Folder& folder, const Selection& selection) {
  requireTables(selection.tables);
  std::vector<BeforeImages::Image> undecided;
  try {
    undecided = folder.beforeImages().undecided;
  } catch (const Cairn::CorruptionDetectedException& damage) {
    warn("which entries are undecided is unknown: " + damage.message());
  }
  std::vector<Table> tables;
  bool found = false;
  forEachOutputTable([&]<std::size_t Number, class Kind>(const TolmarHwLib::OutputTable<Kind>& table) {
    const auto& names = selection.tables;
    const bool named = std::find(names.begin(), names.end(), table.name) != names.end();
    if (!names.empty() && !named) return;
    for (const auto& [name, value] : selection.fields) {
      if (hasField<Kind>(name)) continue;
      if (named) refuseField(name);
      return;
    }
    tables.push_back(Reader<Kind>(folder, table).read(undecided, Number));
    keepSelected<Kind>(tables.back(), selection);
    found = found || !tables.back().config.missing || !tables.back().status.missing;
  });
  if (tables.empty()) refuseField(selection.fields.front().first);
  if (!found) {
    throw Cairn::Exception("runtime folder " + folder.path() + ": no table in it, expected " +
                           tables.front().config.file);
  }
  return tables;
}

void addTimes(const Folder& folder, std::vector<Table>& tables) {
  std::vector<Entry*> open;
  for (Table& table : tables) {
    for (Entry& entry : table.entries) {
      if (!entry.matches()) open.push_back(&entry);
    }
  }
  if (open.empty()) return;
  Skein::TraceProgress progress;
  std::vector<std::string> problems;         // the traces have commands of their own
  using Row = std::pair<bool, std::string>;  // a removal and its handle, or a row's genId
  std::map<Row, WallTime> times;
  for (const auto& record : readTraces(folder, {}, progress, problems)) {
    const bool isUndo = record.site->function == "undo";
    const bool isWrite = record.site->source == kCore && (isUndo || record.site->function == "write");
    if (!isWrite || record.values.empty()) continue;
    const bool isRemoval = record.values.size() == (isUndo ? 1 : 2);
    times[{isRemoval, record.values.back()}] = record.wall;
  }
  for (Entry* const entry : open) {
    const std::uint64_t number = entry->config ? entry->config->genId : entry->status->handle;
    const auto found = times.find({!entry->config, std::to_string(number)});
    if (found != times.end()) entry->writtenAt = found->second;
  }
}

}  // namespace Ctl
