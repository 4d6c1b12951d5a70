#include <fstream>

#include "Support.h"
#include "table-service/TableRead.h"
#include "table-service/VestaMap.h"
#include "tests/vesta/DamagedRow.h"
#include "vesta/files/CorruptionReport.h"

namespace VestaTest {
namespace {

using testing::AllOf, testing::Contains, testing::EndsWith, testing::HasSubstr, testing::IsSupersetOf,
    testing::MatchesRegex, testing::Not, testing::StartsWith, testing::ThrowsMessage;
using Map = Vesta::VestaMap<TestKey, TestEntry>;

class MapTest : public TableTest {
 protected:
  MapTest() {
    map.readyFunctionIs([] {});
  }
  /// The message of the corruption that a lookup of `id` detects.
  std::string messageOf(std::uint64_t id) {
    bool found = false;
    return failure([&] { map.directLookup(TestKey{id}, found); });
  }
  Vesta::AttachOptions options() const {
    auto made = TableTest::options();
    made.debugHandler = log.handler;
    return made;
  }
  std::string text() const { return path().text(); }
  std::string read(const std::string& file) const {
    std::ifstream stream(path().folder() + "/" + file);
    return {std::istreambuf_iterator<char>(stream), {}};
  }

  Log log;
  Map map;
};

// What happens to a corrupt table, step by step, is contract: texts, levels, lines, order.
TEST_F(MapTest, Corruption_DetachesReportsAndReadsAsEmpty) {
  const auto table = writer();
  put(*table, 1, 1);
  put(*table, 2, 1);
  log.handler->flagsIs(0x22);
  Names events;
  map.readyCallbackIs([&] { events.push_back("callback"); });
  map.readyFunctionIs([&] { events.push_back("function"); });
  map.attachReader(options());
  damageRow(*table, TestKey{1});
  bool found = true;
  EXPECT_EQ(map.directLookup(TestKey{2}, found).stamp, 1u) << "the other rows are not touched";
  const std::string message = messageOf(1);
  EXPECT_THAT(message,
              MatchesRegex("slot 0 version 0x[0-9a-f]+: checksum found 0x[0-9a-f]+, computed 0x[0-9a-f]+"));
  log.lines.clear();
  map.corruptionDetected(message);
  EXPECT_EQ(events, (Names{"callback", "function"}));
  EXPECT_FALSE(map.attached());
  map.directLookup(TestKey{2}, found);
  EXPECT_FALSE(found);
  EXPECT_EQ(
      log.lines,
      (Names{"1 VestaMap:383 corruptionDetected VestaMap::corruptionDetected() " + text() + " " + message,
             "1 VestaMap:324 detach VestaMap::detach() " + text(),
             "5 VestaMap:352 collectionReadyIs VestaMap::collectionReadyIs() ready:0 notifying:1",
             "1 VestaReport:0 writeCorruptionReport corruption report written: " + text() + ".report.1",
             "5 VestaBaseDummy:0 lookup VestaBaseDummy::lookup() " + text()}));

  EXPECT_THAT(read("table.report.1"),
              AllOf(HasSubstr("\nmessage: " + message + "\n"), HasSubstr("\nslot 0 as read:\n")));
  EXPECT_THAT([&] { map.corruptionDetected("again"); },
              ThrowsMessage<Cairn::CorruptionDetectedException>("VestaMap::corruptionDetected() " + text() +
                                                                " again"));
  EXPECT_EQ(events.size(), 2u) << "reported once";
  EXPECT_THROW(map.write(TestKey{1}, TestEntry()), Cairn::NoPermissionException);
}

TEST_F(MapTest, Corruption_MessagesFollowTheFlags) {
  const auto table = writer();
  log.handler->flagsIs(0);
  const struct {
    std::uint32_t flags;
    bool notifying;
    std::vector<testing::Matcher<std::string>> expected;
  } cases[] = {
      {0, true, {}},
      {0x2,
       true,
       {StartsWith("1 VestaMap:383 "), StartsWith("1 VestaMap:324 "), StartsWith("1 VestaReport:0 ")}},
      {0x20, true, {AllOf(StartsWith("5 VestaMap:352 "), EndsWith("ready:0 notifying:1"))}},
      {0x20, false, {AllOf(StartsWith("5 VestaMap:352 "), EndsWith("ready:0 notifying:0"))}}};
  for (const auto& [flags, notifying, expected] : cases) {
    log.handler->flagsIs(flags);
    log.lines.clear();
    map.attachReader(options());
    map.notifyingIs(notifying);
    map.corruptionDetected("x");
    EXPECT_THAT(log.lines, testing::ElementsAreArray(expected)) << flags;
  }
  map.attachReader(options());
  map.readyFunctionIs({});
  EXPECT_THROW(map.corruptionDetected("x"), std::bad_function_call) << "its absence is a programming error";
  EXPECT_FALSE(map.attached());
}

// From its first attach on, also a failed one, a map knows its path.
TEST_F(MapTest, Path_IsThatOfTheLastAttach) {
  const auto expectPath = [&](const std::string& expected) {
    EXPECT_THAT([&] { map.corruptionDetected("late"); },
                ThrowsMessage<Cairn::CorruptionDetectedException>("VestaMap::corruptionDetected() " +
                                                                  expected + " late"));
    EXPECT_TRUE(expected.empty() || map.rootPath().text() == expected);
  };
  expectPath("");
  EXPECT_THROW(map.rootPath(), Cairn::AssertionException);
  const auto other = writer();
  EXPECT_THROW(map.attachWriter(options()), Cairn::Exception);
  expectPath(text());
  auto elsewhere = options();
  elsewhere.path = Vesta::RootPath(folder_, "some/other/place", "table");
  elsewhere.capacity = 0;
  EXPECT_THROW(map.attachReader(elsewhere), Cairn::Exception);
  expectPath(elsewhere.path.text());
  map.attachReader(options());
  map.detach();
  expectPath(text());
}

TEST_F(MapTest, Report_SaysWhatWasFoundWhere) {
  auto table = writer();
  put(*table, 0x1122334455667788, 1);
  const std::size_t record = segmentOf(*table).layout().recordAt(table->sequence());
  const std::string damages[] = {"slot 0 version 0xb: checksum found 0x1, computed 0x2",
                                 "log record 2 at word " + std::to_string(record) + ": holds sequence 7"};
  const Vesta::DamagedPlace places[] = {Vesta::DamagedPlace::slot(0), Vesta::DamagedPlace::word(record)};
  const std::string dumps[] = {"slot 0 as read:", "around word " + std::to_string(record) + ":"};
  for (std::size_t i = 0; i < 2; ++i) {
    const std::string number = std::to_string(i + 1);
    EXPECT_EQ(Vesta::writeCorruptionReport(*log.handler, path(), damages[i], {places[i]}),
              text() + ".report." + number);
    const std::string report = read("table.report." + number);
    for (const std::string& part :
         Names{"table: " + text(), "message: " + damages[i], "time: 20", "pid: " + std::to_string(getpid()),
               "header magic: 0x31545345564c4f54", "header capacity: 0x40", "sequence: 0x2\n", dumps[i],
               " 88 77 66 55 44 33 22 11 "}) {
      EXPECT_THAT(report, HasSubstr(part));
    }
  }
  table->cleanup();
  for (int i = 3; i < 30; ++i) Vesta::writeCorruptionReport(*log.handler, path(), damages[0], {places[0]});
  EXPECT_THAT(read("table.report.29"), HasSubstr("segment cannot be opened: No such file"));
  EXPECT_EQ(files().size(), 17u) << "with the lock, the first eight and the last eight";
  EXPECT_THAT(files(), IsSupersetOf({"table.report.1", "table.report.8", "table.report.22"}));
}

// A reader that cannot attach to the next segment loses its table and nothing else.
TEST_F(MapTest, Corruption_WhenTheNextSegmentIsOutOfReach) {
  const auto table = writer();
  put(*table, 1, 1);
  map.attachReader(options());
  std::filesystem::remove(path().folder() + "/vesta.table.0");
  damageRow(*table, TestKey{1});
  EXPECT_NE(messageOf(1), "");
  put(*table, 2, 1);
  log.lines.clear();
  EXPECT_EQ(map.events().poll(10), 0u);
  EXPECT_FALSE(map.attached());
  EXPECT_THAT(log.lines.front(), HasSubstr("FIFO "));
  map.attachReader(options());
  EXPECT_EQ(map.members(), 1u);
}

// A reader detects corruption and mounts again: the living writer has been notified and has replaced the
// segment at its next write.
TEST_F(MapTest, Corruption_RemountAfterTheWriterHasReplacedTheSegment) {
  const auto table = writer();
  for (std::uint64_t id = 1; id <= 3; ++id) put(*table, id, 1);
  Ids notified;
  map.onChangeIs([&](const TestKey& key) { notified.push_back(key.id); });
  map.attachReader(options());
  const auto bystander = reader();
  damageRow(*table, TestKey{2});
  map.corruptionDetected(messageOf(2));
  EXPECT_EQ(map.events().wakeDescriptor(), -1);
  EXPECT_EQ(map.events().poll(10), 0u);
  EXPECT_TRUE(map.events().maySleep());
  EXPECT_THROW(map.attachReader(options()), Cairn::CorruptionDetectedException) << "still the damaged one";
  EXPECT_EQ(map.rootPath().text(), text()) << "the placeholder stays until the table is mounted again";
  put(*table, 4, 1);
  map.attachReader(options());
  while (map.events().poll(10) != 0) {
  }
  EXPECT_EQ(notified, (Ids{1, 3, 4}));
  EXPECT_EQ(stampOf(*map.implementation(), 3), 1u);
  EXPECT_EQ(VestaTest::notified(*bystander), (Ids{2, 1, 3, 4}))
      << "a reader that had not detected it follows to the new segment and is notified of what is gone";
  EXPECT_EQ(contents(*bystander).size(), 3u);
}

// Rows keep their slots in a new segment, so a walk continues in it.
TEST_F(MapTest, Walk_VisitsEachRowOnceWhateverSegmentItContinuesIn) {
  Map writing, reading;
  writing.readyFunctionIs([] {});
  const auto damage = [&] { damageRow(*writing.writer(), TestKey{2}); };
  const auto mount = [&] {
    writing.attachWriter(options());
    reading.attachReader(options());
  };
  const std::function<void()> acts[] = {[] {}, mount,
                                        [&] {  // damaged and mounted again
                                          damage();
                                          writing.corruptionDetected("x");
                                          mount();
                                        },
                                        [&] {  // replaced beneath both
                                          damage();
                                          failure([&] { stampOf(*reading.implementation(), 2); });
                                          writing.write(TestKey{9}, TestEntry::make(9, 1));
                                          reading.events().poll(100);
                                        }};
  for (const auto& act : acts) {
    for (Map* const walked : {&writing, &reading}) {
      SCOPED_TRACE(testing::Message() << "act " << &act - acts << ", reading " << (walked == &reading));
      startOver();
      mount();
      for (const std::uint64_t id : {8u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 4u, 1u}) {
        writing.write(TestKey{id}, TestEntry::make(id, 1));
      }
      writing.remove(TestKey{8});
      Ids visited;
      Vesta::forEachRow(*walked, [&](const Row& row) {
        if (row.key.id < 8) visited.push_back(row.key.id);
        if (visited.size() == 4) act();
      });
      EXPECT_EQ(visited, (Ids{1, 2, 3, 4, 5, 6, 7}));
    }
  }
}

TEST_F(MapTest, Handlers_MayDetachAndAttachTheirMap) {
  const auto table = writer();
  map.attachReader(options());
  for (std::uint64_t id = 1; id <= 3; ++id) put(*table, id, 1);
  Ids notified;
  map.onChangeIs([&](const TestKey& key) {
    notified.push_back(key.id);
    if (notified.size() == 1) {
      map.detach();
      map.attachReader(options());
    }
  });
  while (map.events().poll(10) != 0) {
  }
  EXPECT_EQ(notified, (Ids{1, 1, 2, 3}));
}

// Corruption of this table takes it down, once, whether poll or a handler detects it; other exceptions of a
// handler pass out. A row that keeps changing is no corruption.
TEST_F(MapTest, Corruption_DetectedByPollAndByHandlers) {
  const std::function<void(const TestKey&)> handlers[] = {
      [](const TestKey&) { throw Cairn::CorruptionDetectedException("another table's"); },
      [](const TestKey&) { throw Vesta::UnsettledException("busy"); },
      [](const TestKey&) { throw Cairn::SystemException("of no table", ENOSPC); },
      [this](const TestKey&) {
        map.corruptionDetected("detected by a handler");
        throw Cairn::CorruptionDetectedException("and again");
      },
      [this](const TestKey&) { stampOf(*map.implementation(), 2); },
      {}};
  for (std::size_t i = 0; i < 6; ++i) {
    SCOPED_TRACE(i);
    startOver();
    const auto table = writer();
    int lost = 0;
    map.readyFunctionIs([&] { ++lost; });
    map.attachReader(options());
    put(*table, 1, 1);
    put(*table, 2, 1);
    if (i == 4) damageRow(*table, TestKey{2});
    Vesta::Segment& segment = segmentOf(*table);
    if (i == 5) segment.at(segment.layout().recordAt(table->sequence()) + 2) ^= 4;
    map.onChangeIs(handlers[i]);
    const std::string passed = failure([this] { EXPECT_EQ(map.events().poll(10), 0u); });
    EXPECT_EQ(passed, i == 0 ? "another table's" : i == 2 ? "of no table: No space left on device" : "");
    EXPECT_EQ(map.attached(), i < 3);
    EXPECT_EQ(lost, i < 3 ? 0 : 1);
    EXPECT_EQ(segment.load(Vesta::kSleepersAt) != 0, i >= 4) << "whether the writer is to look for it";
  }
}

// A writer that mounts its damaged table again retires the segment and keeps the intact rows if asked.
TEST_F(MapTest, Corruption_WriterRemountRetiresTheDamagedSegment) {
  EXPECT_EQ(map.members(), 0u) << "unattached, it reads as empty";
  EXPECT_THROW(map.write(TestKey{1}, TestEntry()), Cairn::AssertionException);
  auto remount = options();
  for (const auto onDamage : {Vesta::OnDamage::keepIntactRows, Vesta::OnDamage::startEmpty}) {
    remount.onDamage = onDamage;
    map.attachWriter(options());
    for (std::uint64_t id = 1; id <= 3; ++id) map.write(TestKey{id}, TestEntry::make(id, 5));
    damageRow(*map.writer(), TestKey{2});
    map.corruptionDetected(messageOf(2));
    map.attachWriter(remount);
    EXPECT_EQ(map.members(), onDamage == Vesta::OnDamage::keepIntactRows ? 2u : 0u);
    map.detach();
  }
  EXPECT_THAT(files(), IsSupersetOf({"table.retired.1", "table.retired.2", "table.report.1"}));
  map.attachWriter(options());
  map.corruptionDetected("x");
  map.cleanup();
  EXPECT_THAT(files(), Not(Contains("table"))) << "the placeholder keeps the writer";
}

}  // namespace
}  // namespace VestaTest
