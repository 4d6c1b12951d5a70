#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using P4Runtime::P4RuntimePluginHelper;
using testing::ElementsAre;

using Log = std::vector<std::string>;

class LoggingManager : public Orrery::EntityManager {
 public:
  LoggingManager(Log& log, const std::string& folder, Quill::EventLoop& loop)
      : EntityManager(folder, loop), log_(log) {}
  Quill::Ptr<QuillVesta::TableEntity> mount(const Quill::String& path, const Quill::String& typeName,
                                            const QuillVesta::MountDescription& description) const override {
    log_.push_back("mount " + path + " " + typeName + " type " +
                   std::to_string(static_cast<int>(description.type())) + " " + description.collection() +
                   " " + std::to_string(description.capacity()));
    return EntityManager::mount(path, typeName, description);
  }
  void cleanup(const Quill::String& path) const override {
    log_.push_back("cleanup " + path);
    EntityManager::cleanup(path);
  }
  void unmount(const Quill::String& path) const override {
    log_.push_back("unmount " + path);
    EntityManager::unmount(path);
  }

 private:
  Log& log_;
};

class LoggingDb : public Lumen::LumenDB {
 public:
  explicit LoggingDb(Log& log) : log_(log) {}
  void registerTable(const std::string& tableName, const std::string& rowTypeName, Lumen::TableType type,
                     std::uint16_t rowsHint, std::uint16_t changesHint, const std::string& folder,
                     const Lumen::IndexMap& indexMap) override {
    log_.push_back("register " + tableName + " " + rowTypeName + " type " +
                   std::to_string(static_cast<int>(type)) + " " + std::to_string(rowsHint) + " " +
                   std::to_string(changesHint) + " \"" + folder + "\" " + std::to_string(indexMap.size()));
    LumenDB::registerTable(tableName, rowTypeName, type, rowsHint, changesHint, folder, indexMap);
  }
  void tableImplementationIs(const std::string& tableName,
                             std::shared_ptr<Lumen::LmTableImplementation> implementation) override {
    log_.push_back("serve " + tableName);
    LumenDB::tableImplementationIs(tableName, std::move(implementation));
  }

 private:
  Log& log_;
};

struct HelperTest : testing::Test {
  NothingLeft nothingLeft;
  Log log;
  RuntimeFolder folder;
  Quill::EventLoop loop;
  Quill::Ptr<LoggingManager> manager = Quill::allocate<LoggingManager>(log, folder.path(), loop);
  std::shared_ptr<LoggingDb> db = std::make_shared<LoggingDb>(log);
  P4RuntimePluginHelper helper{db, manager, "p4runtime/outputTables/tolmar/"};
};

TEST_F(HelperTest, Path_HasNoSeparatorWithinTheTablesFolder) {
  EXPECT_EQ(helper.vestaPathConfig("l3IifTH3"), "p4runtime/outputTables/tolmar/l3IifTH3Table/config");
}

TEST_F(HelperTest, Mounts_ConfigThenStatusWithTheSameCollection) {
  helper.mountVestaTables("TolmarHwLib::MyStationTcamTH3", "myStationTcamTH3", "Table", 512);
  helper.mountVestaTables("TolmarHwLib::L3IifTH3", "other", "rowTable", 16);
  const std::string prefix = "mount p4runtime/outputTables/tolmar/";
  EXPECT_THAT(
      log, ElementsAre(
               prefix + "myStationTcamTH3Table/config TolmarHwLib::MyStationTcamTH3Config type 0 table 512",
               prefix + "myStationTcamTH3Table/status TolmarHwLib::MyStationTcamTH3Status type 1 table 512",
               prefix + "otherTable/config TolmarHwLib::L3IifTH3Config type 0 rowTable 16",
               prefix + "otherTable/status TolmarHwLib::L3IifTH3Status type 1 rowTable 16"));
}

TEST_F(HelperTest, Lookups_GiveNullForWhatIsNotThereOrOfAnotherType) {
  helper.mountVestaTables("TolmarHwLib::L3IifTH3", "l3IifTH3", "Table", 16);
  EXPECT_NE(helper.tableConfig<L3IifTH3Config>("l3IifTH3"), nullptr);
  EXPECT_NE(helper.tableStatus<L3IifTH3Status>("l3IifTH3"), nullptr);
  EXPECT_EQ(helper.tableConfig<L3TunnelTH3Config>("l3IifTH3"), nullptr);
  EXPECT_EQ(helper.tableStatus<L3TunnelTH3Status>("l3IifTH3"), nullptr);
  EXPECT_EQ(helper.tableConfig<L3IifTH3Config>("l3iifTH3"), nullptr);
  EXPECT_EQ(manager->mountedPaths().size(), 2u);
}

TEST_F(HelperTest, Registration_PassesItsArgumentsAsTheyStand) {
  helper.registerConfigTable<MyStationTcamTH3Config, MyStationTcamTH3ConfigEntryRow, MyStation::Wrapper>(
      nullptr, "myStationTcamTH3");
  EXPECT_THAT(log, ElementsAre("register LumenMyStationTcamTH3ConfigTable "
                               "TolmarHwLib::MyStationTcamTH3ConfigEntryRow type 2 256 256 \"\" 0",
                               "serve LumenMyStationTcamTH3ConfigTable"));
  const auto table = db->table("LumenMyStationTcamTH3ConfigTable");
  EXPECT_EQ(table->implementation().use_count(), 1) << "the row database is the only owner left";
  const auto& wrapper = *table->implementation();
  EXPECT_TRUE(wrapper.readerSupported());
  EXPECT_TRUE(wrapper.modifierSupported());
  EXPECT_FALSE(wrapper.observerSupported());
  EXPECT_EQ(wrapper.tableTypeName(), "TableLumenWrapper");
  EXPECT_EQ(wrapper.rowTypeName(), "TolmarHwLib::MyStationTcamTH3ConfigEntryRow");
  EXPECT_EQ(wrapper.rowTypeId(), MyStationTcamTH3ConfigEntryRow::protRowType());
  EXPECT_TRUE(wrapper.isUnique(0));
  EXPECT_FALSE(wrapper.isOrdered(0));
  EXPECT_FALSE(wrapper.bounded());
  db->tableImplementationDel("LumenMyStationTcamTH3ConfigTable");
}

TEST_F(HelperTest, Unmount_CleansUpFirstAndLeavesTheStatusTable) {
  helper.mountVestaTables("TolmarHwLib::L3IifTH3", "l3IifTH3", "Table", 16);
  log.clear();
  helper.unmountConfigVestaTable("l3IifTH3");
  const std::string path = "p4runtime/outputTables/tolmar/l3IifTH3Table/config";
  EXPECT_THAT(log, ElementsAre("cleanup " + path, "unmount " + path));
  EXPECT_THAT(manager->mountedPaths(), ElementsAre("p4runtime/outputTables/tolmar/l3IifTH3Table/status"));
}

TEST_F(HelperTest, FailedMount_ReleasesItsTemporariesAndKeepsTheMountBeforeIt) {
  const std::string status = "p4runtime/outputTables/tolmar/xTable/status";
  QuillVesta::MountDescription other(QuillVesta::QuillVestaType::reader);
  other.collectionIs("table", 99);
  {
    const QuillVesta::Mount inTheWay{manager};
    inTheWay.doMount(status, "TolmarHwLib::L3IifTH3Status", other);
  }
  EXPECT_THROW(helper.mountVestaTables("TolmarHwLib::L3IifTH3", "x", "Table", 16), Cairn::Exception);
  EXPECT_THAT(manager->mountedPaths(), ElementsAre("p4runtime/outputTables/tolmar/xTable/config", status));
  EXPECT_EQ(helper.tableConfig<L3IifTH3Config>("x")->table().capacity(), 16u);
  EXPECT_EQ(manager->references(), 2u) << "the test's and the helper's";
}

}  // namespace
}  // namespace WrapperTest
