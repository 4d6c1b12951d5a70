// Row tables over real config tables in shared memory, and the three kinds that tests run over.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "P4RuntimePlugin/P4RuntimePluginHelper.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypesLumenWrappers.h"
#include "tests/RuntimeFolder.h"

namespace WrapperTest {

using namespace TolmarHwLib;

struct L3Iif {
  using Kind = L3IifTH3ConfigLumenWrappers::Kind;
  using Wrapper = L3IifTH3ConfigLumenWrappers::TableLumenWrapper;
  static constexpr const char* kTypePrefix = "TolmarHwLib::L3IifTH3";
  static constexpr auto kFillRow = &Wrapper::lumenTolmarHwLibL3IifTH3ConfigEntry;
  static constexpr auto kKeyOfRow = &Wrapper::quillTolmarHwLibL3IifTH3Key;
  static void keyIs(Kind::Entry& entry, std::uint32_t n) { entry.l3Iif = 0x100000000u + n; }
  static void dataIs(Kind::Entry& entry, std::uint64_t n) { entry.vrf = static_cast<std::uint16_t>(n); }
};

struct L3Tunnel {
  using Kind = L3TunnelTH3ConfigLumenWrappers::Kind;
  using Wrapper = L3TunnelTH3ConfigLumenWrappers::TableLumenWrapper;
  static constexpr const char* kTypePrefix = "TolmarHwLib::L3TunnelTH3";
  static constexpr auto kFillRow = &Wrapper::lumenTolmarHwLibL3TunnelTH3ConfigEntry;
  static constexpr auto kKeyOfRow = &Wrapper::quillTolmarHwLibL3TunnelTH3Key;
  // Both families, so that rows of different length follow each other in one scratch row.
  static void keyIs(Kind::Entry& entry, std::uint32_t n) {
    const auto low = static_cast<std::uint8_t>(n);
    const auto high = static_cast<std::uint8_t>(n >> 8);
    entry.sip = n % 2 == 0
                    ? IpGenAddr::ipv4({192, 0, high, low})
                    : IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, high, low});
    entry.dip = n % 3 == 0 ? IpGenAddr() : IpGenAddr::ipv4({198, 51, 100, low});
    entry.protocol = 47;
  }
  static void dataIs(Kind::Entry& entry, std::uint64_t n) {
    entry.tunnelClassId = static_cast<std::uint16_t>(n);
  }
};

struct MyStation {
  using Kind = MyStationTcamTH3ConfigLumenWrappers::Kind;
  using Wrapper = MyStationTcamTH3ConfigLumenWrappers::TableLumenWrapper;
  static constexpr const char* kTypePrefix = "TolmarHwLib::MyStationTcamTH3";
  static constexpr auto kFillRow = &Wrapper::lumenTolmarHwLibMyStationTcamTH3ConfigEntry;
  static constexpr auto kKeyOfRow = &Wrapper::quillTolmarHwLibMyStationTcamTH3Key;
  static void keyIs(Kind::Entry& entry, std::uint32_t n) {
    entry.macAddr = EthAddr{{0, 0, 0x5e, 0, 0x53, 1}};
    entry.priority = n;
  }
  static void dataIs(Kind::Entry& entry, std::uint64_t n) { entry.copyToCpu = n % 2 == 1; }
};

using AllKinds = testing::Types<L3Tunnel, MyStation, L3Iif>;

/// A mounted config table of 64 entries, registered under its row table's name.
template <class Sample>
class RowTable {
 public:
  using Kind = typename Sample::Kind;
  using Wrapper = typename Sample::Wrapper;
  using Entry = typename Kind::Entry;
  using Row = typename Kind::EntryRow;
  static constexpr unsigned kCapacity = 64;

  explicit RowTable(unsigned capacity = kCapacity) {
    helper.mountVestaTables(Sample::kTypePrefix, "sample", "Table", capacity);
    config = helper.tableConfig<typename Kind::Config>("sample");
    helper.registerConfigTable<typename Kind::Config, Row, Wrapper>(config, "sample");
    table = db->table("LumenSampleConfigTable");
    wrapper = std::dynamic_pointer_cast<Wrapper>(table->implementation());
  }
  ~RowTable() {
    if (table) db->tableImplementationDel(table->name());
  }
  RowTable(const RowTable&) = delete;
  RowTable& operator=(const RowTable&) = delete;

  /// The entry of key number `n`, its data told by `data`.
  static Entry entry(std::uint32_t n, std::uint64_t data = 0) {
    Entry made{};
    made.genId = data;
    made.entryHandle = 1000 + n;
    made.valid = true;
    Sample::keyIs(made, n);
    Sample::dataIs(made, data);
    return made;
  }
  static typename Kind::Key key(std::uint32_t n) { return entry(n).key(); }
  static Row row(std::uint32_t n, std::uint64_t data = 0) { return Row::fromEntry(entry(n, data)); }
  /// The key's columns alone.
  static Entry keyOnly(std::uint32_t n) {
    Entry made{};
    Sample::keyIs(made, n);
    return made;
  }
  static Entry entryOf(const Lumen::BaseRow& row) { return Row(row).entry(); }

  /// The change map, each change as (index, written or deleted, key number), keys below 64.
  struct Change {
    std::uint64_t index;
    Lumen::ChangeKind kind;
    std::uint32_t n;
    friend bool operator==(const Change&, const Change&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Change& change) {
      return out << "(" << change.index << ", " << static_cast<unsigned>(change.kind) << ", " << change.n
                 << ")";
    }
  };
  std::vector<Change> changes(std::uint64_t after = 0) {
    std::vector<Change> found;
    for (auto at = table->nextChange(after); at != table->endChange(); ++at) {
      const auto change = *at;
      std::uint32_t n = 0;
      while (n < 64 && !(key(n) == Row(change->row).keyRecord())) ++n;
      found.push_back({change->index, change->kind, n});
    }
    return found;
  }

  RuntimeFolder folder;
  Quill::EventLoop loop;
  Quill::Ptr<Orrery::EntityManager> manager = Quill::allocate<Orrery::EntityManager>(folder.path(), loop);
  std::shared_ptr<Lumen::LumenDB> db = std::make_shared<Lumen::LumenDB>();
  P4Runtime::P4RuntimePluginHelper helper{db, manager, "test/"};
  typename Kind::Config::Ptr config;
  std::shared_ptr<Lumen::LmTable> table;
  std::shared_ptr<Wrapper> wrapper;
};

/// Checks at its end that no counted object is left that was not there at its beginning.
struct NothingLeft {
  ~NothingLeft() { EXPECT_EQ(Quill::AllocTrackTypeInfo::liveTotal(), before); }
  std::int64_t before = Quill::AllocTrackTypeInfo::liveTotal();
};

template <class Sample>
struct RowTableTest : testing::Test {
  NothingLeft nothingLeft;
  RowTable<Sample> rowTable;
};

}  // namespace WrapperTest
