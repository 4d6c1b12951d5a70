#include <filesystem>

#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using QuillVesta::MountDescription;
using QuillVesta::QuillVestaType;
using HelperTest = RowTableTest<MyStation>;

TEST_F(HelperTest, Mounts_AreFoundByNameAndType) {
  auto& helper = rowTable.helper;
  const auto& manager = *rowTable.manager;
  helper.mountVestaTables("TolmarHwLib::L3IifTH3", "l3IifTH3", "RowTable", 16);
  EXPECT_EQ(helper.vestaPathConfig("l3IifTH3"), "test/l3IifTH3Table/config");
  // What is mounted otherwise is refused.
  helper.mountVestaTables("TolmarHwLib::L3IifTH3", "l3IifTH3", "rowTable", 16);
  MountDescription written(QuillVestaType::writer), read(QuillVestaType::reader);
  written.collectionIs("rowTable", 16);
  read.collectionIs("rowTable", 16);
  EXPECT_EQ(helper.tableConfig<L3IifTH3Config>("l3IifTH3"),
            manager.mount("test/l3IifTH3Table/config", "TolmarHwLib::L3IifTH3Config", written));
  EXPECT_EQ(helper.tableStatus<L3IifTH3Status>("l3IifTH3"),
            manager.mount("test/l3IifTH3Table/status", "TolmarHwLib::L3IifTH3Status", read));
  EXPECT_EQ(helper.tableConfig<L3TunnelTH3Config>("l3IifTH3"), nullptr);
  EXPECT_EQ(helper.tableStatus<L3IifTH3Status>("l3iifTH3"), nullptr);
  EXPECT_EQ(manager.mountedPaths().size(), 4u);
}

TEST_F(HelperTest, Registration_HandsOverAWrapperWithItsFlags) {
  const MyStation::Wrapper& wrapper = *rowTable.wrapper;
  rowTable.wrapper.reset();
  EXPECT_EQ(rowTable.table->implementation().use_count(), 1) << "the row database is the only owner left";
  EXPECT_TRUE(wrapper.readerSupported());
  EXPECT_TRUE(wrapper.modifierSupported());
  EXPECT_FALSE(wrapper.observerSupported());
  EXPECT_EQ(wrapper.tableTypeName(), "TableLumenWrapper");
  EXPECT_EQ(wrapper.rowTypeName(), "TolmarHwLib::MyStationTcamTH3ConfigEntryRow");
  EXPECT_EQ(wrapper.rowTypeId(), MyStationTcamTH3ConfigEntryRow::protRowType());
  EXPECT_TRUE(wrapper.isUnique(0));
  EXPECT_FALSE(wrapper.isOrdered(0));
  EXPECT_FALSE(wrapper.bounded());
}

TEST_F(HelperTest, Unmount_RemovesTheConfigTableAlsoADamagedOneAndLeavesTheStatusTable) {
  const std::string segment = rowTable.folder.path() + "/test/sampleTable/config/table";
  for (const bool damaged : {false, true}) {
    const auto config = rowTable.mounted();
    if (damaged) config->corruptionDetected("bad bytes");
    EXPECT_TRUE(std::filesystem::exists(segment));
    rowTable.helper.unmountConfigVestaTable("sample");
    EXPECT_FALSE(std::filesystem::exists(segment)) << "damaged: " << damaged;
    EXPECT_FALSE(config->attached());
    EXPECT_THAT(rowTable.manager->mountedPaths(), testing::ElementsAre("test/sampleTable/status"));
  }
}

}  // namespace
}  // namespace WrapperTest
