// Addresses in the variable area: places, growth, and what copies keep.
#include <gtest/gtest.h>

#include "tests/rows/FailingAllocator.h"
#include "tests/rows/PinnedRows.h"

namespace Lumen {
namespace {

using TolmarHwLib::kSampleDip;
using TolmarHwLib::kSampleSip;
using Row = TolmarHwLib::L3TunnelTH3ConfigEntryRow;

constexpr len_t kSip = 21;
constexpr len_t kDip = 25;
constexpr len_t kFixed = 49;
const IpGenAddr kUnset;
const IpGenAddr kOtherUnset = IpGenAddr::fromBytes(7, nullptr);

IpGenAddr read(const BaseRow& row, len_t offset) {
  IpGenAddr value;
  row.getColumn(offset, value);
  return value;
}
VarSlot slotAt(const BaseRow& row, len_t offset) { return loadBytes<VarSlot>(row.bytes().data + offset); }

TEST(AddressColumn, NewRow_HasRoomForItsAddressesAndNoMore) {
  struct Case {
    IpGenAddr sip;
    IpGenAddr dip;
    len_t length;
  };
  for (const Case& each :
       {Case{kSampleDip, kSampleDip, 81}, Case{kSampleSip, kSampleSip, 57}, Case{kSampleSip, kSampleDip, 69},
        Case{kUnset, kSampleSip, 53}, Case{kUnset, kOtherUnset, 49}}) {
    const Row row = Row::key(each.sip, each.dip, 0, 0, 0);
    EXPECT_EQ(row.bufferLength(), each.length);
    EXPECT_EQ(row.rowLength(), each.length);
    EXPECT_EQ(read(row, kSip), each.sip);
    EXPECT_EQ(read(row, kDip), each.dip);
  }
}

TEST(AddressColumn, RowLengthCoversTheBytes_SoCopiesKeepThem) {
  Row row;
  row.setColumn(kSip, kSampleSip, kFixed);
  row.setColumn(kDip, kSampleDip, kFixed);
  EXPECT_EQ(row.rowLength(), kFixed + 4 + 16);
  const Row clone = row.clone();
  Row copy = row;
  copy.setColumn(20, true, kFixed);
  for (const Row* each : {static_cast<const Row*>(&row), &clone, static_cast<const Row*>(&copy)}) {
    EXPECT_EQ(read(*each, kSip), kSampleSip);
    EXPECT_EQ(read(*each, kDip), kSampleDip);
  }
}

TEST(AddressColumn, ValueThatFits_StaysInItsPlace) {
  Row row = Row::key(kSampleDip, kSampleDip, 0, 0, 0);
  FailingAllocator allocator;
  for (const IpGenAddr& value : {kSampleSip, kUnset, kSampleDip, kUnset, kSampleSip, kSampleDip}) {
    row.setColumn(kSip, value, kFixed);
    EXPECT_EQ(read(row, kSip), value);
    EXPECT_EQ(read(row, kDip), kSampleDip);
    EXPECT_EQ(slotAt(row, kSip).offset, kFixed);
  }
  EXPECT_EQ(row.rowLength(), 81);
  EXPECT_EQ(allocator.allocations(), 0u);
}

TEST(AddressColumn, UnsetColumn_HasNoPlaceToTakeFromAnother) {
  Row row = Row::key(kUnset, kSampleDip, 0, 0, 0);
  row.setColumn(kSip, kSampleSip, kFixed);
  EXPECT_EQ(read(row, kSip), kSampleSip);
  EXPECT_EQ(read(row, kDip), kSampleDip);
}

TEST(AddressColumn, ChangingFamilies_NeverGrowsWithoutBound) {
  Row row = Row::key(kSampleSip, kSampleSip, 0, 0, 0);
  for (int round = 0; round < 100; ++round) {
    row.setColumn(kSip, round % 2 == 0 ? kSampleDip : kSampleSip, kFixed);
    row.setColumn(kDip, round % 3 == 0 ? kSampleDip : kUnset, kFixed);
  }
  EXPECT_LE(row.rowLength(), kFixed + 2 * (4 + 16));
  EXPECT_EQ(read(row, kSip), kSampleSip);
  EXPECT_EQ(read(row, kDip), kSampleDip);
}

TEST(AddressColumn, ReservedBitOfTheSlot_OutlivesRewriting) {
  Row row;
  row.setColumn<std::uint16_t>(kSip + 2, 0x8000, kFixed);
  for (const IpGenAddr& value : {kSampleSip, kSampleDip, kUnset}) {
    row.setColumn(kSip, value, kFixed);
    EXPECT_EQ(slotAt(row, kSip).lengthWord, 0x8000u | value.size());
    EXPECT_EQ(read(row, kSip), value);
  }
}

TEST(AddressColumn, LengthsOtherThanAnAddress_ReadAsUnset) {
  Row row = Row::key(kSampleDip, kSampleDip, 0, 0, 0);
  for (const len_t length : {len_t{1}, len_t{3}, len_t{5}, len_t{15}}) {
    row.setColumn(kSip + 2, length, kFixed);
    EXPECT_FALSE(read(row, kSip).isSet());
    EXPECT_EQ(row.columnHash<IpGenAddr>(kSip), 0u);
  }
}

TEST(AddressColumn, SlotThatPointsIntoTheFixedData_IsNotWrittenThrough) {
  Row row = Row::key(kSampleSip, kSampleSip, 6, 0, 0);
  row.setColumn<std::uint16_t>(kSip, 4, kFixed);
  row.setColumn(kSip, kSampleSip, kFixed);
  EXPECT_EQ(row.entry().genId, 0u);
  EXPECT_EQ(read(row, kSip), kSampleSip);
}

// Rows from outside may have their slots anywhere in the row.
TEST(AddressColumn, SlotsThatShareBytes_PartOnWriting) {
  struct Case {
    VarSlot sip;
    VarSlot dip;
  };
  for (const Case& each : {Case{{49, 4}, {49, 4}}, Case{{49, 16}, {53, 4}}, Case{{53, 4}, {49, 16}},
                           Case{{49, 16}, {52, 16}}, Case{{49, 3}, {50, 4}}}) {
    SCOPED_TRACE(testing::Message() << each.sip.offset << ' ' << each.dip.offset);
    for (const auto& [written, other] : {std::pair{kSip, kDip}, std::pair{kDip, kSip}}) {
      for (const IpGenAddr& value : {kSampleSip, kSampleDip}) {
        BaseRow bytes = Row::key(kSampleDip, kSampleDip, 0, 0, 0);
        bytes.setColumn(kSip, each.sip.offset | std::uint32_t{each.sip.lengthWord} << 16, kFixed);
        bytes.setColumn(kDip, each.dip.offset | std::uint32_t{each.dip.lengthWord} << 16, kFixed);
        Row row(bytes);
        bytes = BaseRow();
        const IpGenAddr before = read(row, other);
        row.setColumn(written, value, kFixed);
        EXPECT_EQ(read(row, written), value);
        EXPECT_EQ(read(row, other), before);
      }
    }
  }
}

TEST(AddressColumn, Order_IsUnsetThenIpv4ThenIpv6ThenBytewise) {
  const IpGenAddr ordered[] = {kUnset,
                               IpGenAddr::ipv4({1, 2, 3, 4}),
                               IpGenAddr::ipv4({200, 0, 0, 0}),
                               IpGenAddr::ipv6({}),
                               IpGenAddr::ipv6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4}),
                               kSampleDip};
  for (std::size_t i = 0; i < std::size(ordered); ++i) {
    for (std::size_t j = 0; j < std::size(ordered); ++j) {
      const Row a = Row::key(ordered[i], kUnset, 0, 0, 0);
      const Row b = Row::key(ordered[j], kUnset, 0, 0, 0);
      EXPECT_EQ(a.columnLess<IpGenAddr>(kSip, b, kSip), i < j);
      EXPECT_EQ(a.columnEqual<IpGenAddr>(kSip, b, kSip), i == j);
      EXPECT_EQ(a < b, i < j);
      EXPECT_EQ(a == b, i == j);
    }
  }
  const Row unset = Row::key(kUnset, kUnset, 0, 0, 0);
  EXPECT_EQ(unset, Row::key(kOtherUnset, kUnset, 0, 0, 0));
  EXPECT_EQ(unset.hash(), Row::key(kOtherUnset, kUnset, 0, 0, 0).hash());
}

}  // namespace
}  // namespace Lumen
