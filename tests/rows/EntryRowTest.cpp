// Row classes as handles, and their addresses in the variable area. The engine is one template, so the class
// with variable columns stands for all.
#include <gtest/gtest.h>

#include <map>

#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {

namespace {

using Lumen::BaseRow;
using Row = L3TunnelTH3ConfigEntryRow;
using Entry = L3TunnelTH3ConfigEntry;

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
  EXPECT_EQ(row.bufferUseCount(), 2u);
  sharer = BaseRow();
  row.rowTypeIs(5);
  EXPECT_EQ(row.rowType(), 5);
}

TEST(EntryRow, BytesThatNoWriterLeaves_HaveAMeaning) {
  Row row = pinnedRow<Row>();
  row.setColumn(kSip + 2, len_t{3}, kFixed);
  EXPECT_FALSE(row.entry().sip.isSet());
  EXPECT_EQ(row.columnHash<IpGenAddr>(kSip), 0u);
  const auto station = pinnedRow<MyStationTcamTH3StatusEntryRow>();
  auto outside = station;
  outside.setColumn(32, std::uint8_t{2}, 47);  // t, which is true
  EXPECT_TRUE(outside.keyRecord().t);
  EXPECT_EQ(outside.hash(), station.hash());
  EXPECT_TRUE(outside == station && outside.rowEqual(station));
  EXPECT_FALSE(outside < station || station < outside);
}

Lumen::VarSlot slotAt(const BaseRow& row, len_t offset) {
  return Lumen::loadBytes<Lumen::VarSlot>(row.bytes().data + offset);
}

IpGenAddr addressAt(const BaseRow& row, len_t offset) {
  IpGenAddr address;
  row.getColumn(offset, address);
  return address;
}

TEST(AddressColumn, Values_StayWhereTheyFitAndGoToTheEndWhereNot) {
  struct Step {
    len_t column;
    IpGenAddr value;
    len_t place;
    len_t rowLength;
  };
  const Step steps[] = {{kSip, kSampleSip, 49, 53}, {kDip, kSampleDip, 53, 69}, {kSip, kSampleDip, 69, 85},
                        {kSip, kSampleSip, 69, 85}, {kDip, {}, 53, 85},         {kSip, {}, 69, 85},
                        {kDip, kSampleSip, 53, 85}, {kSip, kSampleDip, 69, 85}, {kDip, kSampleDip, 53, 85}};
  Row row;
  row.setColumn<len_t>(kSip + 2, 0x8000, kFixed);  // the reserved bit outlives every writing
  Entry expected;
  for (const Step& step : steps) {
    SCOPED_TRACE(&step - steps);
    row.setColumn(step.column, step.value, kFixed);
    (step.column == kSip ? expected.sip : expected.dip) = step.value;
    EXPECT_EQ(slotAt(row, step.column).offset, step.place);
    EXPECT_EQ(slotAt(row, kSip).lengthWord, 0x8000 | expected.sip.size());
    EXPECT_EQ(row.rowLength(), step.rowLength);
    Row copy = row;
    copy.rowTypeIs(0);
    EXPECT_EQ(copy.bufferLength(), step.rowLength);
    for (const Row& each : {row, row.clone(), copy}) EXPECT_EQ(each.entry(), expected);
  }
}

TEST(AddressColumn, LastValueOfAGenericRow_GrowsAndShrinksInPlace) {
  struct Step {
    len_t column;
    IpGenAddr value;
    len_t place;
    len_t rowLength;
  };
  const Step steps[] = {{4, kSampleSip, 12, 16}, {4, kSampleDip, 12, 28}, {4, {}, 12, 12},
                        {4, kSampleSip, 12, 16}, {8, kSampleDip, 16, 32}, {8, kSampleSip, 16, 20},
                        {4, kSampleDip, 20, 36}, {8, {}, 16, 36},         {4, kSampleSip, 20, 24},
                        {8, kSampleDip, 24, 40}};
  for (const int round : {0, 1}) {
    BaseRow row = round == 0 ? BaseRow(12) : BaseRow(12, 64);
    std::map<len_t, IpGenAddr> expected;
    for (const Step& step : steps) {
      SCOPED_TRACE(&step - steps);
      row.setColumn(step.column, step.value, 12);
      expected[step.column] = step.value;
      EXPECT_EQ(slotAt(row, step.column).offset, step.place);
      EXPECT_EQ(row.rowLength(), step.rowLength);
      for (const auto& [column, value] : expected) {
        EXPECT_EQ(addressAt(row, column), value);
        EXPECT_EQ(addressAt(row.clone(), column), value);
      }
    }
  }
}

TEST(AddressColumn, FixedDataBehindTheRowLength_IsNotOverwritten) {
  BaseRow row(8, 39);
  row.setColumn(35, std::uint32_t{7}, 39);
  row.setColumn(4, kSampleSip, 39);
  EXPECT_EQ(row.columnHash<std::uint32_t>(35), 7u);
  EXPECT_EQ(slotAt(row, 4).offset, 39);
  EXPECT_EQ(addressAt(row.clone(), 4), kSampleSip);
}

TEST(AddressColumn, LongestRow_EndsAtTheLastOffset) {
  BaseRow row(65519);
  row.setColumn(4, kSampleDip, 65519);
  EXPECT_EQ(row.rowLength(), 65535);
  EXPECT_EQ(addressAt(BaseRow::fromBytes({row.bytes().data, 65535}), 4), kSampleDip);
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
}  // namespace TolmarHwLib
