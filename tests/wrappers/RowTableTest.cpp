#include "rows/RowErrors.h"
#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using Lumen::BaseRow;
using testing::ThrowsMessage;

template <class Sample>
struct RowsOf : RowTableTest<Sample> {};
TYPED_TEST_SUITE(RowsOf, AllKinds);

TYPED_TEST(RowsOf, Write_ReplacesByKeyAndIsReadBackWhole) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1, 10));
  rows.table->rowIs(rows.row(2, 20));
  rows.table->rowIs(rows.row(1, 11));
  EXPECT_EQ(rows.table->size(), 2u);
  EXPECT_EQ(rows.entryOf(rows.table->row(rows.row(1))), rows.entry(1, 11));
  EXPECT_EQ(rows.entryOf(*rows.table->find(rows.row(2, 99))), rows.entry(2, 20)) << "found by key alone";
  bool found = false;
  EXPECT_EQ(rows.config->table().directLookup(rows.key(1), found), rows.entry(1, 11));
}

TYPED_TEST(RowsOf, Conversions_OfTheWrapperAreThoseOfTheTable) {
  auto& rows = this->rowTable;
  auto row = rows.row(5, 50);
  TypeParam::kFillRow(rows.entry(4, 40), row);
  rows.table->rowIs(row);
  EXPECT_EQ(rows.entryOf(rows.table->row(rows.row(4))), rows.entry(4, 40));
  EXPECT_EQ(TypeParam::kKeyOfRow(row), rows.key(4));
}

TYPED_TEST(RowsOf, MissingKey_ReadsAsTheEmptyEntryAndFindsTheEnd) {
  auto& rows = this->rowTable;
  rows.table->rowDel(rows.row(1));
  EXPECT_EQ(rows.entryOf(rows.table->row(rows.row(1))), typename TypeParam::Kind::Entry{});
  EXPECT_EQ(rows.table->find(rows.row(1)), rows.table->end());
  EXPECT_EQ(rows.table->latestChangeIdx(), 1u) << "deleting nothing is no change";
}

TYPED_TEST(RowsOf, Walk_MeetsEveryRowAlsoWhileTheyAreDeleted) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 0; n < 40; ++n) rows.table->rowIs(rows.row(n, n));
  std::vector<typename TypeParam::Kind::Entry> seen;
  for (auto at = rows.table->begin(); at != rows.table->end(); ++at) {
    seen.push_back(rows.entryOf(*at));
    rows.table->rowDel(at);
  }
  EXPECT_EQ(seen.size(), 40u);
  for (std::uint32_t n = 0; n < 40; ++n) EXPECT_THAT(seen, testing::Contains(rows.entry(n, n)));
  EXPECT_EQ(rows.table->size(), 0u);
  EXPECT_EQ(rows.table->begin(), rows.table->end());
}

TYPED_TEST(RowsOf, Walk_FromAFoundRowGoesOnAfterItsDeletion) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 0; n < 8; ++n) rows.table->rowIs(rows.row(n, n));
  std::size_t before = 0;
  for (auto at = rows.table->begin(); at; ++at, ++before) {
    auto from = rows.table->find(*at);
    rows.table->rowDel(from);
    std::size_t after = 0;
    while (++from) ++after;
    EXPECT_EQ(after, 7 - before);
  }
}

TYPED_TEST(RowsOf, RowIterators_CompareByValidityAlone) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1, 10));
  rows.table->rowIs(rows.row(2, 20));
  auto first = rows.table->begin();
  auto second = rows.table->begin();
  ++second;
  EXPECT_EQ(first, second);
  EXPECT_NE(rows.entryOf(*first).key(), rows.entryOf(*second).key());
  auto copy = first;
  ++first;
  ++first;
  EXPECT_EQ(first, rows.table->end());
  EXPECT_NE(first, second);
  EXPECT_NE(rows.entryOf(*copy).key(), rows.entryOf(*second).key()) << "a clone stays where it was";
  EXPECT_THAT([&] { *first; }, ThrowsMessage<Cairn::AssertionException>("iterator stands on no row"));
}

TYPED_TEST(RowsOf, Iterator_KeepsTheConfigTableAlive) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1, 10));
  auto row = rows.table->begin();
  auto change = rows.table->nextChange(0);
  rows.wrapper.reset();
  rows.db->tableImplementationDel(rows.table->name());
  rows.config = nullptr;
  rows.manager->unmount("test/sampleTable/config");
  EXPECT_EQ(rows.entryOf((*change)->row), typename TypeParam::Kind::Entry{});
  EXPECT_EQ(rows.entryOf(*row), rows.entry(1, 10)) << "the row it stands on is its own";
  EXPECT_FALSE(++row);
}

TYPED_TEST(RowsOf, BadRows_AreRefusedInOrderAndChangeNothing) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1, 10));
  auto& wrapper = *rows.wrapper;
  const BaseRow null;
  BaseRow other = rows.row(2);
  other.rowTypeIs(999);
  struct Case {
    const char* name;
    std::function<void(const BaseRow&, unsigned)> call;
    bool indexed;
  };
  const Case cases[] = {
      {"row", [&](const BaseRow& row, unsigned idx) { wrapper.row(row, idx); }, true},
      {"find", [&](const BaseRow& row, unsigned idx) { wrapper.find(row, idx); }, true},
      {"rowIs", [&](const BaseRow& row, unsigned) { wrapper.rowIs(row, false); }, false},
      {"rowDel", [&](const BaseRow& row, unsigned) { wrapper.rowDel(row); }, false},
      {"begin", [&](const BaseRow&, unsigned idx) { wrapper.begin(idx); }, true},
      {"end", [&](const BaseRow&, unsigned idx) { wrapper.end(idx); }, true},
  };
  const std::string badCast = "row type 999 does not match row type " +
                              std::to_string(TypeParam::Kind::EntryRow::protRowType()) + " 0";
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    if (one.indexed) {
      EXPECT_THAT([&] { one.call(null, 1); },
                  ThrowsMessage<Cairn::AssertionException>("Multiple indices not supported"));
    }
    if (std::string(one.name) == "begin" || std::string(one.name) == "end") continue;
    EXPECT_THAT([&] { one.call(null, 0); }, ThrowsMessage<Lumen::LmNullRow>("null row"));
    EXPECT_THAT([&] { one.call(other, 0); }, ThrowsMessage<Lumen::LmBadCast>(badCast));
  }
  EXPECT_EQ(rows.table->size(), 1u);
  EXPECT_EQ(rows.table->latestChangeIdx(), 2u);
}

TYPED_TEST(RowsOf, PreWriteHook_SeesEveryRowAndRefusesByThrowing) {
  auto& rows = this->rowTable;
  std::vector<bool> nulls;
  rows.wrapper->preWriteHookIs([&](const BaseRow& row, const BaseRow& previous) {
    EXPECT_TRUE(previous.isNull());
    nulls.push_back(row.isNull());
    if (!row.isNull() && rows.entryOf(row).genId == 13) throw std::runtime_error("unlucky");
  });
  rows.table->rowIs(rows.row(1, 10));
  EXPECT_THROW(rows.table->rowIs(BaseRow()), Lumen::LmNullRow);
  EXPECT_THAT([&] { rows.table->rowIs(rows.row(1, 13)); }, ThrowsMessage<std::runtime_error>("unlucky"));
  EXPECT_THAT(nulls, testing::ElementsAre(false, true, false));
  EXPECT_EQ(rows.entryOf(rows.table->row(rows.row(1))), rows.entry(1, 10));
}

TYPED_TEST(RowsOf, FullTable_RefusesNewKeysAndRecordsNothing) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 0; n < 64; ++n) rows.table->rowIs(rows.row(n, n));
  const auto latest = rows.table->latestChangeIdx();
  EXPECT_THROW(rows.table->rowIs(rows.row(64)), Cairn::ResourceExhaustedException);
  EXPECT_EQ(rows.table->latestChangeIdx(), latest);
  rows.table->rowIs(rows.row(63, 99));
  EXPECT_EQ(rows.table->size(), 64u);
}

TYPED_TEST(RowsOf, NullConfig_ReadsAsEmptyAndRefusesWrites) {
  using Sample = TypeParam;
  auto& rows = this->rowTable;
  rows.helper.template registerConfigTable<typename Sample::Kind::Config, typename Sample::Kind::EntryRow,
                                           typename Sample::Wrapper>(nullptr, "absent");
  const auto table = rows.db->table("LumenAbsentConfigTable");
  ASSERT_NE(table, nullptr);
  EXPECT_EQ(table->size(), 0u);
  EXPECT_EQ(table->begin(), table->end());
  EXPECT_EQ(table->find(rows.row(1)), table->end());
  EXPECT_EQ(rows.entryOf(table->row(rows.row(1))), typename Sample::Kind::Entry{});
  EXPECT_EQ(table->nextChange(0), table->endChange());
  const std::function<void()> writes[] = {[&] { table->rowIs(rows.row(1)); },
                                          [&] { table->rowDel(rows.row(1)); }, [&] { table->rowDelAll(); }};
  for (const auto& write : writes) {
    EXPECT_THAT(write, ThrowsMessage<Cairn::AssertionException>("no config table"));
  }
  rows.db->tableImplementationDel(table->name());
}

[[noreturn]] void damaged() { throw Cairn::CorruptionDetectedException("bad bytes"); }

// A table whose every read meets damage.
template <class Key, class Entry>
class DamagedTable : public Vesta::VestaBase<Key, Entry> {
 public:
  using Row = typename Vesta::VestaBase<Key, Entry>::Row;
  explicit DamagedTable(Vesta::RootPath path) : path_(std::move(path)) {}
  bool initialize() override { return true; }
  void detach() override {}
  const Row& lookup(const Key&, bool&, Vesta::IterHint*) override { damaged(); }
  bool first(Row&, Vesta::IterHint&) override { damaged(); }
  bool write(const Row&, bool) override { return true; }
  bool next(const Key&, Row&, Vesta::IterHint&) override { damaged(); }
  std::size_t members() override { return 1; }
  std::size_t minSize() override { return 0; }
  std::size_t maxSize() override { return 1; }
  std::size_t capacity() override { return 1; }
  Vesta::VestaType type() override { return Vesta::VestaType::reader; }
  Vesta::RootPath rootPath() override { return path_; }
  std::string vestaName() override { return path_.vestaName(); }
  Vesta::MountStatus mountStatus() override { return Vesta::MountStatus::mounted; }

 private:
  Vesta::RootPath path_;
};

TYPED_TEST(RowsOf, Damage_DetachesTheTableWhicheverReadMeetsIt) {
  using Kind = typename TypeParam::Kind;
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1, 10));
  auto at = rows.table->begin();
  const auto handler = std::make_shared<Cairn::DebugHandler>(0);
  auto& map = rows.config->table();
  const Vesta::RootPath path = map.rootPath();
  const std::function<void()> reads[] = {
      [&] { EXPECT_EQ(rows.entryOf(rows.table->row(rows.row(1))), typename Kind::Entry{}); },
      [&] { EXPECT_FALSE(rows.table->find(rows.row(1))); },
      [&] { EXPECT_FALSE(rows.table->begin()); },
      [&] { EXPECT_FALSE(++at); },
      [&] { EXPECT_EQ(rows.entryOf((*rows.table->nextChange(0))->row), typename Kind::Entry{}); },
      [&] { EXPECT_THROW(rows.table->rowDelAll(), Cairn::CorruptionDetectedException); },
      [&] {  // met by the reactor, which takes what it cannot read for deleted
        rows.config->tableIs(rows.entry(2, 20));
        const auto change = *rows.table->nextChange(2);
        EXPECT_EQ(change->kind, Lumen::ChangeKind::deleted);
        EXPECT_EQ(rows.entryOf(change->row), rows.keyOnly(2));
      },
  };
  for (const auto& read : reads) {
    map.attach(std::make_unique<DamagedTable<typename Kind::Key, typename Kind::Entry>>(path), handler);
    read();
    EXPECT_FALSE(map.attached());
    EXPECT_EQ(rows.table->size(), 0u);
    EXPECT_FALSE(rows.table->begin());
    EXPECT_THROW(rows.table->rowDelAll(), Cairn::AssertionException);
  }
}

}  // namespace
}  // namespace WrapperTest
