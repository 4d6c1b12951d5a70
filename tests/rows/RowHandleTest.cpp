// Handles on shared bytes: their layout, who sees a write, who copies, what is counted.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "lumen/RowOps.h"
#include "tests/AllocationCount.h"
#include "tests/SlotOf.h"

namespace Lumen {
namespace {

constexpr len_t kLength = 20;
constexpr IpGenAddr kAddress = IpGenAddr::ipv4({192, 0, 2, 1});

BaseRow rowOf(std::uint64_t value) {
  BaseRow row(kLength, kLength + 4);
  row.setColumn(4, value, kLength);
  return row;
}
/// A view of the 12 bytes from 8 on.
BaseRow nestedIn(BaseRow parent) {
  parent.setColumn<len_t>(8, 12, kLength);
  return SubRow(parent, {8, 12});
}

TEST(ObjectLayout, VirtualFunctions_StandInOrder) {
  expectSlots(&BaseRow::shareContents, DestructorSlots(), &BaseRow::vcd, &BaseRow::toString, &BaseRow::toJson,
              &BaseRow::rowEqual, &BaseRow::rowLess, &BaseRow::rowHash, &BaseRow::baseRowLength,
              &BaseRow::isFullyDefined, &BaseRow::clearRow);
  expectSlotsInOrder(&RowOpsBase::keyHash, &RowOpsBase::rowHash, &RowOpsBase::keyEquals,
                     &RowOpsBase::rowEquals, &RowOpsBase::keyLess, &RowOpsBase::rowLess, &RowOpsBase::unique,
                     &RowOpsBase::ordered, &RowOpsBase::index, &RowOpsBase::getTotalInstructionsExecuted);
  using Append = void (RowOpsGenerator::*)(std::vector<std::shared_ptr<RowOpsBase>>&);
  using One = std::shared_ptr<RowOpsBase> (RowOpsGenerator::*)(unsigned char);
  expectSlots(static_cast<Append>(&RowOpsGenerator::operator()),
              static_cast<One>(&RowOpsGenerator::operator()));
}

TEST(ObjectLayout, Handle_HoldsBufferOffsetAndFlagsInOrder) {
  BaseRow row = nestedIn(rowOf(1));
  const auto* const object = reinterpret_cast<const std::byte*>(&row);
  EXPECT_EQ(sizeof row, 24u);
  EXPECT_EQ(loadBytes<const std::byte*>(object + 8), row.bytes().data - 8 - sizeof(LmRowBuf));
  EXPECT_EQ(loadBytes<len_t>(object + 16), 8);
  EXPECT_EQ(object[18], std::byte{1});
  EXPECT_EQ(object[19], std::byte{0});
  row.readOnlyIs(true);
  EXPECT_EQ(object[19], std::byte{1});
}

TEST(RowHandle, FirstWriteCopies_AndIsSeenByNoOtherHandle) {
  const std::pair<void (*)(BaseRow&), int> writes[] = {
      {[](BaseRow& row) { row.setColumn(4, std::uint64_t{2}, kLength); }, 20},
      {[](BaseRow& row) { row.setColumn(12, kAddress, kLength); }, 24},
      {[](BaseRow& row) { row.setColumn(4, std::uint64_t{2}, 39); }, 20},
      {[](BaseRow& row) { row.rowTypeIs(9); }, 20},
      {[](BaseRow& row) { row.clear(kLength); }, 24}};
  for (const auto& [write, bufferLength] : writes) {
    SCOPED_TRACE(&write - &writes[0].first);
    BaseRow row = rowOf(1);
    const BaseRow copy = row;
    BaseRow sharing(kLength);
    sharing.readOnlyIs(true);
    sharing.shareContents(row);
    EXPECT_EQ(row.bufferUseCount(), 3u);
    EXPECT_TRUE(sharing.readOnly());
    write(row);
    EXPECT_EQ(row.bufferUseCount(), 1u);
    EXPECT_EQ(row.bufferLength(), bufferLength);
    EXPECT_FALSE(row.rowEqual(copy));
    for (const BaseRow& other : {copy, sharing}) EXPECT_TRUE(other.rowEqual(rowOf(1)));
    const std::size_t before = allocationCount();
    write(row);
    EXPECT_EQ(allocationCount(), before);
  }
}

TEST(RowHandle, Handles_CarryOffsetAndFlags) {
  BaseRow nested = nestedIn(rowOf(1));
  nested.readOnlyIs(true);
  BaseRow assigned;
  assigned = nested;
  BaseRow moved = std::move(assigned);
  for (const BaseRow& row : {nested, moved}) {
    EXPECT_EQ(row.contentOffset(), 8);
    EXPECT_TRUE(row.sharedContents() && row.readOnly());
  }
  // NOLINTNEXTLINE(bugprone-use-after-move): a moved-from row is a null row
  EXPECT_EQ(assigned.toString(), "len: 0, NULL");
  EXPECT_EQ(assigned.contentOffset(), 0);
  EXPECT_FALSE(assigned.sharedContents() || assigned.readOnly());
  BaseRow kept(4);
  kept.shareContents(moved);
  EXPECT_TRUE(kept.contentOffset() == 8 && kept.sharedContents() && !kept.readOnly());
  assigned = std::move(kept);
  assigned.readOnlyIs(true);
  moved = std::move(assigned);
  // NOLINTNEXTLINE(bugprone-use-after-move)
  EXPECT_FALSE(assigned.sharedContents() || assigned.readOnly());
  BaseRow clone = moved.clone();
  EXPECT_TRUE(clone.rowEqual(moved));
  EXPECT_EQ(clone.bufferLength(), 12);
  EXPECT_FALSE(clone.sharedContents() || clone.readOnly());
  BaseRow& self = moved;
  moved = self;
  moved = std::move(self);
  EXPECT_EQ(moved.bufferUseCount(), 2u);
}

TEST(RowHandle, Clear_StartsTheRowOver) {
  BaseRow row = rowOf(1);
  row.rowTypeIs(7);
  const std::byte* const place = row.bytes().data;
  row.clear(12);
  EXPECT_EQ(row.bytes().data, place);
  EXPECT_TRUE(row.rowEqual(BaseRow(12)));
  EXPECT_EQ(row.toString(), "len: 12");
  EXPECT_EQ(row.toJson(), "");
  row.clear(24);
  EXPECT_EQ(row.rowLength(), 24);
  BaseRow nested = nestedIn(rowOf(1));
  nested.clear(kLength);
  EXPECT_EQ(nested.bufferLength(), 24);
  EXPECT_EQ(nested.contentOffset(), 0);
  EXPECT_FALSE(nested.sharedContents());
  EXPECT_TRUE(nested.rowEqual(BaseRow(kLength)));
}

TEST(RowHandle, Counters_CountEachKindOnItsThread) {
  std::thread([] {
    BaseRow defaulted;
    BaseRow sized(8);
    BaseRow roomy(8, 12);
    BaseRow copied(sized);
    BaseRow moved(std::move(copied));
    const BaseRow cloned = sized.clone();
    const BaseRow outside = BaseRow::fromBytes(std::array<std::byte, 4>{});
    roomy.setColumn<std::uint16_t>(4, 4, 8);
    const SubRow nested(roomy, {4, 4});
    const BaseRowCounters& counters = baseRowCounters;
    EXPECT_THAT((std::array{counters.defaulted, counters.sized, counters.sizedWithBuffer, counters.copied,
                            counters.moved, counters.cloned, counters.fromBytes, counters.subRows}),
                testing::Each(1u));
  }).join();
}

TEST(RowHandle, Threads_ShareABufferAndCopyOnWrite) {
  const BaseRow row = rowOf(1);
  const auto work = [&row] {
    for (std::uint64_t round = 0; round < 2000; ++round) {
      BaseRow mine = row;
      const BaseRow second = mine;
      mine.setColumn(4, round, kLength);
      EXPECT_TRUE(mine.rowEqual(rowOf(round)));
      EXPECT_TRUE(second.rowEqual(rowOf(1)));
    }
  };
  { const std::jthread threads[] = {std::jthread(work), std::jthread(work), std::jthread(work)}; }
  EXPECT_EQ(row.bufferUseCount(), 1u);
}

}  // namespace
}  // namespace Lumen
