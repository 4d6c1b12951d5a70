// Conversions between generic rows and row classes, key probes, comparison over all columns.
#include <gtest/gtest.h>

#include "lumen/LumenDB.h"
#include "tests/quill/AllocationCount.h"
#include "tests/rows/FailingAllocator.h"
#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {

namespace {

/// Its row class can be looked up under another name each time.
struct RenamedEntry : L3IifTH3Key {};

}  // namespace

template <>
struct RowSchema<RenamedEntry> {
  using Key = L3IifTH3Key;
  static inline std::string_view rowTypeName;
  static constexpr std::tuple<> head{};
  static constexpr auto key = RowSchema<Key>::columns;
  static constexpr std::tuple<> data{};
};

namespace {

class RenamedRow final : public EntryRow<RenamedRow, RenamedEntry> {
 public:
  using EntryRow::EntryRow;
};

using Lumen::BaseRow;

template <class Row>
class EntryRowOf : public testing::Test {};
using Rows =
    testing::Types<L3TunnelTH3ConfigEntryRow, L3TunnelTH3StatusEntryRow, MyStationTcamTH3ConfigEntryRow,
                   MyStationTcamTH3StatusEntryRow, L3IifTH3ConfigEntryRow, L3IifTH3StatusEntryRow>;
TYPED_TEST_SUITE(EntryRowOf, Rows);

TYPED_TEST(EntryRowOf, Conversions_ShareOrTakeTheBuffer) {
  BaseRow generic = Pinned<TypeParam>::row();
  TypeParam copied(generic);
  EXPECT_EQ(generic.bufferUseCount(), 2u);
  TypeParam assigned;
  assigned = generic;
  EXPECT_EQ(generic.bufferUseCount(), 3u);
  TypeParam moved(std::move(generic));
  // NOLINTNEXTLINE(bugprone-use-after-move): a moved-from row is a null row
  EXPECT_TRUE(generic.isNull());
  assigned = BaseRow();
  EXPECT_TRUE(assigned.isNull());
  assigned = std::move(static_cast<BaseRow&>(copied));
  EXPECT_EQ(assigned.entry(), Pinned<TypeParam>::entry());
  EXPECT_EQ(moved.bufferUseCount(), 2u);
}

TYPED_TEST(EntryRowOf, Key_SetsTheKeyColumnsAlone) {
  typename TypeParam::EntryType expected;
  static_cast<typename TypeParam::KeyRecord&>(expected) = Pinned<TypeParam>::entry().key();
  const TypeParam probe =
      std::apply([&](const auto&... column) { return TypeParam::key(expected.*column.member...); },
                 RowSchema<typename TypeParam::EntryType>::key);
  EXPECT_EQ(probe.entry(), expected);
  EXPECT_EQ(probe.rowType(), TypeParam::protRowType());
  EXPECT_EQ(probe, Pinned<TypeParam>::row());
  EXPECT_FALSE(probe.rowEqual(Pinned<TypeParam>::row()));
}

TYPED_TEST(EntryRowOf, EveryColumnCounts_InEqualityOrderAndHash) {
  const TypeParam row = Pinned<TypeParam>::row();
  const auto offsets = RowLayout<typename TypeParam::EntryType>::kOffsets;
  const auto isVariable = [&](len_t offset) {
    return std::find(row.vcd().begin(), row.vcd().end(), offset) != row.vcd().end();
  };
  for (std::size_t i = 0; i + 1 < offsets.size(); ++i) {
    TypeParam other = row.clone();
    if (isVariable(offsets[i])) {
      other.setColumn(offsets[i], IpGenAddr::ipv4({192, 0, 2, 77}), row.baseRowLength());
    } else {
      const auto byte = std::to_integer<std::uint8_t>(row.bytes().data[offsets[i]]);
      other.setColumn(offsets[i], static_cast<std::uint8_t>(byte ^ 1), row.baseRowLength());
    }
    EXPECT_FALSE(row.rowEqual(other)) << offsets[i];
    EXPECT_NE(row.rowHash(), other.rowHash()) << offsets[i];
    EXPECT_NE(row.rowLess(other), other.rowLess(row)) << offsets[i];
  }
  EXPECT_TRUE(row.rowEqual(row.clone()));
  EXPECT_FALSE(row.rowLess(row.clone()));
}

TYPED_TEST(EntryRowOf, ClearRow_KeepsClassAndLeavesNullRowsAlone) {
  TypeParam row = Pinned<TypeParam>::row();
  const TypeParam sharer = row;
  row.clearRow();
  EXPECT_EQ(row.entry(), typename TypeParam::EntryType());
  EXPECT_EQ(row.rowType(), TypeParam::protRowType());
  EXPECT_EQ(row.rowLength(), row.baseRowLength());
  EXPECT_EQ(sharer.entry(), Pinned<TypeParam>::entry());
  TypeParam null{BaseRow()};
  null.clearRow();
  EXPECT_TRUE(null.isNull());
}

TYPED_TEST(EntryRowOf, Clone_IsOfTheClassWhateverTypeWasWritten) {
  TypeParam row = Pinned<TypeParam>::row();
  row.rowTypeIs(99);
  const TypeParam clone = row.clone();
  EXPECT_EQ(clone.rowType(), 99);
  EXPECT_EQ(clone.entry(), Pinned<TypeParam>::entry());
  row.clear(row.baseRowLength());
  EXPECT_EQ(row.clone().entry(), typename TypeParam::EntryType());
}

// A copy would have room for the header alone.
TYPED_TEST(EntryRowOf, RowClearedToLessThanItsClass_IsNotCopied) {
  TypeParam row;
  row.clear(4);
  EXPECT_EQ(row.rowLength(), 4);
  TypeParam sharer = row;
  EXPECT_THROW(sharer.rowTypeIs(5), Cairn::AssertionException);
  EXPECT_THROW(sharer.setColumn(4, true, 4), Cairn::AssertionException);
  EXPECT_THROW(row.clone(), Cairn::AssertionException);
  EXPECT_EQ(sharer.bufferLength(), row.baseRowLength());
  EXPECT_EQ(row.bufferUseCount(), 2u);
  sharer.readOnlyIs(true);
  EXPECT_THROW(sharer.rowTypeIs(5), Lumen::LmPermissionViolation);
  sharer = BaseRow();
  row.rowTypeIs(5);
  EXPECT_EQ(row.rowType(), 5);
}

TYPED_TEST(EntryRowOf, NewRows_AreCountedByTheirBuffers) {
  const auto entry = Pinned<TypeParam>::entry();
  const Lumen::BaseRowCounters before = Lumen::baseRowCounters;
  const TypeParam zero;
  const TypeParam full = TypeParam::fromEntry(entry);
  const TypeParam probe =
      std::apply([&](const auto&... column) { return TypeParam::key(entry.*column.member...); },
                 RowSchema<typename TypeParam::EntryType>::key);
  const Lumen::BaseRowCounters& after = Lumen::baseRowCounters;
  const std::uint64_t roomy = zero.vcd().empty() ? 0 : 2;
  EXPECT_EQ(after.sized - before.sized, 3 - roomy);
  EXPECT_EQ(after.sizedWithBuffer - before.sizedWithBuffer, roomy);
  EXPECT_EQ(after.moved + after.copied + after.defaulted, before.moved + before.copied + before.defaulted);
}

TYPED_TEST(EntryRowOf, NullRow_FailsEveryComparison) {
  const TypeParam null{BaseRow()};
  const TypeParam row = Pinned<TypeParam>::row();
  EXPECT_THROW(null.hash(), Lumen::LmNullRow);
  EXPECT_THROW(null.rowHash(), Lumen::LmNullRow);
  EXPECT_THROW(null.rowEqual(row), Lumen::LmNullRow);
  EXPECT_THROW(row.rowEqual(null), Lumen::LmNullRow);
  EXPECT_THROW(null.rowLess(row), Lumen::LmNullRow);
  EXPECT_THROW(row.rowLess(null), Lumen::LmNullRow);
  EXPECT_THROW(static_cast<void>(null == row), Lumen::LmNullRow);
  EXPECT_THROW(static_cast<void>(row < null), Lumen::LmNullRow);
  EXPECT_THROW(null.entry(), Lumen::LmNullRow);
  EXPECT_THROW(null.clone(), Lumen::LmNullRow);
}

TYPED_TEST(EntryRowOf, ReadsHashesAndComparisons_AllocateNothing) {
  const TypeParam row = Pinned<TypeParam>::row();
  const TypeParam other = row.clone();
  const Lumen::FailingAllocator allocator;
  const std::size_t before = allocationCount();
  EXPECT_EQ(row.entry(), other.entry());
  EXPECT_EQ(row.hash(), other.hash());
  EXPECT_EQ(row.rowHash(), other.rowHash());
  EXPECT_TRUE(row == other && row.rowEqual(other) && !(row < other) && !row.rowLess(other));
  EXPECT_EQ(TypeParam(BaseRow(row)), other);
  EXPECT_EQ(allocator.allocations() + allocationCount() - before, 0u);
}

TYPED_TEST(EntryRowOf, SameBytesUnderAnotherType_AreNotEqual) {
  const TypeParam row = Pinned<TypeParam>::row();
  BaseRow retyped = row.clone();
  retyped.rowTypeIs(static_cast<std::uint16_t>(TypeParam::protRowType() + 1));
  EXPECT_FALSE(row.rowEqual(retyped));
  EXPECT_THROW(row.rowLess(retyped), Lumen::LmBadCast);
  retyped.rowTypeIs(TypeParam::protRowType());
  EXPECT_TRUE(row.rowEqual(retyped));
}

TEST(EntryRow, RowOfAnotherClass_IsNotEqual) {
  const L3IifTH3StatusEntryRow status(1, 2, 3, false, 4);
  const L3IifTH3ConfigEntryRow config;
  EXPECT_FALSE(status.rowEqual(config));
  EXPECT_FALSE(config.rowEqual(status));
  BaseRow retyped = status.clone();
  retyped.rowTypeIs(L3IifTH3ConfigEntryRow::protRowType());
  EXPECT_THROW(config.rowEqual(retyped), Cairn::AssertionException);
  EXPECT_THROW(L3IifTH3ConfigEntryRow{retyped}, Cairn::AssertionException);
}

TEST(EntryRow, RowTypeIsLookedUpOnce_AndAgainAfterReset) {
  RowSchema<RenamedEntry>::rowTypeName = L3IifTH3ConfigEntryRow::rowTypeName();
  EXPECT_EQ(RenamedRow::protRowType(), L3IifTH3ConfigEntryRow::protRowType());
  RowSchema<RenamedEntry>::rowTypeName = L3IifTH3StatusEntryRow::rowTypeName();
  EXPECT_EQ(RenamedRow().rowType(), L3IifTH3ConfigEntryRow::protRowType());
  RenamedRow::reset();
  EXPECT_EQ(RenamedRow().rowType(), L3IifTH3StatusEntryRow::protRowType());
}

TEST(EntryRow, ClassesHaveTypesOfTheirOwn) {
  const std::uint16_t types[] = {
      L3TunnelTH3ConfigEntryRow::protRowType(),      L3TunnelTH3StatusEntryRow::protRowType(),
      MyStationTcamTH3ConfigEntryRow::protRowType(), MyStationTcamTH3StatusEntryRow::protRowType(),
      L3IifTH3ConfigEntryRow::protRowType(),         L3IifTH3StatusEntryRow::protRowType()};
  std::uint64_t seen = 0;
  for (const std::uint16_t type : types) {
    ASSERT_GE(type, 1);
    ASSERT_LE(type, std::size(types));
    seen |= std::uint64_t{1} << type;
  }
  EXPECT_EQ(seen, 0b1111110u);
}

TEST(EntryRow, BoolByteFromOutside_ReadsTrueAndDiffersFromOne) {
  const L3IifTH3StatusEntryRow one(0, 0, 0, true, 0);
  L3IifTH3StatusEntryRow two = one.clone();
  two.setColumn(22, std::uint8_t{2}, 31);
  EXPECT_TRUE(two.entry().deleted);
  EXPECT_FALSE(one.rowEqual(two));
  EXPECT_TRUE(one.rowLess(two));
  EXPECT_EQ(two.columnHash<bool>(22), 2u);
}

}  // namespace
}  // namespace TolmarHwLib
