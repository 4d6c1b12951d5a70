// The six layouts against literals that the code under test has no part in.
#include <gtest/gtest.h>

#include <sstream>

#include "lumen/LumenDB.h"
#include "tests/rows/FailingAllocator.h"
#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {
namespace {

std::string hex(const Lumen::BaseRow& row, len_t from, len_t to) {
  std::string text;
  for (len_t i = from; i < to; ++i) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", std::to_integer<unsigned>(row.bytes().data[i]));
    text += digits;
  }
  return text;
}

template <class Row>
class EntryRowFormat : public testing::Test {
 protected:
  void expectPinnedBytes(const Row& row) {
    EXPECT_EQ(hex(row, 0, 2), expected.lengthHex);
    EXPECT_EQ(hex(row, 4, row.rowLength()), expected.columnsHex);
    EXPECT_EQ(row.rowType(), Row::protRowType());
  }
  const PinnedRow& expected = Pinned<Row>::expected;
};

using Rows =
    testing::Types<L3TunnelTH3ConfigEntryRow, L3TunnelTH3StatusEntryRow, MyStationTcamTH3ConfigEntryRow,
                   MyStationTcamTH3StatusEntryRow, L3IifTH3ConfigEntryRow, L3IifTH3StatusEntryRow>;
TYPED_TEST_SUITE(EntryRowFormat, Rows);

TYPED_TEST(EntryRowFormat, Fields_StandAtTheirPlaces) {
  const TypeParam row = Pinned<TypeParam>::row();
  this->expectPinnedBytes(row);
  EXPECT_EQ(row.bufferLength(), row.rowLength());
}

TYPED_TEST(EntryRowFormat, Class_TellsNameDescriptorAndLength) {
  const TypeParam row;
  EXPECT_EQ(TypeParam::rowTypeName(), this->expected.name);
  EXPECT_EQ(TypeParam::lmTypeSignature(), this->expected.descriptor);
  EXPECT_EQ(row.baseRowLength(), this->expected.fixedLength);
  EXPECT_EQ(row.rowLength(), this->expected.fixedLength);
  EXPECT_EQ(row.bufferLength(), this->expected.fixedLength);
  EXPECT_EQ(std::vector<len_t>(row.vcd().begin(), row.vcd().end()), this->expected.variableColumns);
  EXPECT_TRUE(row.isFullyDefined());
  EXPECT_FALSE(TypeParam::isBaseRow());
  EXPECT_EQ(sizeof(TypeParam), sizeof(Lumen::BaseRow));
}

TYPED_TEST(EntryRowFormat, Texts_NameEveryColumnInOrder) {
  const TypeParam row = Pinned<TypeParam>::row();
  EXPECT_EQ(row.toString(), this->expected.text);
  EXPECT_EQ(TypeParam::browToString(Lumen::BaseRow(row)), this->expected.text);
  EXPECT_EQ(row.toJson(), this->expected.json);
  std::ostringstream out;
  out << std::hex << std::showbase << row;
  EXPECT_EQ(out.str(), this->expected.text);
}

TYPED_TEST(EntryRowFormat, NullRow_PrintsAsSuchAndHasNoJson) {
  const TypeParam row{Lumen::BaseRow()};
  EXPECT_TRUE(row.isNull());
  EXPECT_EQ(row.toString(), "len: 0, NULL");
  EXPECT_THROW(row.toJson(), Lumen::LmNullRow);
}

TYPED_TEST(EntryRowFormat, Hashes_AreTheBlockStepsOverTheColumns) {
  const TypeParam row = Pinned<TypeParam>::row();
  EXPECT_EQ(row.hash(), this->expected.keyHash);
  EXPECT_EQ(row.rowHash(), this->expected.rowHash);
  EXPECT_EQ(Pinned<TypeParam>::entry().key().hash(), this->expected.keyHash);
}

TYPED_TEST(EntryRowFormat, Entry_BecomesTheRowAndComesBack) {
  const auto entry = Pinned<TypeParam>::entry();
  const TypeParam row = TypeParam::fromEntry(entry);
  this->expectPinnedBytes(row);
  EXPECT_EQ(row.entry(), entry);
  EXPECT_EQ(row.keyRecord(), entry.key());
}

TYPED_TEST(EntryRowFormat, Fill_RewritesAScratchRowInItsBuffer) {
  TypeParam scratch = Pinned<TypeParam>::row();
  const std::byte* const bytes = scratch.bytes().data;
  for (int round = 0; round < 3; ++round) {
    scratch.fill(typename TypeParam::EntryType());
    EXPECT_EQ(scratch.entry(), typename TypeParam::EntryType());
    scratch.fill(Pinned<TypeParam>::entry());
    this->expectPinnedBytes(scratch);
  }
  EXPECT_EQ(scratch.bytes().data, bytes);
}

TYPED_TEST(EntryRowFormat, Fill_LeavesARowThatWasHandedOutAlone) {
  TypeParam scratch = Pinned<TypeParam>::row();
  const TypeParam handedOut = scratch;
  scratch.fill(typename TypeParam::EntryType());
  this->expectPinnedBytes(handedOut);
  TypeParam null{Lumen::BaseRow()};
  null.fill(Pinned<TypeParam>::entry());
  this->expectPinnedBytes(null);
}

TYPED_TEST(EntryRowFormat, FillThatFails_LeavesTheRowAsItWas) {
  using Entry = typename TypeParam::EntryType;
  TypeParam readOnly = Pinned<TypeParam>::row();
  readOnly.readOnlyIs(true);
  EXPECT_THROW(readOnly.fill(Entry()), Lumen::LmPermissionViolation);
  this->expectPinnedBytes(readOnly);
  TypeParam readOnlyNull{Lumen::BaseRow()};
  readOnlyNull.readOnlyIs(true);
  EXPECT_THROW(readOnlyNull.fill(Entry()), Lumen::LmPermissionViolation);

  Lumen::FailingAllocator allocator;
  TypeParam shared = Pinned<TypeParam>::row();
  const TypeParam sharer = shared;
  TypeParam small;
  allocator.allow(0);
  EXPECT_THROW(shared.fill(Entry()), Cairn::MemoryResourceException);
  this->expectPinnedBytes(shared);
  if (small.vcd().empty()) return;
  EXPECT_THROW(small.fill(Pinned<TypeParam>::entry()), Cairn::MemoryResourceException);
  EXPECT_EQ(small.entry(), Entry());
}

TYPED_TEST(EntryRowFormat, Metadata_TellsTheSameColumns) {
  ASSERT_NE(TypeParam::protRowType(), 0);
  const Lumen::LmClass* const known = Lumen::LumenDB::lmClass(this->expected.name);
  ASSERT_NE(known, nullptr);
  EXPECT_EQ(known->oid(), TypeParam::protRowType());
  EXPECT_EQ(known->descriptor(), this->expected.descriptor);
  EXPECT_EQ(known->fixedLength(), this->expected.fixedLength);
  EXPECT_EQ(known->variableColumns(), this->expected.variableColumns);
}

}  // namespace
}  // namespace TolmarHwLib
