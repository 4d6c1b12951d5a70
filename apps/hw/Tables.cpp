#include "apps/hw/Tables.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/hw/EntityFollower.h"
#include "apps/process/CommandLine.h"

namespace HwAgent {

TableFollower::~TableFollower() = default;

namespace {

using TolmarHwLib::L3IifTH3Config;
using TolmarHwLib::L3IifTH3Status;
using TolmarHwLib::L3TunnelTH3Config;
using TolmarHwLib::L3TunnelTH3Status;
using TolmarHwLib::MyStationTcamTH3Config;
using TolmarHwLib::MyStationTcamTH3Status;

constexpr std::string_view kPathPrefix = "p4runtime/outputTables/tolmar/";

struct Table {
  std::string_view name;
  std::string_view typePrefix;
  unsigned capacity;
  std::unique_ptr<TableFollower> (*follow)(const TablePlace& place, const Settings& settings);
};

constexpr std::array<Table, 4> kTables = {{
    {"l3TunnelIpv4TH3", "TolmarHwLib::L3TunnelTH3", 8192,
     followEntities<L3TunnelTH3Config, L3TunnelTH3Status>},
    {"l3TunnelIpv6TH3", "TolmarHwLib::L3TunnelTH3", 4096,
     followEntities<L3TunnelTH3Config, L3TunnelTH3Status>},
    {"myStationTcamTH3", "TolmarHwLib::MyStationTcamTH3", 512,
     followEntities<MyStationTcamTH3Config, MyStationTcamTH3Status>},
    {"l3IifTH3", "TolmarHwLib::L3IifTH3", 8192, followEntities<L3IifTH3Config, L3IifTH3Status>},
}};

void requireKnownTables(const Settings& settings) {
  std::vector<std::string> names;
  for (const Table& table : kTables) names.emplace_back(table.name);
  for (const FailOption& fail : settings.fails) {
    if (std::find(names.begin(), names.end(), fail.table) != names.end()) continue;
    throw Cairn::Exception("--fail: expected a table (" + Process::listed(names) + "), got \"" + fail.table +
                           "\"");
  }
}

}  // namespace

Tables::Tables(Quill::Ptr<const Orrery::EntityManager> entityManager, Settings settings, Report report)
    : entityManager_(std::move(entityManager)),
      settings_(std::move(settings)),
      report_(std::move(report)),
      followed_(kTables.size()) {
  requireKnownTables(settings_);
  follow();
  started_ = true;
  arm();
}

Tables::~Tables() { entityManager_->eventLoop().timerDel(timer_); }

std::uint64_t Tables::answers() const {
  std::uint64_t sum = answersBefore_;
  for (const Followed& followed : followed_) sum += followed.follower ? followed.follower->answers() : 0;
  return sum;
}

void Tables::follow() {
  for (std::size_t i = 0; i < kTables.size(); ++i) {
    const Table& table = kTables[i];
    const std::string name(table.name);
    auto& [follower, waitedFor] = followed_[i];
    if (follower && follower->attached()) {
      follower->lookForDamage();
      continue;
    }
    if (follower) answersBefore_ += follower->answers();
    follower.reset();
    const TablePlace place{entityManager_, name, std::string(table.typePrefix),
                           std::string(kPathPrefix) + name + "Table/", table.capacity};
    try {
      follower = table.follow(place, settings_);
      if (std::exchange(waitedFor, false)) report_(name + ": followed again");
    } catch (const Cairn::CorruptionDetectedException& damage) {
      // The table's writer has been told and replaces it at its next write.
      wait(name, waitedFor, damage.message());
    } catch (const Cairn::Exception& failure) {
      if (!started_) throw;
      wait(name, waitedFor, failure.message());
    }
  }
}

void Tables::wait(const std::string& table, bool& waitedFor, const std::string& reason) {
  if (!std::exchange(waitedFor, true)) report_(table + ": waiting for a sound table: " + reason);
}

void Tables::arm() {
  timer_ = entityManager_->eventLoop().timerIs(kPause, [this] {
    follow();
    arm();
  });
}

}  // namespace HwAgent
