#include <filesystem>

#include "lumen/LmErrors.h"
#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using RegistrationTest = RowTableTest<MyStation>;

TEST_F(RegistrationTest, Registration_HandsOverAWrapperWithItsFlags) {
  const MyStation::Wrapper& wrapper = *rowTable.wrapper;
  rowTable.wrapper.reset();
  const auto& table = rowTable.table;
  EXPECT_EQ(table->implementation().use_count(), 1) << "the row database is the only owner left";
  EXPECT_EQ(table->descriptor(), MyStation::EntryRow::lmTypeSignature());
  rowTable.db->registerTable(table->name(), wrapper.rowTypeName(), Lumen::TableType::external, 256, 256, "",
                             {});
  EXPECT_THAT(rowTable.db->tables(), testing::ElementsAre(table)) << "registered again without effect";
  EXPECT_EQ(rowTable.db->table("lumenSampleConfigTable"), nullptr);
  EXPECT_EQ(rowTable.helper.tableConfig<L3IifTH3Config>("sample"), nullptr) << "of another type";
  EXPECT_EQ(rowTable.helper.tableStatus<MyStationTcamTH3Status>("Sample"), nullptr);
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

TEST_F(RegistrationTest, Errors_SayWhatWasExpectedAndWhatCame) {
  auto& db = *rowTable.db;
  const std::string station = "TolmarHwLib::MyStationTcamTH3ConfigEntryRow";
  const std::string iif = "TolmarHwLib::L3IifTH3ConfigEntryRow";
  const auto registerTable = [&](const char* name, const std::string& rowTypeName) {
    db.registerTable(name, rowTypeName, Lumen::TableType::external, 256, 256, "", {});
  };
  registerTable("Iifs", iif);
  registerTable("Stations", station);
  const struct {
    std::function<void()> act;
    const char* text;
  } cases[] = {
      {[&] { registerTable("Stations", iif); },
       "table Stations is already registered differently, with rows of type "
       "TolmarHwLib::MyStationTcamTH3ConfigEntryRow; requested: TolmarHwLib::L3IifTH3ConfigEntryRow"},
      {[&] { db.tableImplementationIs("Pears", rowTable.wrapper); },
       "no table named Pears among 3 registered"},
      {[&] { db.tableImplementationDel("Pears"); }, "no table named Pears among 3 registered"},
      {[&] { db.tableImplementationIs("Iifs", nullptr); }, "null implementation for table Iifs"},
      {[&] { db.tableImplementationIs("Iifs", rowTable.wrapper); },
       "table Iifs has rows of type TolmarHwLib::L3IifTH3ConfigEntryRow, its implementation of type "
       "TolmarHwLib::MyStationTcamTH3ConfigEntryRow"},
      {[&] { db.tableImplementationIs("Stations", rowTable.wrapper); },
       "the implementation for table Stations serves another table"},
      {[&] { db.table("Stations")->rowIs(rowTable.row(1)); }, "table Stations has no implementation"},
  };
  for (const auto& [act, text] : cases) {
    EXPECT_THAT(act, testing::ThrowsMessage<Lumen::LmTableError>(text));
  }
  EXPECT_EQ(rowTable.table->implementation(), rowTable.wrapper) << "failures leave the table as it was";
  db.tableImplementationDel(rowTable.table->name());
  db.tableImplementationIs("Stations", rowTable.wrapper);  // free again
  EXPECT_THROW(registerTable("X", "TolmarHwLib::Unknown"), Lumen::LmMetadataError);
  EXPECT_EQ(db.table("X"), nullptr);
}

TEST_F(RegistrationTest, Unmount_RemovesTheConfigTableAlsoADamagedOneAndLeavesTheStatusTable) {
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
