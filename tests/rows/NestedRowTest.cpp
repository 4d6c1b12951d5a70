// Rows as columns of rows.
#include <gtest/gtest.h>

#include <vector>

#include "tests/quill/AllocationCount.h"
#include "tests/rows/FailingAllocator.h"
#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {
namespace {

using Lumen::BaseRow;
using Lumen::SubRow;
using Lumen::VarSlot;

constexpr len_t kSlot = 4;
constexpr len_t kParentFixed = 12;

/// A parent of 12 bytes of fixed data: a slot at 4 for `nested` and four more bytes.
BaseRow parentOf(const BaseRow& nested) {
  const len_t length = nested.isNull() ? len_t{0} : nested.rowLength();
  std::vector<std::byte> bytes(kParentFixed + length);
  Lumen::storeBytes(bytes.data(), static_cast<len_t>(bytes.size()));
  if (length != 0) {
    Lumen::storeBytes(bytes.data() + kSlot, VarSlot{kParentFixed, length});
    std::memcpy(bytes.data() + kParentFixed, nested.bytes().data, length);
  }
  return BaseRow::fromBytes(bytes);
}

template <class Row>
class NestedRow : public testing::Test {};
using Rows =
    testing::Types<L3TunnelTH3ConfigEntryRow, L3TunnelTH3StatusEntryRow, MyStationTcamTH3ConfigEntryRow,
                   MyStationTcamTH3StatusEntryRow, L3IifTH3ConfigEntryRow, L3IifTH3StatusEntryRow>;
TYPED_TEST_SUITE(NestedRow, Rows);

TYPED_TEST(NestedRow, Read_IsAViewOfTheParentsBytes) {
  const BaseRow parent = parentOf(Pinned<TypeParam>::row());
  TypeParam nested{BaseRow()};
  parent.getColumnStruct(kSlot, nested);
  EXPECT_EQ(nested.bytes().data, parent.bytes().data + kParentFixed);
  EXPECT_EQ(nested.contentOffset(), kParentFixed);
  EXPECT_TRUE(nested.sharedContents());
  EXPECT_EQ(nested.entry(), Pinned<TypeParam>::entry());
  EXPECT_EQ(nested.toString(), Pinned<TypeParam>::expected.text);
}

TYPED_TEST(NestedRow, Write_CopiesFirst) {
  BaseRow parent = parentOf(Pinned<TypeParam>::row());
  TypeParam nested{BaseRow()};
  parent.getColumnStruct(kSlot, nested);
  parent = BaseRow();  // the view alone holds the buffer now, and still must not write into it
  const TypeParam second = nested;
  nested.setColumn(4, std::uint64_t{0}, nested.baseRowLength());
  EXPECT_EQ(nested.contentOffset(), 0);
  EXPECT_FALSE(nested.sharedContents());
  EXPECT_EQ(nested.entry().genId, 0u);
  EXPECT_EQ(nested.keyRecord(), second.keyRecord());
  EXPECT_EQ(second.entry(), Pinned<TypeParam>::entry());
}

TYPED_TEST(NestedRow, ColumnOperations_AreThoseOfTheNestedRow) {
  const BaseRow parent = parentOf(Pinned<TypeParam>::row());
  auto larger = Pinned<TypeParam>::entry();
  larger.genId += 1;
  const BaseRow other = parentOf(TypeParam::fromEntry(larger));
  EXPECT_EQ(parent.columnHash<TypeParam>(kSlot), Pinned<TypeParam>::expected.rowHash);
  EXPECT_TRUE(parent.columnEqual<TypeParam>(kSlot, parent.clone(), kSlot));
  EXPECT_FALSE(parent.columnEqual<TypeParam>(kSlot, other, kSlot));
  EXPECT_TRUE(parent.columnLess<TypeParam>(kSlot, other, kSlot));
  EXPECT_FALSE(other.columnLess<TypeParam>(kSlot, parent, kSlot));
}

TYPED_TEST(NestedRow, AbsentColumn_IsANullRow) {
  const BaseRow absent = parentOf(BaseRow());
  const BaseRow present = parentOf(Pinned<TypeParam>::row());
  TypeParam nested = Pinned<TypeParam>::row();
  absent.getColumnStruct(kSlot, nested);
  EXPECT_TRUE(nested.isNull());
  EXPECT_THROW(absent.columnHash<TypeParam>(kSlot), Lumen::LmNullRow);
  EXPECT_THROW(absent.columnEqual<TypeParam>(kSlot, present, kSlot), Lumen::LmNullRow);
  EXPECT_THROW(present.columnEqual<TypeParam>(kSlot, absent, kSlot), Lumen::LmNullRow);
  EXPECT_THROW(absent.columnLess<TypeParam>(kSlot, present, kSlot), Lumen::LmNullRow);
}

TEST(NestedRows, RowInAReadOnlyRow_IsReadOnly) {
  BaseRow parent = parentOf(Pinned<L3IifTH3StatusEntryRow>::row());
  parent.readOnlyIs(true);
  L3IifTH3StatusEntryRow nested{BaseRow()};
  parent.getColumnStruct(kSlot, nested);
  EXPECT_THROW(nested.setColumn(4, std::uint64_t{0}, nested.baseRowLength()), Lumen::LmPermissionViolation);
  EXPECT_EQ(nested.entry(), Pinned<L3IifTH3StatusEntryRow>::entry());
}

TEST(NestedRows, Reads_AllocateNothing) {
  const BaseRow parent = parentOf(Pinned<L3TunnelTH3ConfigEntryRow>::row());
  const Lumen::FailingAllocator allocator;
  const std::size_t before = allocationCount();
  L3TunnelTH3ConfigEntryRow nested{BaseRow()};
  parent.getColumnStruct(kSlot, nested);
  EXPECT_TRUE(parent.columnEqual<L3TunnelTH3ConfigEntryRow>(kSlot, parent, kSlot));
  EXPECT_FALSE(parent.columnLess<L3TunnelTH3ConfigEntryRow>(kSlot, parent, kSlot));
  EXPECT_NE(parent.columnHash<L3TunnelTH3ConfigEntryRow>(kSlot), 0u);
  EXPECT_EQ(allocator.allocations() + allocationCount() - before, 0u);
}

TEST(NestedRows, RowOfAnotherClass_IsABadCastWithItsOwnOffset) {
  const BaseRow parent = parentOf(Pinned<L3IifTH3StatusEntryRow>::row());
  L3IifTH3ConfigEntryRow nested = Pinned<L3IifTH3ConfigEntryRow>::row();
  try {
    parent.getColumnStruct(kSlot, nested);
    ADD_FAILURE() << "did not fail";
  } catch (const Lumen::LmBadCast& error) {
    EXPECT_EQ(error.what(), "row type " + std::to_string(L3IifTH3StatusEntryRow::protRowType()) +
                                " does not match row type " +
                                std::to_string(L3IifTH3ConfigEntryRow::protRowType()) + " 12");
  }
  EXPECT_EQ(nested.entry(), Pinned<L3IifTH3ConfigEntryRow>::entry());
}

// A tunnel row's slots count from its own start, wherever it stands.
TEST(NestedRows, TwoLevels_CountSlotsFromEachRowsStart) {
  const BaseRow middle = parentOf(Pinned<L3TunnelTH3ConfigEntryRow>::row());
  const BaseRow outer = parentOf(middle);
  const SubRow view(outer, {kParentFixed, middle.rowLength()});
  L3TunnelTH3ConfigEntryRow nested{BaseRow()};
  view.getColumnStruct(kSlot, nested);
  EXPECT_EQ(nested.contentOffset(), 2 * kParentFixed);
  EXPECT_EQ(nested.entry(), Pinned<L3TunnelTH3ConfigEntryRow>::entry());
  EXPECT_EQ(view.columnHash<L3TunnelTH3ConfigEntryRow>(kSlot),
            Pinned<L3TunnelTH3ConfigEntryRow>::expected.rowHash);
  EXPECT_TRUE(view.columnEqual<L3TunnelTH3ConfigEntryRow>(kSlot, middle, kSlot));
  nested.setColumn(25, kSampleSip, nested.baseRowLength());
  EXPECT_EQ(nested.entry().dip, kSampleSip);
  EXPECT_EQ(nested.entry().sip, kSampleSip);
  EXPECT_TRUE(view.columnEqual<L3TunnelTH3ConfigEntryRow>(kSlot, middle, kSlot));
}

}  // namespace
}  // namespace TolmarHwLib
