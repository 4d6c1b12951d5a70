#include <typeinfo>

#include "tests/vesta/DamagedRow.h"
#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using testing::ElementsAre;

template <class Kind>
struct ChangesOf : RowTableTest<Kind> {};
TYPED_TEST_SUITE(ChangesOf, AllKinds);

TYPED_TEST(ChangesOf, Indices_GrowByTwoWithTheKindInTheLowestBitUntilTrimmed) {
  using Change = typename RowTable<TypeParam>::Change;
  auto& rows = this->rowTable;
  EXPECT_EQ(rows.table->oldestChangeIdx(), 1u);
  EXPECT_EQ(rows.table->latestChangeIdx(), 1u);
  EXPECT_EQ(rows.table->nextChange(0), rows.table->endChange());
  rows.table->rowIs(rows.row(1, 10));
  rows.table->rowIs(rows.row(2, 20));
  rows.table->rowDel(rows.row(1));
  EXPECT_EQ(rows.table->latestChangeIdx(), 7u);
  EXPECT_THAT(rows.changes(), ElementsAre(Change{4, 1, rows.entry(2, 20)}, Change{7, 2, rows.keyOnly(1)}));
  EXPECT_THAT(rows.changes(4), ElementsAre(Change{7, 2, rows.keyOnly(1)}));
  rows.wrapper->cleanChangeMap(5);
  EXPECT_EQ(rows.table->oldestChangeIdx(), 5u);
  EXPECT_THAT(rows.changes(), ElementsAre(Change{7, 2, rows.keyOnly(1)}));
  rows.table->rowIs(rows.row(2, 21));  // forgotten before, so a new element
  EXPECT_THAT(rows.changes(), ElementsAre(Change{7, 2, rows.keyOnly(1)}, Change{8, 1, rows.entry(2, 21)}));
  rows.config->table().write(rows.key(2), rows.entry(2, 22));  // past the entity: without a notification
  EXPECT_THAT(rows.changes(7), ElementsAre(Change{8, 1, rows.entry(2, 22)})) << "the present content";
  rows.wrapper->cleanChangeMap(8);
  rows.table->rowIs(TypeParam::EntryRow::fromEntry({}));
  EXPECT_THAT(rows.changes(), ElementsAre(Change{11, 2, {}})) << "an entry of zeros counts as deleted";
  EXPECT_EQ(rows.table->size(), 2u);
}

TYPED_TEST(ChangesOf, Iterators_CompareByElementAndContinueAfterItMovedOrWasForgotten) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 1; n <= 4; ++n) rows.table->rowIs(rows.row(n));
  auto at = rows.table->nextChange(0);
  auto copy = at;
  EXPECT_EQ(at, copy);
  EXPECT_NE(++copy, at);
  EXPECT_EQ(copy, rows.table->nextChange(2));
  EXPECT_EQ((*at)->index, 2u);
  rows.table->rowIs(rows.row(1, 10));  // moves from 2 to 10
  EXPECT_THROW(*at, Cairn::AssertionException);
  EXPECT_EQ((*++at)->index, 4u);
  rows.wrapper->cleanChangeMap(6);
  EXPECT_EQ((*++at)->index, 8u);
  rows.table->rowIs(rows.row(2));
  EXPECT_EQ((*at)->index, 8u) << "its own element is still there";
  EXPECT_EQ((*++at)->index, 10u);
  auto end = rows.table->endChange();
  EXPECT_THROW(*end, Cairn::AssertionException);
  EXPECT_THROW(++end, Cairn::AssertionException);
}

TEST(ChangeIterators, OfTwoTables_AreEqualAtTheEndAloneAndOfTwoClassesBadCasts) {
  RowTable<L3Tunnel> tunnels, others;
  for (auto* rows : {&tunnels, &others}) rows->table->rowIs(rows->row(1));
  EXPECT_NE(tunnels.table->nextChange(0), others.table->nextChange(0));
  EXPECT_EQ(tunnels.table->endChange(), others.table->endChange());
  RowTable<L3Iif> iifs;
  EXPECT_THROW(static_cast<void>(*iifs.wrapper->end(0) != *tunnels.wrapper->end(0)), std::bad_cast);
  EXPECT_THROW(static_cast<void>(*iifs.wrapper->endChange() != *tunnels.wrapper->endChange()), std::bad_cast);
}

TYPED_TEST(ChangesOf, Trim_KeepsTheNewestChangesOfTwiceTheCapacity) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 0; n < 300; ++n) {  // keys that come and go
    rows.table->rowIs(rows.row(n));
    rows.table->rowDel(rows.row(n));
  }
  EXPECT_EQ(rows.table->latestChangeIdx(), 1201u);
  EXPECT_EQ(rows.table->oldestChangeIdx(), 1201u - 4 * 64);
  EXPECT_EQ(rows.changes().size(), 64u) << "of the newest 128 changes every second one is replaced";
  rows.wrapper->cleanChangeMap(5000);
  rows.table->rowIs(rows.row(1));
  EXPECT_EQ(rows.table->oldestChangeIdx(), 5000u) << "the oldest index never decreases";
}

// The reactor's read finds the table corrupt, and the callback of the table drops the wrapper.
TYPED_TEST(ChangesOf, Drop_WithinItsOwnNotificationEndsTheRecording) {
  auto& rows = this->rowTable;
  rows.table->rowIs(rows.row(1));
  const std::weak_ptr<typename TypeParam::Wrapper> watch = rows.wrapper;
  rows.wrapper.reset();
  rows.config->table().readyCallbackIs([&] { rows.db->tableImplementationDel(rows.table->name()); });
  damageRow(*rows.config->table().writer(), rows.key(1));
  using Reactor = typename TypeParam::Config::NotifieeConst;
  const Quill::Ptr<Reactor> reactor(static_cast<Reactor*>(rows.config->notifieeList().front()));
  reactor->onTable(rows.key(1));
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(rows.config->notifieeList().empty());
}

}  // namespace
}  // namespace WrapperTest
