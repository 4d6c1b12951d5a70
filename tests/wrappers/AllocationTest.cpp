// What a write costs in memory, and what becomes of a change when there is none.
#include "tests/AllocationCount.h"
#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

std::size_t allocationsIn(const std::function<void()>& act) {
  const std::size_t before = allocationCount();
  act();
  return allocationCount() - before;
}

template <class Kind>
struct AllocationsOf : RowTableTest<Kind> {};
TYPED_TEST_SUITE(AllocationsOf, AllKinds);

TYPED_TEST(AllocationsOf, Writes_TakeTwoNodesForANewKeyAndNothingAfterwards) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 0; n < 6; ++n) rows.table->rowIs(rows.row(n, 1));  // scratch rows find their size
  std::vector<Lumen::BaseRow> fresh, again;
  for (std::uint32_t n = 6; n < 12; ++n) fresh.push_back(rows.row(n, 1));
  for (std::uint32_t n = 0; n < 12; ++n) again.push_back(rows.row(n, 2));
  const auto writeAll = [&](const auto& all) {
    for (const auto& row : all) rows.table->rowIs(row);
  };
  EXPECT_EQ(allocationsIn([&] { writeAll(fresh); }), 2 * fresh.size());
  EXPECT_EQ(allocationsIn([&] {
              writeAll(again);
              for (const auto& row : again) rows.table->rowDel(row);
              writeAll(again);
            }),
            0u);
  rows.wrapper->cleanChangeMap(rows.wrapper->latestChangeIdx());
  EXPECT_EQ(allocationsIn([&] { writeAll(fresh); }), 2 * fresh.size()) << "their keys were forgotten";
}

TYPED_TEST(AllocationsOf, Failure_OfAnyOneLosesNoChange) {
  auto& rows = this->rowTable;
  std::vector<Lumen::BaseRow> held;  // so that the next change needs a fresh scratch row too
  const auto observer = std::make_shared<Follower<TypeParam>>();
  observer->whenChanged = [&](const auto& change) { held.push_back(change.row); };
  rows.table->observerIs(observer);
  testing::internal::CaptureStderr();  // what the reactor says of each failure
  std::uint32_t n = 0;
  // Written past the row table, as by a foreign writer: nobody learns of the failure.
  const auto writeAndLook = [&](std::size_t failing) {
    const auto entry = rows.entry(++n, 1);
    allocationFailureIs(failing);
    const std::size_t made = allocationsIn([&] { rows.config->tableIs(entry); });
    allocationFailureIs(0);
    observer->consume();
    EXPECT_EQ(observer->rows.size(), n);
    EXPECT_EQ(observer->rows[rows.key(n)], entry) << "write " << n;
    return made >= failing;
  };
  while (writeAndLook(n + 1)) {
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(n, 6u);
}

}  // namespace
}  // namespace WrapperTest
