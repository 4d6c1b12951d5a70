// The plugin over tables in shared memory that another writer fills, sound and damaged.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "RecordingPlatform.h"

namespace {

using P4RuntimeTolmar::TolmarP4RuntimePlugin;

constexpr std::size_t kTables = 4;
constexpr const char* kStatusPaths[kTables] = {"p4runtime/outputTables/tolmar/l3TunnelIpv4TH3Table/status",
                                               "p4runtime/outputTables/tolmar/l3TunnelIpv6TH3Table/status",
                                               "p4runtime/outputTables/tolmar/myStationTcamTH3Table/status",
                                               "p4runtime/outputTables/tolmar/l3IifTH3Table/status"};

class Road : public RecordingPlatform {
 protected:
  void SetUp() override {
    plugin_->init(context_);
    const char* const types[kTables] = {"L3TunnelTH3", "L3TunnelTH3", "MyStationTcamTH3", "L3IifTH3"};
    const unsigned capacities[kTables] = {8192, 4096, 512, 8192};
    for (std::size_t i = 0; i < kTables; ++i) {
      QuillVesta::MountDescription description(QuillVesta::QuillVestaType::writer);
      description.collectionIs("table", capacities[i]);
      hardware_->mount(kStatusPaths[i], std::string("TolmarHwLib::") + types[i] + "Status", description);
    }
    taken();
  }
  void TearDown() override {
    hardware_ = nullptr;
    plugin_->pluginCleanupHelperIs(nullptr);
    plugin_ = nullptr;
    RecordingPlatform::TearDown();
  }

  /// What the hardware agent writes: one row of the table, always under the same key.
  void answer(std::size_t table, std::uint64_t handle, std::uint16_t errorCode = 0) {
    const auto entity = hardware_->entity(kStatusPaths[table]);
    const auto write = [&]<class Status>(const Quill::Ptr<Status>& status) {
      typename Status::Entry row;
      row.entryHandle = handle;
      row.errorCode = errorCode;
      status->tableIs(row);
    };
    if (table == 3) {
      write(Quill::ptrCast<TolmarHwLib::L3IifTH3Status>(entity));
    } else if (table == 2) {
      write(Quill::ptrCast<TolmarHwLib::MyStationTcamTH3Status>(entity));
    } else {
      write(Quill::ptrCast<TolmarHwLib::L3TunnelTH3Status>(entity));
    }
  }
  /// Everything that the agent's loop delivers, sorted.
  Log delivered() {
    while (loop_.step(std::chrono::milliseconds(50)) != 0) {
    }
    Log log = taken();
    std::sort(log.begin(), log.end());
    return log;
  }
  /// Turns over the bits of every place in the table's file that holds `handle`.
  void damage(std::size_t table, std::uint64_t handle) const {
    const std::string path = folder_.path() + "/" + kStatusPaths[table] + "/table";
    std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
    std::string bytes(std::filesystem::file_size(path), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    const std::string wanted(reinterpret_cast<const char*>(&handle), sizeof handle);
    std::size_t found = 0;
    for (std::size_t at = bytes.find(wanted); at != bytes.npos; at = bytes.find(wanted, at + 1), ++found) {
      const std::uint64_t turned = ~handle;
      file.seekp(static_cast<std::streamoff>(at));
      file.write(reinterpret_cast<const char*>(&turned), sizeof turned);
    }
    ASSERT_GT(found, 0u);
  }
  bool attached(std::size_t table) const {
    return dynamic_cast<const QuillVesta::TableEntity&>(
               *entityManager_->Orrery::EntityManager::entity(kStatusPaths[table]))
        .attached();
  }
  void lookAgain(std::size_t table) {
    if (table == 0) plugin_->l3TunnelIpv4TH3PhpSm()->onStatusRow({});
    if (table == 1) plugin_->l3TunnelIpv6TH3PhpSm()->onStatusRow({});
    if (table == 2) plugin_->myStationTcamTH3PhpSm()->onStatusRow({});
    if (table == 3) plugin_->l3IifTH3PhpSm()->onStatusRow({});
  }

  Quill::EventLoop hardwareLoop_;
  Quill::Ptr<Orrery::EntityManager> hardware_ =
      Quill::allocate<Orrery::EntityManager>(folder_.path(), hardwareLoop_);
  Quill::Ptr<TolmarP4RuntimePlugin> plugin_ = Quill::allocate<TolmarP4RuntimePlugin>(Quill::Name("Tolmar"));
};

TEST_F(Road, Answers_OfEveryTableReachTheOneBatchStatus) {
  for (std::size_t table = 0; table < kTables; ++table)
    answer(table, 10 + table, static_cast<std::uint16_t>(table));
  EXPECT_EQ(delivered(), (Log{"completed 10 0", "completed 11 1", "completed 12 2", "completed 13 3"}));
  EXPECT_TRUE(batch_->notificationTake());
}

TEST_F(Road, Damage_OfOneTableLeavesTheOthersAtWork) {
  for (std::size_t damaged = 0; damaged < kTables; ++damaged) {
    SCOPED_TRACE(kStatusPaths[damaged]);
    const std::uint64_t handle = 0x1122334455667700u + damaged;
    answer(damaged, handle);
    delivered();
    damage(damaged, handle);
    lookAgain(damaged);
    EXPECT_EQ(taken(), Log{});
    for (std::size_t table = 0; table < kTables; ++table)
      EXPECT_EQ(attached(table), table > damaged) << table;
    Log expected;
    for (std::size_t table = 0; table < kTables; ++table) {
      answer(table, 20 + table);
      if (table > damaged) expected.push_back("completed " + std::to_string(20 + table) + " 0");
    }
    EXPECT_EQ(delivered(), expected);
  }
}

/// A config table found damaged by the VRF tracker: its counts stay, the status side goes on.
TEST_F(Road, Damage_OfTheConfigTableKeepsVrfCountsAndStatus) {
  TolmarHwLib::L3IifTH3ConfigEntry entry;
  entry.vrf = 5;
  plugin_->l3IifTH3Config()->tableIs(entry);
  plugin_->l3IifTH3Config()->corruptionDetected("found by another reader");
  plugin_->vrfSm()->handleL3IifTH3ConfigEntry({99});
  EXPECT_EQ(vrfs_->vrfIdRefCount(P4Runtime::VrfId(5)), 1u);
  answer(3, 30);
  EXPECT_EQ(delivered(), Log{"completed 30 0"});
}

}  // namespace
