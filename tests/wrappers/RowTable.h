// Row tables over real config tables in shared memory, the kinds that tests run over.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "P4RuntimePlugin/P4RuntimePluginHelper.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypesLumenWrappers.h"
#include "tests/NothingLeft.h"
#include "tests/RuntimeFolder.h"

namespace WrapperTest {

using namespace TolmarHwLib;

using L3Iif = L3IifTH3ConfigLumenWrappers::Kind;
using L3Tunnel = L3TunnelTH3ConfigLumenWrappers::Kind;
using MyStation = MyStationTcamTH3ConfigLumenWrappers::Kind;
template <class... Kind>
testing::Types<RowsOf<Kind>...> wrapperKinds(KindList<Kind...>);
using AllKinds = decltype(wrapperKinds(Kinds()));

// Key number `n`.
inline void keyIs(L3IifTH3ConfigEntry& entry, std::uint32_t n) { entry.l3Iif = 0x100000000u + n; }
inline void keyIs(MyStationTcamTH3ConfigEntry& entry, std::uint32_t n) { entry.priority = 1 + n; }
/// Both families, so that rows of different length follow each other in one scratch row.
inline void keyIs(L3TunnelTH3ConfigEntry& entry, std::uint32_t n) {
  entry.sip = *IpGenAddr::parse((n % 2 == 0 ? "192.0.2." : "2001:db8::") + std::to_string(n % 256));
  entry.dip = n % 3 == 0 ? IpGenAddr() : IpGenAddr::ipv4({198, 51, 100, 7});
}

template <class Kind>
using Contents = std::map<typename Kind::Key, typename Kind::Entry>;

/// A mounted config table of 64 entries, registered under its row table's name.
template <class Kind>
struct RowTable {
  using Config = typename Kind::Config;
  using Wrapper = typename Kind::Wrapper;
  using Entry = typename Kind::Entry;
  using Row = typename Kind::EntryRow;
  /// A recorded change: its index, 1 for written or 2 for deleted, and its row.
  using Change = std::tuple<std::uint64_t, std::uint32_t, Entry>;

  RowTable() {
    handler->sinkIs([this](const auto& message) { errors.emplace_back(message.text); });
  }
  ~RowTable() {
    for (const auto& served : db->tables()) db->tableImplementationDel(served->name());
  }

  /// The key's columns alone.
  static Entry keyOnly(std::uint32_t n) {
    Entry made{};
    keyIs(made, n);
    return made;
  }
  static auto key(std::uint32_t n) { return keyOnly(n).key(); }
  static Entry entry(std::uint32_t n, std::uint64_t data = 0) {
    Entry made = keyOnly(n);
    static_cast<ConfigBookkeeping&>(made) = {data, 1000 + n, true};
    return made;
  }
  static Row row(std::uint32_t n, std::uint64_t data = 0) { return Row::fromEntry(entry(n, data)); }
  static Entry entryOf(const Lumen::BaseRow& row) { return Row(row).entry(); }

  std::vector<Change> changes(std::uint64_t after = 0) {
    std::vector<Change> found;
    for (auto at = table->nextChange(after); at != table->endChange(); ++at) {
      const auto change = *at;
      found.emplace_back(change->index, static_cast<std::uint32_t>(change->kind), entryOf(change->row));
    }
    return found;
  }
  static Contents<Kind> contents(const Lumen::LmTable& of) {
    Contents<Kind> found;
    for (auto at = of.begin(); at; ++at) found.emplace(entryOf(*at).key(), entryOf(*at));
    return found;
  }
  /// Notifies the wrapper's reactor, which may be dropped meanwhile.
  void notifyReactor(std::uint32_t n) {
    using Reactor = typename Config::NotifieeConst;
    const Quill::Ptr<Reactor> reactor(static_cast<Reactor*>(config->notifieeList().front()));
    reactor->onTable(key(n));
  }
  /// Mounts the table, or mounts it again after damage.
  typename Config::Ptr mounted(const char* shortName = "sample") {
    std::string typePrefix(Row::rowTypeName());
    typePrefix.erase(typePrefix.find("ConfigEntryRow"));
    helper.mountVestaTables(typePrefix, shortName, "Table", 64);
    return helper.tableConfig<Config>(shortName);
  }
  /// Has the row table of that name, registered if it is not yet, served by a new wrapper.
  std::shared_ptr<Lumen::LmTable> registered(typename Config::Ptr over, const char* shortName) {
    helper.registerConfigTable<Config, Row, Wrapper>(over, shortName);
    return db->tables().back();
  }

  RuntimeFolder folder;
  Quill::EventLoop loop;
  std::vector<std::string> errors;  // logged by the table service
  std::shared_ptr<Cairn::DebugHandler> handler =
      std::make_shared<Cairn::DebugHandler>(Cairn::DebugHandler::kErrorFlag);
  Quill::Ptr<Orrery::EntityManager> manager =
      Quill::allocate<Orrery::EntityManager>(folder.path(), loop, handler);
  std::shared_ptr<Lumen::LumenDB> db = std::make_shared<Lumen::LumenDB>();
  P4Runtime::P4RuntimePluginHelper helper{db, manager, "test/"};
  typename Config::Ptr config = mounted();
  std::shared_ptr<Lumen::LmTable> table = registered(config, "sample");
  std::shared_ptr<Wrapper> wrapper = std::dynamic_pointer_cast<Wrapper>(table->implementation());
};

template <class Kind>
struct RowTableTest : testing::Test {
  NothingLeft nothingLeft;
  RowTable<Kind> rowTable;
};

}  // namespace WrapperTest
