// Handles on shared bytes: their layout, who sees a write, who copies, what is counted; and addresses in the
// variable area of rows. The engine is one template, so the class with variable columns stands for all.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <thread>

#include "lumen/RowOps.h"
#include "tests/AllocationCount.h"
#include "tests/SlotOf.h"
#include "tests/rows/PinnedRows.h"

namespace Lumen {
namespace {

using TolmarHwLib::kPinned, TolmarHwLib::kSampleDip, TolmarHwLib::kSampleSip, TolmarHwLib::pinnedRow;

constexpr len_t kLength = 20;

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
      {[](BaseRow& row) { row.setColumn(12, kSampleSip, kLength); }, 24},
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
  const auto place = [](const BaseRow& row) {
    return std::tuple(row.isNull(), row.contentOffset(), row.sharedContents(), row.readOnly());
  };
  const std::tuple readOnlyView(false, 8, true, true), none(true, 0, false, false);
  BaseRow nested = nestedIn(rowOf(1));
  nested.readOnlyIs(true);
  BaseRow assigned;
  assigned = nested;
  EXPECT_EQ(place(nested), readOnlyView);
  BaseRow moved = std::move(assigned);
  EXPECT_EQ(place(moved), readOnlyView);
  EXPECT_EQ(place(assigned), none);  // NOLINT(bugprone-use-after-move): a moved-from row is a null row
  BaseRow kept(4);
  kept.shareContents(moved);
  EXPECT_EQ(place(kept), std::tuple(false, 8, true, false));
  assigned = std::move(kept);
  assigned.readOnlyIs(true);
  moved = std::move(assigned);
  EXPECT_EQ(place(assigned), none);  // NOLINT(bugprone-use-after-move)
  const BaseRow clone = moved.clone();
  EXPECT_TRUE(clone.rowEqual(moved));
  EXPECT_EQ(clone.bufferLength(), 12);
  EXPECT_EQ(place(clone), std::tuple(false, 0, false, false));
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

using Row = TolmarHwLib::L3TunnelTH3ConfigEntryRow;
using Entry = TolmarHwLib::L3TunnelTH3ConfigEntry;

constexpr len_t kSip = 21;
constexpr len_t kDip = 25;
constexpr len_t kFixed = 49;
const Entry& kSample = kPinned<Row>.entry;

TEST(EntryRow, FillAndClear_KeepTheBufferUnlessItIsSharedOrTooSmall) {
  Row row = pinnedRow<Row>();
  const std::byte* const bytes = row.bytes().data;
  row.clearRow();
  EXPECT_TRUE(row.rowEqual(Row()));
  EXPECT_EQ(row.rowLength(), kFixed);
  row.fill(kSample);
  EXPECT_EQ(row.bytes().data, bytes);
  EXPECT_TRUE(row.rowEqual(pinnedRow<Row>()));
  const Row sharer = row;
  row.fill({});
  EXPECT_TRUE(row.rowEqual(Row()));
  EXPECT_EQ(sharer.entry(), kSample);
  row.fill(kSample);
  EXPECT_EQ(row.entry(), kSample);
  row.rowTypeIs(99);
  EXPECT_FALSE(row.rowEqual(pinnedRow<Row>()));
  EXPECT_TRUE(row.rowEqual(row.clone()));
  Row null{BaseRow()};
  null.clearRow();
  EXPECT_TRUE(null.isNull());
}

// A copy would have room for the header alone.
TEST(EntryRow, RowClearedToLessThanItsClass_IsNotCopied) {
  Row row;
  row.clear(4);
  Row sharer = row;
  EXPECT_THROW(sharer.rowTypeIs(5), Cairn::AssertionException);
  EXPECT_THROW(row.clone(), Cairn::AssertionException);
  sharer = BaseRow();
  row.rowTypeIs(5);
  EXPECT_EQ(row.rowType(), 5);
}

VarSlot slotAt(const BaseRow& row, len_t offset) { return loadBytes<VarSlot>(row.bytes().data + offset); }

IpGenAddr addressAt(const BaseRow& row, len_t offset) {
  IpGenAddr address;
  row.getColumn(offset, address);
  return address;
}

/// Writes an address, which must go to `place` and make the row `rowLength` long.
struct Step {
  len_t column;
  IpGenAddr value;
  len_t place;
  len_t rowLength;
};

/// Takes the steps on a row whose slots have the reserved bit, which outlives every writing.
void expectPlaces(BaseRow& row, len_t fixedLength, std::span<const Step> steps) {
  std::map<len_t, IpGenAddr> expected;
  for (const Step& step : steps) row.setColumn<len_t>(step.column + 2, 0x8000, fixedLength);
  for (const Step& step : steps) {
    SCOPED_TRACE(&step - steps.data());
    row.setColumn(step.column, step.value, fixedLength);
    expected[step.column] = step.value;
    EXPECT_EQ(slotAt(row, step.column).offset, step.place);
    EXPECT_EQ(slotAt(row, step.column).lengthWord, 0x8000 | step.value.size());
    EXPECT_EQ(row.rowLength(), step.rowLength);
    BaseRow copy = row;
    copy.rowTypeIs(0);
    EXPECT_EQ(copy.bufferLength(), step.rowLength);
    for (const auto& [column, value] : expected) {
      for (const BaseRow& each : {row, copy, row.clone()}) EXPECT_EQ(addressAt(each, column), value);
    }
  }
}

TEST(AddressColumn, Values_StayWhereTheyFitAndGoToTheEndWhereNot) {
  const Step steps[] = {{kSip, kSampleSip, 49, 53}, {kDip, kSampleDip, 53, 69}, {kSip, kSampleDip, 69, 85},
                        {kSip, kSampleSip, 69, 85}, {kDip, {}, 53, 85},         {kSip, {}, 69, 85},
                        {kDip, kSampleSip, 53, 85}, {kSip, kSampleDip, 69, 85}, {kDip, kSampleDip, 53, 85}};
  Row row;
  expectPlaces(row, kFixed, steps);
  // In a generic row only the last value grows and shrinks in its place.
  const Step atEnd[] = {{4, kSampleSip, 12, 16}, {4, kSampleDip, 12, 28}, {4, {}, 12, 12},
                        {4, kSampleSip, 12, 16}, {8, kSampleDip, 16, 32}, {8, kSampleSip, 16, 20},
                        {4, kSampleDip, 20, 36}, {8, {}, 16, 36},         {4, kSampleSip, 20, 24},
                        {8, kSampleDip, 24, 40}};
  for (BaseRow generic : {BaseRow(12).clone(), BaseRow(12, 64)}) expectPlaces(generic, 12, atEnd);
}

TEST(AddressColumn, FixedDataBehindTheRowLength_IsKeptOrZero) {
  for (const std::uint32_t last : {7u, 0u}) {
    BaseRow row = last == 0 ? BaseRow(8) : BaseRow(8, 39);
    if (last != 0) row.setColumn(35, last, 39);
    const RowAllocator before = rowAllocatorIs([](std::size_t size) {
      void* const memory = std::malloc(size);
      return std::memset(memory, 0xff, size);
    });
    row.setColumn(4, kSampleSip, 39);
    rowAllocatorIs(before);
    EXPECT_EQ(row.columnHash<std::uint32_t>(35), last);
    EXPECT_EQ(slotAt(row, 4).offset, 39);
    EXPECT_EQ(addressAt(row.clone(), 4), kSampleSip);
  }
}

TEST(AddressColumn, LongestRow_EndsAtTheLastOffset) {
  BaseRow row(65519);
  row.setColumn(4, kSampleDip, 65519);
  EXPECT_EQ(row.rowLength(), 65535);
  EXPECT_EQ(addressAt(BaseRow::fromBytes({row.bytes().data, 65535}), 4), kSampleDip);
}

TEST(RowHandle, BytesThatNoWriterLeaves_ReadAsUnsetOrTrue) {
  for (const std::uint32_t sip : {0x00030031u, 0x0000ffffu}) {  // a length of no family; of nothing, anywhere
    BaseRow row = pinnedRow<Row>();
    row.setColumn(kSip, sip, kFixed);
    EXPECT_FALSE(Row(row).entry().sip.isSet());
    EXPECT_EQ(row.columnHash<IpGenAddr>(kSip), 0u);
  }
  BaseRow row(5);
  row.setColumn(4, std::uint8_t{2}, 5);
  bool value = false;
  row.getColumn(4, value);
  EXPECT_TRUE(value && row.columnHash<bool>(4) == 1);
}

TEST(AddressColumn, SlotsThatShareBytes_PartOnWriting) {
  for (const std::uint32_t sip : {0x00040031u, 0x00100031u, 0x00040035u, 0x00040004u}) {
    Row row = pinnedRow<Row>();
    row.setColumn(kSip, sip, kFixed);  // bytes from outside: over dip or the fixed data
    Entry expected = row.entry();
    expected.sip = kSampleSip;
    row.setColumn(kSip, kSampleSip, kFixed);
    EXPECT_EQ(row.entry(), expected);
  }
}

}  // namespace
}  // namespace Lumen
