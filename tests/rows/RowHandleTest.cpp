// Handles on shared bytes: who sees a write, who copies, what is counted.
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "rows/BaseRow.h"
#include "tests/rows/FailingAllocator.h"

namespace Lumen {
namespace {

constexpr len_t kLength = 20;

BaseRow rowOf(std::uint64_t value) {
  BaseRow row(kLength, kLength + 4);
  row.setColumn(4, value, kLength);
  return row;
}

std::uint64_t valueOf(const BaseRow& row) {
  std::uint64_t value = 0;
  row.getColumn(4, value);
  return value;
}

TEST(RowHandle, NewRow_IsZeroAndKnowsItsLength) {
  const BaseRow row(4);
  EXPECT_EQ(row.rowLength(), 4);
  EXPECT_EQ(row.rowType(), 0);
  EXPECT_EQ(row.bufferLength(), 4);
  const BaseRow withRoom(kLength, 30);
  EXPECT_EQ(withRoom.rowLength(), kLength);
  EXPECT_EQ(withRoom.bufferLength(), 30);
  EXPECT_EQ(withRoom.toString(), "len: 20");
  EXPECT_EQ(withRoom.toJson(), "");
  EXPECT_FALSE(withRoom.isFullyDefined());
}

TEST(RowHandle, Write_IsSeenByNoOtherHandle) {
  struct Case {
    const char* name;
    void (*write)(BaseRow&);
  };
  const Case cases[] = {{"column", [](BaseRow& row) { row.setColumn(4, std::uint64_t{2}, kLength); }},
                        {"address",
                         [](BaseRow& row) {
                           row.setColumn(12, IpGenAddr::ipv4({1, 2, 3, 4}), kLength);
                         }},
                        {"type", [](BaseRow& row) { row.rowTypeIs(9); }},
                        {"clear", [](BaseRow& row) { row.clear(kLength); }}};
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    BaseRow row = rowOf(1);
    const BaseRow copy = row;
    BaseRow assigned;
    assigned = row;
    BaseRow sharing(kLength);
    sharing.shareContents(row);
    EXPECT_EQ(row.bufferUseCount(), 4u);
    each.write(row);
    EXPECT_EQ(row.bufferUseCount(), 1u);
    EXPECT_EQ(copy.bufferUseCount(), 3u);
    EXPECT_FALSE(row.rowEqual(copy));
    for (const BaseRow* other :
         {&copy, static_cast<const BaseRow*>(&assigned), static_cast<const BaseRow*>(&sharing)}) {
      EXPECT_EQ(valueOf(*other), 1u);
      EXPECT_EQ(other->rowType(), 0);
    }
  }
}

TEST(RowHandle, FirstWriteCopiesRowLengthBytes_LaterOnesNothing) {
  BaseRow row = rowOf(1);
  const BaseRow sharer = row;
  FailingAllocator allocator;
  row.setColumn(4, std::uint64_t{2}, kLength);
  EXPECT_EQ(allocator.allocations(), 1u);
  EXPECT_EQ(row.bufferLength(), kLength);
  EXPECT_EQ(row.contentOffset(), 0);
  row.setColumn(4, std::uint64_t{3}, kLength);
  row.rowTypeIs(1);
  row.clear(kLength);
  EXPECT_EQ(allocator.allocations(), 1u);
}

TEST(RowHandle, LastSharer_WritesInPlace) {
  BaseRow row = rowOf(1);
  { const BaseRow sharer = row; }
  FailingAllocator allocator;
  row.setColumn(4, std::uint64_t{2}, kLength);
  EXPECT_EQ(allocator.allocations(), 0u);
}

TEST(RowHandle, Handles_CarryOffsetAndFlags) {
  BaseRow parent = rowOf(1);
  parent.setColumn<std::uint16_t>(8, 12, kLength);
  parent.readOnlyIs(true);
  const SubRow nested(parent, {8, 12});
  const BaseRow copy = nested;
  BaseRow assigned;
  assigned = nested;
  BaseRow moved = std::move(assigned);
  for (const BaseRow* row :
       {static_cast<const BaseRow*>(&nested), &copy, static_cast<const BaseRow*>(&moved)}) {
    EXPECT_EQ(row->contentOffset(), 8);
    EXPECT_TRUE(row->sharedContents());
    EXPECT_TRUE(row->readOnly());
  }
  // NOLINTNEXTLINE(bugprone-use-after-move): a moved-from row is a null row
  EXPECT_TRUE(assigned.isNull());
  EXPECT_EQ(assigned.contentOffset(), 0);
  EXPECT_FALSE(assigned.sharedContents());
  EXPECT_FALSE(assigned.readOnly());
  EXPECT_EQ(assigned.toString(), "len: 0, NULL");
}

TEST(RowHandle, SelfAssignment_KeepsTheRow) {
  BaseRow row = rowOf(1);
  const BaseRow& self = row;
  row = self;
  EXPECT_EQ(valueOf(row), 1u);
  EXPECT_EQ(row.bufferUseCount(), 1u);
  row = std::move(const_cast<BaseRow&>(self));
  EXPECT_EQ(valueOf(row), 1u);
  row.shareContents(row);
  EXPECT_EQ(row.bufferUseCount(), 1u);
}

TEST(RowHandle, Clear_StartsTheRowOver) {
  BaseRow row = rowOf(1);
  row.rowTypeIs(7);
  const std::byte* const place = row.bytes().data;
  row.clear(12);
  EXPECT_EQ(row.bytes().data, place);
  EXPECT_EQ(row.rowLength(), 12);
  EXPECT_EQ(row.rowType(), 0);
  EXPECT_EQ(valueOf(row), 0u);
  row.clear(24);
  EXPECT_EQ(row.rowLength(), 24);
}

TEST(RowHandle, ClearOfASharedRow_TakesABufferOfTheOldLength) {
  BaseRow parent = rowOf(1);
  parent.setColumn<std::uint16_t>(8, 12, kLength);
  SubRow nested(parent, {8, 12});
  nested.clear(kLength);
  EXPECT_EQ(nested.bufferLength(), kLength + 4);
  EXPECT_EQ(nested.contentOffset(), 0);
  EXPECT_FALSE(nested.sharedContents());
  EXPECT_EQ(nested.rowType(), 0);
  EXPECT_EQ(valueOf(nested), 0u);
  EXPECT_EQ(parent.rowLength(), kLength);
}

TEST(RowHandle, Clone_IsAWritableCopyOfJustTheRow) {
  BaseRow row = rowOf(1);
  row.rowTypeIs(7);
  row.readOnlyIs(true);
  BaseRow copy = row.clone();
  EXPECT_TRUE(copy.rowEqual(row));
  EXPECT_EQ(copy.bufferLength(), kLength);
  EXPECT_EQ(row.bufferUseCount(), 1u);
  copy.setColumn(4, std::uint64_t{2}, kLength);
  EXPECT_EQ(valueOf(row), 1u);
}

TEST(RowHandle, GenericRowsAreEqual_WithTypeAndBytes) {
  const BaseRow row = rowOf(1);
  BaseRow other = rowOf(1);
  EXPECT_TRUE(row.rowEqual(other));
  other.rowTypeIs(1);
  EXPECT_FALSE(row.rowEqual(other));
  EXPECT_FALSE(row.rowEqual(rowOf(2)));
  EXPECT_FALSE(row.rowEqual(BaseRow(12)));
}

TEST(RowHandle, Counters_CountEachKindOnItsThread) {
  std::thread([] {
    BaseRowCounters& counters = baseRowCounters;
    BaseRow defaulted;
    BaseRow sized(8);
    BaseRow roomy(8, 12);
    BaseRow copied(sized);
    BaseRow moved(std::move(copied));
    const BaseRow cloned = sized.clone();
    const BaseRow outside = BaseRow::fromBytes(std::array<std::byte, 4>{});
    roomy.setColumn<std::uint16_t>(4, 4, 8);
    const SubRow nested(roomy, {4, 4});
    const std::array counts{counters.defaulted, counters.sized,  counters.sizedWithBuffer, counters.copied,
                            counters.moved,     counters.cloned, counters.fromBytes,       counters.subRows};
    EXPECT_EQ(counts, (std::array<std::uint64_t, 8>{1, 1, 1, 1, 1, 1, 1, 1}));
  }).join();
}

TEST(RowHandle, Threads_ShareABufferAndCopyOnWrite) {
  const BaseRow row = rowOf(1);
  std::array<std::thread, 4> threads;
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([&row, i] {
      for (std::uint64_t round = 0; round < 2000; ++round) {
        BaseRow mine = row;
        const BaseRow second = mine;
        mine.setColumn(4, round + i, kLength);
        EXPECT_EQ(valueOf(mine), round + i);
        EXPECT_EQ(valueOf(second), 1u);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(row.bufferUseCount(), 1u);
}

}  // namespace
}  // namespace Lumen
