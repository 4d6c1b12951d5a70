#include <gtest/gtest.h>

#include <vector>

#include "P4RuntimeTolmar/Entities.h"
#include "orrery/Mount.h"
#include "tests/RuntimeFolder.h"

namespace {

using QuillVesta::Mount;
using QuillVesta::MountDescription;
using QuillVesta::QuillVestaType;
using TolmarHwLib::L3IifTH3Config;
using TolmarHwLib::L3IifTH3ConfigEntry;
using TolmarHwLib::L3IifTH3Key;

constexpr unsigned kCapacity = 8;

L3IifTH3ConfigEntry entry(std::uint64_t l3Iif, std::uint16_t vrf = 1) {
  L3IifTH3ConfigEntry result;
  result.l3Iif = l3Iif;
  result.vrf = vrf;
  return result;
}

/// Notes each key it is told of, together with the VRF that the table holds for it then; -1 for none.
class Listener final : public L3IifTH3Config::NotifieeConst {
 public:
  struct Call {
    std::uint64_t l3Iif;
    int vrf;
    friend bool operator==(const Call&, const Call&) = default;
  };

  explicit Listener(const L3IifTH3Config::Ptr& table) {
    notifierIs(table);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  using TableNotifieeConst::onTable;
  void onTable(const L3IifTH3Key& key) override {
    bool found = false;
    const auto& present = notifier()->directLookup(key, found);
    calls.push_back({key.l3Iif, found ? present.vrf : -1});
  }

  std::vector<Call> calls;
};

/// One process's view of the table: its own event loop, entity manager and mount.
struct Side {
  Side(const std::string& folder, QuillVestaType type) {
    MountDescription description(type);
    description.collectionIs("table", kCapacity);
    mount = std::make_unique<Mount>(Quill::allocate<Orrery::EntityManager>(folder, loop));
    table = Quill::ptrCast<L3IifTH3Config>(
        mount->doMount("some/table/config", "TolmarHwLib::L3IifTH3Config", description));
  }
  /// Steps the loop until nothing is ready any more.
  void settle() {
    for (int idle = 0; idle < 3;) idle = loop.step(std::chrono::milliseconds(0)) == 0 ? idle + 1 : 0;
  }

  Quill::EventLoop loop;
  std::unique_ptr<Mount> mount;
  L3IifTH3Config::Ptr table;
};

using Calls = std::vector<Listener::Call>;

TEST(TableEntity, Writer_IsToldAtOnceAndOfEveryWrite) {
  const RuntimeFolder folder;
  Side side(folder.path(), QuillVestaType::writer);
  Listener listener(side.table);

  side.table->tableIs(entry(5, 1));
  side.table->tableIs(entry(5, 1));
  side.table->tableIs(entry(6, 2));
  side.table->tableDel(L3IifTH3Key{7});
  side.table->tableDel(L3IifTH3Key{5});
  EXPECT_EQ(listener.calls, (Calls{{5, 1}, {5, 1}, {6, 2}, {5, -1}}));

  listener.calls.clear();
  side.table->tableIs(entry(8, 3));
  side.table->tableDelAll();
  EXPECT_EQ(listener.calls.size(), 3u);
  EXPECT_EQ(side.table->table().members(), 0u);
}

TEST(TableEntity, Writer_FullTableStoresNothingAndTellsNobody) {
  const RuntimeFolder folder;
  Side side(folder.path(), QuillVestaType::writer);
  for (std::uint64_t i = 0; i < kCapacity; ++i) side.table->tableIs(entry(i));
  Listener listener(side.table);

  try {
    side.table->tableIs(entry(99));
    FAIL() << "a full table took another entry";
  } catch (const Cairn::ResourceExhaustedException& full) {
    EXPECT_NE(full.message().find("used 8 of 8"), std::string::npos) << full.message();
  }
  side.table->tableIs(entry(3, 9));
  EXPECT_EQ(listener.calls, (Calls{{3, 9}}));
}

TEST(TableEntity, Reader_HearsTheWriterThroughItsLoop) {
  const RuntimeFolder folder;
  Side reader(folder.path(), QuillVestaType::reader);
  Side writer(folder.path(), QuillVestaType::writer);
  reader.settle();
  Listener listener(reader.table);

  writer.table->tableIs(entry(5, 1));
  writer.table->tableIs(entry(6, 2));
  writer.table->tableDel(L3IifTH3Key{6});
  EXPECT_TRUE(listener.calls.empty());
  reader.settle();
  EXPECT_EQ(listener.calls, (Calls{{5, 1}, {6, -1}, {6, -1}}));
  EXPECT_THROW(reader.table->tableIs(entry(1)), Cairn::NoPermissionException);
}

TEST(TableEntity, Reader_MountedLaterFindsRowsButIsToldOnlyOfLaterChanges) {
  const RuntimeFolder folder;
  Side writer(folder.path(), QuillVestaType::writer);
  writer.table->tableIs(entry(5, 1));
  Side reader(folder.path(), QuillVestaType::reader);
  Listener listener(reader.table);
  reader.settle();
  EXPECT_TRUE(listener.calls.empty());
  EXPECT_EQ(reader.table->table().members(), 1u);

  writer.table->tableIs(entry(5, 2));
  reader.settle();
  EXPECT_EQ(listener.calls, (Calls{{5, 2}}));
}

TEST(TableEntity, Unmounted_ReadsAsEmptyAndRefusesWrites) {
  const RuntimeFolder folder;
  Side side(folder.path(), QuillVestaType::writer);
  side.table->tableIs(entry(5));
  side.mount->doUnmount("some/table/config");
  bool found = true;
  EXPECT_EQ(side.table->directLookup(L3IifTH3Key{5}, found), L3IifTH3ConfigEntry{});
  EXPECT_FALSE(found);
  EXPECT_THROW(side.table->tableIs(entry(6)), Cairn::Exception);
}

}  // namespace
