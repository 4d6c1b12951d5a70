// What a write costs in memory, and what becomes of a change when there is none.
#include "tests/AllocationCount.h"
#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

template <class Act>
std::size_t allocationsIn(const Act& act) {
  const std::size_t before = allocationCount();
  act();
  return allocationCount() - before;
}

template <class Kind>
struct AllocationsOf : RowTableTest<Kind> {};
TYPED_TEST_SUITE(AllocationsOf, AllKinds);

TYPED_TEST(AllocationsOf, Writes_TakeOneNodeForANewKeyAndNothingAfterwards) {
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

// Writes and deletions past the row table, as by another writer, whom no failure reaches.
TYPED_TEST(AllocationsOf, Failure_OfAnyOneLosesNoChange) {
  testing::internal::CaptureStderr();  // what the reactor says of each failure
  std::size_t failures = 0;
  for (const bool deletes : {false, true}) {
    bool failed = true;
    for (std::uint32_t n = 1; failed; ++n) {
      SCOPED_TRACE(testing::Message() << "allocation " << n << " of a " << (deletes ? "deletion" : "write"));
      RowTable<TypeParam> rows;
      Follower<TypeParam> follower;
      if (deletes) rows.config->tableIs(rows.entry(1));
      follower.catchUp(*rows.table);
      rows.wrapper->cleanChangeMap(rows.wrapper->latestChangeIdx());
      allocationFailureIs(n);
      const std::size_t made = allocationsIn(
          [&] { deletes ? rows.config->tableDel(rows.key(1)) : rows.config->tableIs(rows.entry(2)); });
      allocationFailureIs(0);
      failed = made >= n;
      failures += failed;
      EXPECT_EQ(rows.wrapper->latestChangeIdx() & 1, deletes && !failed) << "a lost change is no deletion";
      follower.catchUp(*rows.table);
      EXPECT_EQ(follower.rows, rows.contents(*rows.table));
    }
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GE(failures, 3u) << "the key's node in both cases, the ring of changes in the first";
}

}  // namespace
}  // namespace WrapperTest
