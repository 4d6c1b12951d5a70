#include "orrery/Mount.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>

#include "P4RuntimeTolmar/kinds/L3IifTH3.h"
#include "tests/RuntimeFolder.h"
#include "tests/vesta/DamagedRow.h"

namespace {

using namespace TolmarHwLib;

constexpr const char* kPath = "p4runtime/outputTables/tolmar/l3IifTH3Table/config";
constexpr const char* kType = "TolmarHwLib::L3IifTH3Config";

QuillVesta::MountDescription description(int type, unsigned capacity = 8) {
  QuillVesta::MountDescription result(QuillVesta::QuillVestaType{type});
  result.collectionIs("table", capacity);
  return result;
}
const auto kWriter = description(0);
const auto kReader = description(1);

/// The keys that a table's reactor was notified of, each with the genId that the table held then; 0 for none.
using Calls = std::vector<std::pair<std::uint64_t, std::uint64_t>>;

struct Listener final : L3IifTH3Config::NotifieeConst {
  explicit Listener(const L3IifTH3Config::Ptr& table) {
    notifierIs(table);
    isRegisteredNotifieeIs(true);
    hasNotificationActiveIs(true);
  }
  using NotifieeConst::onTable;
  void onTable(const L3IifTH3Key& key) override {
    bool found = false;
    calls.emplace_back(key.l3Iif, notifier()->directLookup(key, found).genId);
    if (calls.size() == 1 && atFirst) atFirst();
  }
  Calls calls;
  std::function<void()> atFirst;
};

/// One process's view of the table: its own event loop and entity manager.
struct Side {
  Side(const RuntimeFolder& folder, const QuillVesta::MountDescription& description)
      : manager(Quill::allocate<Orrery::EntityManager>(folder.path(), loop)),
        table(Quill::ptrCast<L3IifTH3Config>(mount.doMount(kPath, kType, description))) {}
  void runUntilIdle() {
    for (int idle = 0; idle < 3;) idle = loop.step(std::chrono::milliseconds(0)) == 0 ? idle + 1 : 0;
  }
  Quill::EventLoop loop;
  Quill::Ptr<Orrery::EntityManager> manager;
  const QuillVesta::Mount mount{manager};
  L3IifTH3Config::Ptr table;
};

struct MountTest : testing::Test {
  const RuntimeFolder folder;
  Side writer{folder, kWriter};
};

TEST_F(MountTest, Table_IsFoundByPathUntilUnmountedThenReadsAsEmpty) {
  writer.table->tableIs({{1}, {5}});
  EXPECT_EQ(writer.mount.getEntity(kPath), writer.table);
  EXPECT_EQ(writer.mount.doMount(kPath, kType, kWriter), writer.table);
  Side(folder, kReader).mount.cleanup(kPath);  // of no effect
  for (int i = 0; i < 2; ++i) writer.mount.doUnmount(kPath);
  EXPECT_FALSE(writer.mount.getEntity(kPath));
  bool found = true;
  EXPECT_EQ(writer.table->directLookup({5}, found), L3IifTH3ConfigEntry{});
  EXPECT_FALSE(found);
  EXPECT_THROW(writer.table->tableIs({{1}, {6}}), Cairn::Exception);
  Side next(folder, kWriter);
  EXPECT_EQ(next.table->table().members(), 1u) << "unmounting a table keeps its rows";
  next.table->corruptionDetected("bad bytes");
  next.mount.cleanup(kPath);
  EXPECT_FALSE(std::filesystem::exists(next.table->rootPath().text())) << "also those of a damaged one";
}

TEST_F(MountTest, Mount_RefusesWhatDoesNotFit) {
  const std::tuple<const char*, const char*, QuillVesta::MountDescription> cases[] = {
      {"a/b", "TolmarHwLib::NoSuchTable", kWriter},
      {kPath, "TolmarHwLib::L3IifTH3Status", kWriter},
      {kPath, kType, kReader},
      {kPath, kType, description(0, 17)},
      {"../elsewhere", kType, kWriter}};
  for (const auto& [path, type, wanted] : cases) {
    EXPECT_THROW(writer.mount.doMount(path, type, wanted), Cairn::Exception) << path << " " << type;
  }
  EXPECT_EQ(writer.manager->mountedPaths(), std::vector<Quill::String>{kPath});
}

/// The status and the manager that each mounter was called with.
using Completions = std::vector<std::pair<Orrery::MountStatus, const Orrery::EntityManager*>>;

struct Waiting final : Orrery::Mounter {
  explicit Waiting(Completions& log) : Mounter(Quill::Name("waiting")), calls(log) {}
  void doMountsComplete(Orrery::MountStatus status, const Quill::Ptr<Orrery::EntityManager>& group) override {
    calls.emplace_back(status, group.get());
  }
  static void operator delete(void* memory) noexcept { Quill::deallocate(memory, quillAllocTrackTypeInfo_); }
  inline static Quill::AllocTrackTypeInfo quillAllocTrackTypeInfo_;
  Completions& calls;
};

TEST_F(MountTest, Mounter_IsCalledFromTheLoopOnceItsMountsAreDone) {
  using Orrery::MountGroup;
  Completions calls;
  const auto first = Quill::allocate<Waiting>(calls);
  const auto second = Quill::allocate<Waiting>(calls);
  auto gone = Quill::allocate<Waiting>(calls);
  const auto refused = [this] { writer.mount.doMount("a/b", "TolmarHwLib::NoSuchTable", kWriter); };
  {
    const MountGroup outer(*first, writer.manager);
    { const MountGroup inner(*gone, writer.manager); }
    {
      const MountGroup inner(*second, writer.manager);
      EXPECT_THROW(refused(), Cairn::Exception);
    }
    writer.mount.doMount("a/c", kType, kWriter);
    gone = nullptr;
  }
  EXPECT_THROW(refused(), Cairn::Exception);
  EXPECT_TRUE(calls.empty());
  writer.runUntilIdle();
  const auto* const manager = writer.manager.get();
  EXPECT_EQ(calls,
            (Completions{{Orrery::MountStatus::success, manager}, {Orrery::MountStatus::failed, manager}}));
  EXPECT_EQ(manager->references(), 2u) << "nothing is held any more";
}

TEST_F(MountTest, Writer_IsNotifiedAtOnceOfEveryWriteThatIsStored) {
  Listener listener(writer.table);
  for (int i = 0; i < 2; ++i) writer.table->tableIs({{1}, {5}});
  writer.table->tableDel(L3IifTH3Key{7});
  writer.table->tableDel(L3IifTH3Key{5});
  EXPECT_EQ(listener.calls, (Calls{{5, 1}, {5, 1}, {5, 0}}));
  for (std::uint64_t i = 0; i < 8; ++i) writer.table->tableIs({{1}, {i}});
  listener.calls.clear();
  EXPECT_THROW(writer.table->tableIs({{1}, {99}}), Cairn::ResourceExhaustedException);
  writer.table->tableIs({{9}, {3}});
  EXPECT_EQ(listener.calls, (Calls{{3, 9}}));
}

// A lost wake-up and a file of the wrong size are found by the loops, without any use of the tables.
TEST_F(MountTest, Loops_NotifyOfChangesAfterTheMountAndRepairWhatNoUseOfTheTableNotices) {
  writer.table->tableIs({{1}, {4}});
  Side reader(folder, kReader);
  Listener listener(reader.table);
  reader.runUntilIdle();
  EXPECT_THROW(reader.table->tableIs({{1}, {1}}), Cairn::NoPermissionException);
  writer.table->tableIs({{2}, {6}});
  writer.table->tableDel(L3IifTH3Key{6});
  EXPECT_TRUE(listener.calls.empty());
  reader.runUntilIdle();
  EXPECT_EQ(std::exchange(listener.calls, {}), (Calls{{6, 0}, {6, 0}}));
  const auto mapping = writer.table->table().writer()->bytes().sharedSegment();
  reader.loop.sleepHookIs([&] {  // after the table's own
    if (mapping->at(Vesta::kSleepersAt) != 0) {
      mapping->at(Vesta::kSleepersAt) = 0;
      writer.table->tableIs({{1}, {5}});  // without a wake-up
    }
    return true;
  });
  reader.loop.step(std::chrono::seconds(10));
  EXPECT_EQ(listener.calls, (Calls{{5, 1}}));
  const std::string file = writer.table->rootPath().text();
  const auto size = std::filesystem::file_size(file);
  std::filesystem::resize_file(file, size + 1);
  writer.loop.step(std::chrono::seconds(10));
  EXPECT_EQ(std::filesystem::file_size(file), size);
}

// Row 2 is damaged, row 3 set back to what it held before. A reader has detected the damage, so the writer
// replaces its segment; what that has changed is notified before the write that it comes with, each key once.
TEST(Replacement, ByAWriteOrBetweenThem_NotifiesOfTheRowsThatItChanged) {
  const L3IifTH3Config::Ptr* table = nullptr;
  const auto write = [&](std::uint64_t key) { return [&table, key] { (*table)->tableIs({{3}, {key}}); }; };
  const auto remove = [&](std::uint64_t key) { return [&table, key] { (*table)->tableDel({key}); }; };
  const struct {
    const char* name;
    std::function<void()> act;
    Calls expected;
    std::function<void()> atFirst{};
  } cases[] = {
      {"write another row", write(7), {{3, 1}, {2, 0}, {7, 3}}},
      {"write the lost row", write(2), {{3, 1}, {2, 3}}},
      {"write the row set back", write(3), {{2, 0}, {3, 3}}},
      {"remove another row", remove(1), {{3, 1}, {2, 0}, {1, 0}}},
      {"remove the lost row", remove(2), {{3, 1}, {2, 0}}},
      {"remove the row set back", remove(3), {{2, 0}, {3, 0}}},
      {"no write", [&] { (*table)->monitor(); }, {{3, 1}, {2, 0}}},
      {"write the lost row from a reactor", write(7), {{3, 1}, {2, 3}, {7, 3}}, write(2)},
      {"refused write", [&] { EXPECT_THROW(write(9)(), Cairn::ResourceExhaustedException); }, {{3, 1}}},
  };
  for (const auto& [name, act, expected, atFirst] : cases) {
    for (const bool mountedAgain : {false, true}) {
      SCOPED_TRACE(name);
      const bool full = expected.size() == 1;  // and its index damaged, not row 2
      const RuntimeFolder folder;
      auto side = std::make_unique<Side>(folder, kWriter);
      for (std::uint64_t key = 1; key <= (full ? 8 : 4); ++key) side->table->tableIs({{1}, {key}});
      const Vesta::Word* const slot = slotOf(*side->table->table().writer(), L3IifTH3Key{3});
      const std::vector<Vesta::Word> old(slot, slot + 8);
      side->table->tableIs({{2}, {3}});
      if (mountedAgain) side.reset();
      if (mountedAgain) side = std::make_unique<Side>(folder, kWriter);
      table = &side->table;
      Listener listener(*table);
      auto& writer = *(*table)->table().writer();
      std::copy(old.begin(), old.end(), slotOf(writer, L3IifTH3Key{3}));
      if (!full) slotOf(writer, L3IifTH3Key{2})[2] ^= 1u << 7;
      Vesta::Segment& segment = *writer.bytes().sharedSegment();
      const std::size_t index = segment.layout().indexAt(segment.load(Vesta::kIndexAt) & 1);
      for (std::size_t cell = 0; full && cell < segment.layout().cells; ++cell) segment.at(index + cell) ^= 1;
      segment.at(Vesta::kSleepersAt) |= Vesta::kDamageReported;
      listener.atFirst = atFirst;
      act();
      EXPECT_EQ(listener.calls, expected);
      EXPECT_NE(writer.bytes().sharedSegment().get(), &segment) << "replaced";
    }
  }
}

}  // namespace
