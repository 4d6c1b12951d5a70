// The changes of a row table: their indices, their trimming, their iterators, and what they cost in memory.
#include <typeinfo>

#include "tests/AllocationCount.h"
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
  const Change deleted{7, 2, rows.keyOnly(1)};
  EXPECT_EQ(rows.table->oldestChangeIdx(), 1u);
  EXPECT_EQ(rows.table->latestChangeIdx(), 1u);
  EXPECT_EQ(rows.table->nextChange(0), rows.table->endChange());
  rows.table->rowIs(rows.row(1, 10));
  rows.table->rowIs(rows.row(2, 20));
  rows.table->rowDel(rows.row(1));
  EXPECT_EQ(rows.table->latestChangeIdx(), 7u);
  EXPECT_THAT(rows.changes(), ElementsAre(Change{4, 1, rows.entry(2, 20)}, deleted));
  EXPECT_THAT(rows.changes(4), ElementsAre(deleted));
  rows.wrapper->cleanChangeMap(5);
  EXPECT_EQ(rows.table->oldestChangeIdx(), 5u);
  EXPECT_THAT(rows.changes(), ElementsAre(deleted));
  rows.table->rowIs(rows.row(2, 21));  // forgotten before, so a new element
  EXPECT_THAT(rows.changes(), ElementsAre(deleted, Change{8, 1, rows.entry(2, 21)}));
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
  rows.notifyReactor(1);
  EXPECT_TRUE(watch.expired());
  EXPECT_TRUE(rows.config->notifieeList().empty());
}

template <class Act>
std::size_t allocationsIn(const Act& act) {
  const std::size_t before = allocationCount();
  act();
  return allocationCount() - before;
}

TYPED_TEST(ChangesOf, Allocations_AreOneNodeForANewKeyAndNothingAfterwards) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 0; n < 6; ++n) rows.table->rowIs(rows.row(n, 1));  // scratch rows find their size
  std::vector<Lumen::BaseRow> fresh, again;
  for (std::uint32_t n = 6; n < 12; ++n) fresh.push_back(rows.row(n, 1));
  for (std::uint32_t n = 0; n < 12; ++n) again.push_back(rows.row(n, 2));
  const auto writeAll = [&](const auto& all) {
    for (const auto& row : all) rows.table->rowIs(row);
  };
  EXPECT_EQ(allocationsIn([&] { writeAll(fresh); }), fresh.size() + 1) << "the ring of changes grows once";
  EXPECT_EQ(allocationsIn([&] {
              writeAll(again);
              for (const auto& row : again) rows.table->rowDel(row);
              writeAll(again);
            }),
            0u);
  rows.wrapper->cleanChangeMap(rows.wrapper->latestChangeIdx());
  EXPECT_EQ(allocationsIn([&] { writeAll(fresh); }), fresh.size()) << "their keys were forgotten";
}

// Writes and deletions past the row table, as by another writer, which no failure reaches.
TYPED_TEST(ChangesOf, FailedAllocation_LosesTheChangeOpenly) {
  testing::internal::CaptureStderr();  // what the reactor says of each failure
  std::size_t failures = 0;
  for (const bool deletes : {false, true}) {
    bool failed = true;
    for (std::uint32_t n = 1; failed; ++n) {
      SCOPED_TRACE(testing::Message() << "allocation " << n << " of a " << (deletes ? "deletion" : "write"));
      RowTable<TypeParam> rows;
      if (deletes) rows.config->tableIs(rows.entry(1));
      const auto seen = rows.wrapper->latestChangeIdx();
      rows.wrapper->cleanChangeMap(seen);
      allocationFailureIs(n);
      const std::size_t made = allocationsIn(
          [&] { deletes ? rows.config->tableDel(rows.key(1)) : rows.config->tableIs(rows.entry(2)); });
      allocationFailureIs(0);
      failed = made >= n;
      failures += failed;
      EXPECT_EQ(rows.wrapper->latestChangeIdx() & 1, deletes && !failed) << "a lost change is no deletion";
      EXPECT_EQ(rows.table->oldestChangeIdx() > seen, failed) << "readers that were up to date read all rows";
      EXPECT_EQ(rows.changes(seen).size(), failed ? 0u : 1u);
    }
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GE(failures, 3u) << "the key's node in both cases, the ring of changes in the first";
}

}  // namespace
}  // namespace WrapperTest
