// tolmarctl watch: changes of both sides, by the change logs of the segments.
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <thread>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/ctl/Commands.h"
#include "apps/ctl/Records.h"
#include "apps/ctl/Tables.h"
#include "apps/ctl/Text.h"
#include "apps/ctl/TypedView.h"
#include "cairn/Exception.h"
#include "vesta/segment/ChangeFollower.h"

namespace Ctl {

namespace {

/// What follows the key in a line: every column that is not 0, and of a changed row also the value before.
template <class Record, class Columns>
std::string changesText(const Record& record, const Record* before, const Columns& columns) {
  std::string text;
  const Fields now = fieldsOf(record, columns);
  const Fields earlier = before != nullptr ? fieldsOf(*before, columns) : Fields();
  for (std::size_t i = 0; i < now.size(); ++i) {
    const bool changed = !earlier.empty() && earlier[i].text != now[i].text;
    if (changed) {
      text += fmt::format(" {}={}->{}", now[i].name, earlier[i].text, now[i].text);
    } else if (earlier.empty() && !now[i].isZero) {
      text += fmt::format(" {}={}", now[i].name, now[i].text);
    }
  }
  return text;
}

class WatchedSide {
 public:
  virtual ~WatchedSide() = default;
  /// Prints what has changed since the last call.
  virtual void poll() = 0;
};

template <class Key, class EntryT>
class Watched final : public WatchedSide {
 public:
  Watched(const Folder& folder, std::string_view table, const char* side, const std::string& path,
          unsigned capacity)
      : title_(fmt::format("{} {}", table, side)),
        view_(folder.path(), path, capacity),
        follower_(view_.segment().layout()) {
    Vesta::RowReads* const reads = view_.segment().reads();
    try {
      if (reads != nullptr) follower_ = Vesta::ChangeFollower::fromNowOn(*reads);
    } catch (const Cairn::CorruptionDetectedException& damage) {
      problemIs(damage.message());
    }
    std::vector<std::string> damage;
    view_.each(damage, [this](const EntryT& entry) { known_.emplace(entry.key(), entry); });
  }

  void poll() override {
    constexpr int kLimit = 10'000;  // of one call
    try {
      if (view_.segment().refresh()) switchSegment();
      const auto changed = [this](const Vesta::Word* words) {
        Key key{};
        Vesta::EncodedRow<Key, EntryT>::decodeKeyFrom(words, key);
        print(key);
      };
      for (int i = 0; i < kLimit && follower_.notifyNext(view_.segment().reads(), changed); ++i) {
      }
      if (view_.segment().reads() != nullptr) problem_.clear();
    } catch (const Cairn::Exception& problem) {
      problemIs(problem.message());
    }
  }

 private:
  void switchSegment() {
    Vesta::RowReads* const reads = view_.segment().reads();
    if (reads != nullptr) {
      follower_ = Vesta::ChangeFollower(follower_, *reads);
      line("another segment");
      return;
    }
    follower_.segmentGone();
    problemIs(view_.segment().missing() ? "no segment" : view_.segment().fault().text);
  }

  void print(const Key& key) {
    std::optional<EntryT> entry;
    try {
      entry = view_.find(key);
    } catch (const Cairn::Exception& problem) {
      return problemIs(problem.message());
    }
    const auto known = known_.find(key);
    const std::string keyText = Ctl::textOf(fieldsOf(key, Key::keyColumns));
    if (!entry) {
      if (known == known_.end()) return;
      line("removed " + keyText);
      known_.erase(known);
      return;
    }
    const EntryT* const before = known == known_.end() ? nullptr : &known->second;
    if (before != nullptr && *before == *entry) return;
    constexpr auto kColumns = std::tuple_cat(EntryT::headColumns, EntryT::dataColumns);
    line((before != nullptr ? "changed " : "added ") + keyText + changesText(*entry, before, kColumns));
    known_[key] = *entry;
  }

  void line(const std::string& text) { fmt::print("{} {} {}\n", timeText(now()), title_, text); }
  void problemIs(const std::string& text) {
    if (text == problem_) return;
    line("PROBLEM " + text);
    problem_ = text;
  }

  std::string title_;
  TypedView<Key, EntryT> view_;
  Vesta::ChangeFollower follower_;
  std::map<Key, EntryT> known_;
  std::string problem_;
};

int watch(const std::string& path, const std::vector<std::string>& names) {
  constexpr std::chrono::milliseconds kInterval{20};
  const Folder folder(path);
  requireTables(names);
  std::vector<std::unique_ptr<WatchedSide>> sides;
  TolmarHwLib::forEachOutputTable([&]<std::size_t, class Kind>(const TolmarHwLib::OutputTable<Kind>& table) {
    using Key = typename Kind::Key;
    if (!names.empty() && std::find(names.begin(), names.end(), table.name) == names.end()) return;
    const std::string_view prefix = TolmarHwLib::kOutputTablePrefix;
    sides.push_back(std::make_unique<Watched<Key, typename Kind::ConfigEntry>>(
        folder, table.name, "config", TolmarHwLib::configPath(prefix, table.name), table.capacity));
    sides.push_back(std::make_unique<Watched<Key, typename Kind::StatusEntry>>(
        folder, table.name, "status", TolmarHwLib::statusPath(prefix, table.name), table.capacity));
  });
  warn(fmt::format("watching {} tables in {}", sides.size() / 2, folder.path()));
  while (std::fflush(stdout) == 0) {
    for (const auto& side : sides) side->poll();
    if (std::fflush(stdout) != 0) break;
    std::this_thread::sleep_for(kInterval);
  }
  return kFailed;  // standard output has gone
}

}  // namespace

void addWatch(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("watch", "changes of both sides as they happen");
  const auto tables = std::make_shared<std::vector<std::string>>();
  addTables(command, *tables);
  command.footer(
      "One line for each change, until it is interrupted. Checks 50 times a second\n"
      "and shows a row as it is then: of several changes in between, the last. Times\n"
      "are those of the check.");
  runsAs(command, line, [tables](const std::string& folder) { return watch(folder, *tables); });
}

}  // namespace Ctl
