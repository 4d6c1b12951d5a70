#include <stdexcept>
#include <typeinfo>

#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using Lumen::ChangeKind;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr auto kWritten = ChangeKind::written;
constexpr auto kDeleted = ChangeKind::deleted;

template <class Sample>
struct ChangesOf : RowTableTest<Sample> {};
TYPED_TEST_SUITE(ChangesOf, AllKinds);

TYPED_TEST(ChangesOf, Indices_GrowByTwoWithTheKindInTheLowestBit) {
  using Change = typename RowTable<TypeParam>::Change;
  auto& rows = this->rowTable;
  EXPECT_EQ(rows.table->oldestChangeIdx(), 1u);
  EXPECT_EQ(rows.table->latestChangeIdx(), 1u);
  EXPECT_THAT(rows.changes(), IsEmpty());
  rows.table->rowIs(rows.row(1, 10));
  rows.table->rowIs(rows.row(2, 20));
  rows.table->rowDel(rows.row(1));
  EXPECT_EQ(rows.table->latestChangeIdx(), 7u);
  EXPECT_THAT(rows.changes(), ElementsAre(Change{4, kWritten, 2}, Change{7, kDeleted, 1}));
  EXPECT_THAT(rows.changes(4), ElementsAre(Change{7, kDeleted, 1}));
  EXPECT_EQ(rows.entryOf((*rows.table->nextChange(4))->row), rows.keyOnly(1));
  rows.table->rowIs(rows.row(1, 11));
  EXPECT_THAT(rows.changes(), ElementsAre(Change{4, kWritten, 2}, Change{8, kWritten, 1}));
}

TYPED_TEST(ChangesOf, Trim_ForgetsUpToTheIndex) {
  using Change = typename RowTable<TypeParam>::Change;
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1, 10));
  rows.table->rowIs(rows.row(2, 20));
  rows.table->rowDel(rows.row(1));
  rows.wrapper->cleanChangeMap(5);
  EXPECT_EQ(rows.table->oldestChangeIdx(), 5u);
  EXPECT_THAT(rows.changes(), ElementsAre(Change{7, kDeleted, 1}));
  rows.table->rowIs(rows.row(2, 21));  // forgotten before, so a new element
  EXPECT_THAT(rows.changes(), ElementsAre(Change{7, kDeleted, 1}, Change{8, kWritten, 2}));
  rows.wrapper->cleanChangeMap(8);
  EXPECT_THAT(rows.changes(), IsEmpty());
}

TYPED_TEST(ChangesOf, ForeignWrites_AreRecordedLikeTheTablesOwn) {
  using Change = typename RowTable<TypeParam>::Change;
  auto& rows = this->rowTable;
  rows.config->tableIs(rows.entry(1, 10));
  rows.config->tableIs(rows.entry(2, 20));
  rows.config->tableDel(rows.key(1));
  rows.config->tableDel(rows.key(1));
  EXPECT_THAT(rows.changes(), ElementsAre(Change{4, kWritten, 2}, Change{7, kDeleted, 1}));
  rows.table->rowDelAll();
  EXPECT_THAT(rows.changes(), ElementsAre(Change{7, kDeleted, 1}, Change{9, kDeleted, 2}));
}

TYPED_TEST(ChangesOf, WrittenEntry_IsReportedWithItsPresentContent) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1, 10));
  auto change = rows.table->nextChange(0);
  rows.config->table().write(rows.key(1), rows.entry(1, 11));  // past the entity: nobody is told
  EXPECT_EQ(rows.entryOf((*change)->row), rows.entry(1, 11));
}

TYPED_TEST(ChangesOf, ZeroEntry_PassesForADeletedOne) {
  using Change = typename RowTable<TypeParam>::Change;
  using Entry = typename TypeParam::Kind::Entry;
  auto& rows = this->rowTable;
  rows.table->rowIs(TypeParam::Kind::EntryRow::fromEntry(Entry{}));
  EXPECT_EQ(rows.table->size(), 1u);
  EXPECT_THAT(rows.changes(), ElementsAre(Change{3, kDeleted, 64}));
}

TYPED_TEST(ChangesOf, Records_HeldAtTheSameTimeKeepTheirOwnBytes) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 1; n <= 6; ++n) rows.table->rowIs(rows.row(n, n));
  rows.table->rowDel(rows.row(3));
  std::vector<std::shared_ptr<Lumen::BasicLmTableChange>> held;
  for (auto at = rows.table->nextChange(0); at != rows.table->endChange(); ++at) held.push_back(*at);
  const std::uint32_t order[] = {1, 2, 4, 5, 6, 3};
  ASSERT_EQ(held.size(), std::size(order));
  for (std::size_t i = 0; i < held.size(); ++i) {
    const std::uint32_t n = order[i];
    EXPECT_EQ(rows.entryOf(held[i]->row), n == 3 ? rows.keyOnly(3) : rows.entry(n, n));
  }
}

TYPED_TEST(ChangesOf, ChangeIterators_CompareByElementAndCloneIndependently) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1));
  rows.table->rowIs(rows.row(2));
  auto at = rows.table->nextChange(0);
  const auto copy = at;
  EXPECT_EQ(at, copy);
  EXPECT_NE(++at, copy);
  EXPECT_EQ(at, rows.table->nextChange(2));
  EXPECT_EQ((*copy)->index, 2u);
  EXPECT_EQ(++at, rows.table->endChange());
  EXPECT_THROW(*at, Cairn::AssertionException);
  EXPECT_THROW(++at, Cairn::AssertionException);
}

TYPED_TEST(ChangesOf, ChangeIterator_GoesOnAfterItsElementMovedOrWent) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 1; n <= 4; ++n) rows.table->rowIs(rows.row(n));
  auto at = rows.table->nextChange(0);
  rows.table->rowIs(rows.row(1, 10));  // moves from 2 to 10
  EXPECT_THROW(*at, Cairn::AssertionException);
  EXPECT_EQ((*++at)->index, 4u);
  rows.wrapper->cleanChangeMap(6);
  EXPECT_EQ((*++at)->index, 8u);
  rows.table->rowIs(rows.row(2));
  EXPECT_EQ((*at)->index, 8u) << "its own element is still there";
}

TEST(IteratorKinds, OfOtherClasses_AreBadCasts) {
  RowTable<L3Iif> iifs;
  RowTable<L3Tunnel> tunnels;
  EXPECT_THROW(static_cast<void>(*iifs.wrapper->end(0) == *tunnels.wrapper->end(0)), std::bad_cast);
  EXPECT_THROW(static_cast<void>(*iifs.wrapper->end(0) != *tunnels.wrapper->end(0)), std::bad_cast);
  EXPECT_THROW(static_cast<void>(*iifs.wrapper->endChange() == *tunnels.wrapper->endChange()), std::bad_cast);
  EXPECT_THROW(static_cast<void>(*iifs.wrapper->endChange() != *tunnels.wrapper->endChange()), std::bad_cast);
}

TYPED_TEST(ChangesOf, Unobserved_TheChangeMapKeepsTwiceTheCapacity) {
  auto& rows = this->rowTable;
  for (std::uint32_t round = 0; round < 100; ++round) {
    for (const std::uint32_t step : {0u, 1u, 2u}) {
      const std::uint32_t n = round * 3 + step;  // keys that come and go, 300 in all
      rows.table->rowIs(rows.row(n));
      rows.table->rowDel(rows.row(n));
    }
  }
  EXPECT_EQ(rows.table->latestChangeIdx(), 1201u);
  EXPECT_EQ(rows.table->oldestChangeIdx(), 1201u - 4 * 64);
  EXPECT_EQ(rows.changes().size(), 64u) << "of the newest 128 changes every second one is replaced";
}

TYPED_TEST(ChangesOf, Unobserved_ATableAttachedLaterIsTrimmedByItsCapacity) {
  auto& rows = this->rowTable;
  rows.manager->unmount("test/sampleTable/config");
  rows.wrapper =
      std::make_shared<typename TypeParam::Wrapper>(rows.config, rows.db, nullptr, true, true, false);
  rows.db->tableImplementationIs(rows.table->name(), rows.wrapper);
  QuillVesta::MountDescription description(QuillVesta::QuillVestaType::writer);
  description.collectionIs("table", 16);
  const Vesta::AttachOptions options{.path = Vesta::RootPath(rows.folder.path(), "later", "table"),
                                     .capacity = 16,
                                     .debugHandler = nullptr,
                                     .initialRows = Vesta::InitialRows::skip};
  rows.config->attach(description, options, rows.loop);
  for (std::uint32_t n = 0; n < 100; ++n) {
    rows.table->rowIs(rows.row(n));
    rows.table->rowDel(rows.row(n));
  }
  EXPECT_EQ(rows.table->oldestChangeIdx(), 401u - 4 * 16);
}

// Copies the table, and does something within a call.
struct Copying : Lumen::LmTableObserver {
  void onReset() override { rows = 0; }
  void onChange(const Lumen::BasicLmTableChange& change) override {
    rows += change.kind == kWritten ? 1 : -1;
    if (std::exchange(armed, false)) act();
  }
  void onException(const std::exception&) override { ++exceptions; }
  int rows = 0;
  int exceptions = 0;
  bool armed = false;
  std::function<void()> act;
};

TYPED_TEST(ChangesOf, WrapperDroppedWithinItsOwnNotification_LivesUntilItReturns) {
  auto& rows = this->rowTable;
  auto observer = std::make_shared<Copying>();
  rows.table->observerIs(observer);
  const std::weak_ptr<typename TypeParam::Wrapper> watch = rows.wrapper;
  rows.wrapper.reset();
  observer->act = [&] {
    rows.db->tableImplementationDel(rows.table->name());
    EXPECT_FALSE(watch.expired());
  };
  observer->armed = true;
  rows.config->tableIs(rows.entry(1, 10));  // a foreign write: nobody but the reactor is in the call
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(observer->exceptions, 0);
  rows.config->tableIs(rows.entry(2, 20));
  EXPECT_EQ(rows.table->implementation(), nullptr);
}

TYPED_TEST(ChangesOf, Reactor_IsCountedAndLeavesWithTheWrapper) {
  auto& rows = this->rowTable;
  const auto& record = TypeParam::Kind::Config::NotifieeConst::quillAllocTrackTypeInfo_;
  const auto live = record.live();
  EXPECT_EQ(rows.config->notifieeList().size(), 1u);
  rows.wrapper.reset();
  rows.db->tableImplementationDel(rows.table->name());
  EXPECT_EQ(record.live(), live - 1);
  EXPECT_TRUE(rows.config->notifieeList().empty());
}

}  // namespace
}  // namespace WrapperTest
