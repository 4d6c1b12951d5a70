#include "apps/hw/Tables.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "P4RuntimeTolmar/Entities.h"
#include "apps/hw/EntityFollower.h"

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
  for (const FailOption& fail : settings.fails) {
    const std::vector<std::string> names = tableNames();
    if (std::find(names.begin(), names.end(), fail.table) != names.end()) continue;
    std::string list;
    for (const std::string& name : names) list += (list.empty() ? "" : ", ") + name;
    throw Cairn::Exception("--fail: expected a table (" + list + "), got \"" + fail.table + "\"");
  }
}

}  // namespace

std::vector<std::string> tableNames() {
  std::vector<std::string> names;
  names.reserve(kTables.size());
  for (const Table& table : kTables) names.emplace_back(table.name);
  return names;
}

std::vector<std::unique_ptr<TableFollower>> followTables(
    const Quill::Ptr<const Orrery::EntityManager>& entityManager, const Settings& settings) {
  requireKnownTables(settings);
  std::vector<std::unique_ptr<TableFollower>> followers;
  followers.reserve(kTables.size());
  for (const Table& table : kTables) {
    const TablePlace place{entityManager, std::string(table.name), std::string(table.typePrefix),
                           std::string(kPathPrefix) + std::string(table.name) + "Table/", table.capacity};
    followers.push_back(table.follow(place, settings));
  }
  return followers;
}

}  // namespace HwAgent
