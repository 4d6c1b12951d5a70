// What holds of each of the six row classes: layout against literals, comparisons against the records, and
// life as a column of another row.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iomanip>
#include <sstream>

#include "P4RuntimeTolmar/RecordCodec.h"
#include "lumen/LumenDB.h"
#include "lumen/RowText.h"
#include "tests/AllocationCount.h"
#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {
namespace {

using Lumen::BaseRow;

template <class Byte>
std::string hex(const Byte* bytes, std::size_t count) {
  std::ostringstream text;
  text << std::hex << std::setfill('0');
  for (std::size_t i = 0; i < count; ++i) text << std::setw(2) << static_cast<int>(bytes[i]);
  return text.str();
}

/// The fields of `columns`, in their order.
template <class Record, class Columns>
auto fieldsOf(const Record& record, const Columns& columns) {
  return std::apply([&](const auto&... column) { return std::tie(record.*column.member...); }, columns);
}

template <class Row>
class EntryRowFormat : public testing::Test {};
TYPED_TEST_SUITE(EntryRowFormat, EntryRows);

TYPED_TEST(EntryRowFormat, Fields_StandAtTheirPlacesAndComeBack) {
  const auto& pinned = kPinned<TypeParam>;
  auto& count = pinned.numbers.variableColumns.empty() ? Lumen::baseRowCounters.sized
                                                       : Lumen::baseRowCounters.sizedWithBuffer;
  const std::uint64_t before = count;
  const auto row = TypeParam::fromEntry(pinned.entry);
  EXPECT_EQ(count, before + 1);
  EXPECT_EQ(hex(row.bytes().data, 2) + hex(row.bytes().data + 4, row.rowLength() - 4u), pinned.hex);
  EXPECT_EQ(row.rowType(), TypeParam::protRowType());
  EXPECT_EQ(row.bufferLength(), row.rowLength());
  EXPECT_EQ(row.entry(), pinned.entry);
  EXPECT_EQ(TypeParam(BaseRow(row)).bytes().data, row.bytes().data) << "conversions share the buffer";
  EXPECT_EQ(row.keyRecord(), pinned.entry.key());
  EXPECT_EQ(row.rowHash(), pinned.numbers.rowHash);
  EXPECT_EQ(row.hash(), pinned.numbers.keyHash);
  EXPECT_EQ(Lumen::rowText(row), row.toString());
  typename TypeParam::EntryType keyOnly;
  static_cast<typename TypeParam::KeyRecord&>(keyOnly) = pinned.entry.key();
  const TypeParam probe =
      std::apply(TypeParam::key, fieldsOf(keyOnly, RowSchema<typename TypeParam::KeyRecord>::columns));
  EXPECT_EQ(probe.entry(), keyOnly);
  EXPECT_EQ(probe.rowType(), TypeParam::protRowType());
  EXPECT_EQ(probe.bufferLength(), row.bufferLength());
  // Each name is that of its own field: the columns are in the order in which the fields are declared.
  const void* last = nullptr;
  forEachColumn(RowLayout<typename TypeParam::EntryType>::kColumns, [&](const auto& column) {
    const void* const field = &(pinned.entry.*column.member);
    EXPECT_LT(std::exchange(last, field), field) << column.name;
  });
}

TYPED_TEST(EntryRowFormat, Class_HasItsNameDescriptorAndLength) {
  const auto& pinned = kPinned<TypeParam>;
  const TypeParam row;
  EXPECT_EQ(TypeParam::rowTypeName(), pinned.name);
  EXPECT_EQ(TypeParam::lmTypeSignature(), pinned.descriptor);
  EXPECT_EQ(row.baseRowLength(), pinned.numbers.fixedLength);
  EXPECT_EQ(row.rowLength(), pinned.numbers.fixedLength);
  EXPECT_EQ(row.entry(), typename TypeParam::EntryType());
  EXPECT_EQ(std::vector(row.vcd().begin(), row.vcd().end()), pinned.numbers.variableColumns);
  EXPECT_TRUE(row.isFullyDefined() && !TypeParam::isBaseRow());
  EXPECT_EQ(sizeof row, sizeof(BaseRow));
  EXPECT_EQ(Lumen::LumenDB::lmClass(pinned.name)->oid(), TypeParam::protRowType());
  EXPECT_EQ(Lumen::LumenDB::lmClass(pinned.name)->descriptor(), pinned.descriptor);
}

/// The sample row, and copies of it with one byte of a number or one address changed.
template <class Row>
std::vector<Row> changedRows() {
  const Row row = pinnedRow<Row>();
  std::vector<Row> rows{row};
  for (len_t at = 4; at < row.baseRowLength(); ++at) {
    if (std::ranges::count(row.vcd(), at) == 0) {
      const int byte = std::to_integer<int>(row.bytes().data[at]) ^ 0x81;
      rows.emplace_back(row).setColumn(at, static_cast<std::uint8_t>(byte), 4);
      continue;
    }
    for (const IpGenAddr& value : {IpGenAddr(), IpGenAddr::ipv4({192, 0, 2, 77}), IpGenAddr::ipv6({0, 1})}) {
      rows.emplace_back(row).setColumn(at, value, 4);
    }
    at += sizeof(Lumen::VarSlot) - 1;
  }
  return rows;
}

TYPED_TEST(EntryRowFormat, Comparisons_AreThoseOfTheRecordsAndAllocateNothing) {
  const std::vector<TypeParam> rows = changedRows<TypeParam>();
  Lumen::RowOpsGenerator& generator = *Lumen::rowOpsGenerator(kPinned<TypeParam>.name);
  std::vector<std::shared_ptr<Lumen::RowOpsBase>> all;
  generator(all);
  const auto ops = all.at(0);
  EXPECT_TRUE(all.size() == 1 && ops != generator(0) && generator(1) == nullptr);
  EXPECT_TRUE(ops->unique() && !ops->ordered());
  EXPECT_TRUE(ops->index() == 0 && ops->getTotalInstructionsExecuted() == 0);
  EXPECT_TRUE(ops->keyHash(BaseRow()) == 0 && ops->rowHash(BaseRow()) == 0);
  constexpr auto columns = RowLayout<typename TypeParam::EntryType>::kColumns;
  const std::size_t before = allocationCount();
  for (const TypeParam& a : rows) {
    const auto entry = a.entry();
    ASSERT_TRUE(a.hash() == entry.key().hash() && ops->keyHash(a) == a.hash());
    ASSERT_EQ(ops->rowHash(a), a.rowHash());
    for (const TypeParam& b : rows) {
      const auto other = b.entry();
      ASSERT_TRUE((a == b) == (entry.key() == other.key()) && ops->keyEquals(a, b) == (a == b));
      ASSERT_TRUE((a < b) == (entry.key() < other.key()) && ops->keyLess(a, b) == (a < b));
      ASSERT_TRUE(a.rowEqual(b) == (entry == other) && ops->rowEquals(a, b) == a.rowEqual(b));
      ASSERT_TRUE(a.rowLess(b) == (fieldsOf(entry, columns) < fieldsOf(other, columns)) &&
                  ops->rowLess(a, b) == a.rowLess(b));
    }
  }
  EXPECT_EQ(allocationCount(), before);
}

template <class A, class B>
concept Equal = requires(const A& a, const B& b) {
  a == b;
};
static_assert(Equal<L3IifTH3ConfigEntry, L3IifTH3ConfigEntry>);
static_assert(!Equal<L3IifTH3ConfigEntry, L3IifTH3StatusEntry>);
static_assert(!Equal<L3IifTH3ConfigEntry, L3IifTH3Key> && !Equal<L3IifTH3Key, L3IifTH3ConfigEntry>);
static_assert(!std::totally_ordered<L3IifTH3ConfigEntry>, "an entry does not pass for its key");

TYPED_TEST(EntryRowFormat, Codec_StoresEveryFieldInFixedSize) {
  using Codec = Vesta::Codec<typename TypeParam::EntryType>;
  const auto& pinned = kPinned<TypeParam>;
  EXPECT_EQ(Codec::size, pinned.numbers.storedSize);
  EXPECT_EQ(Vesta::Codec<typename TypeParam::KeyRecord>::size, pinned.numbers.storedKeySize);
  std::array<std::uint8_t, Codec::size> bytes;
  bytes.fill(0xee);
  Codec::encode(pinned.entry, bytes.data());
  typename TypeParam::EntryType back;
  Codec::decode(bytes.data(), back);
  EXPECT_EQ(back, pinned.entry);
  if constexpr (std::same_as<TypeParam, L3TunnelTH3StatusEntryRow>) {
    // Widest integers first, little-endian; addresses last, their unused bytes zero.
    EXPECT_EQ(hex(bytes.data(), bytes.size()),
              "0807060504030201181716151413121122213231424101110"
              "1c000020100000000000000000000000002"
              "20010db8000000000000000000000005");
    bytes.fill(0xff);
    Codec::decode(bytes.data(), back);
    Codec::encode(back, bytes.data());
    EXPECT_EQ(hex(bytes.data() + 24, 2), "0000") << "no family: unset, and all unset are stored alike";
  }
}

constexpr len_t kSlot = 4;
constexpr len_t kParentFixed = 12;

/// A row of 12 bytes of fixed data: a slot at 4 for `nested` and four more bytes.
BaseRow parentOf(const BaseRow& nested) {
  const len_t length = nested.rowLength();
  BaseRow parent(kParentFixed, static_cast<len_t>(kParentFixed + length));
  parent.setColumn<len_t>(0, parent.bufferLength(), 4);
  parent.setColumn(kSlot, kParentFixed, 4);
  parent.setColumn<len_t>(kSlot + 2, length, 4);
  for (len_t i = 0; i < length; ++i) {
    parent.setColumn(kParentFixed + i, std::to_integer<std::uint8_t>(nested.bytes().data[i]), 4);
  }
  return parent;
}

// Two levels deep: slots, those of the tunnels' addresses among them, count from the start of their own row.
TYPED_TEST(EntryRowFormat, RowWithinRows_IsAViewThatIsCopiedOnWriting) {
  const BaseRow middle = parentOf(pinnedRow<TypeParam>());
  Lumen::SubRow parent(parentOf(middle), {kParentFixed, middle.rowLength()});
  TypeParam nested;
  parent.getColumnStruct(kSlot, nested);
  EXPECT_EQ(nested.bytes().data, parent.bytes().data + kParentFixed);
  EXPECT_TRUE(nested.contentOffset() == 2 * kParentFixed && nested.sharedContents());
  EXPECT_EQ(nested.entry(), kPinned<TypeParam>.entry);
  const TypeParam second = nested;
  nested.setColumn(4, ~std::uint64_t{0}, kSlot);
  EXPECT_TRUE(nested.contentOffset() == 0 && !nested.sharedContents());
  EXPECT_TRUE(nested == second && second.rowLess(nested));

  const BaseRow other = parentOf(nested);
  // A parent's row length need not cover the nested row, and its read-only flag does not matter.
  BaseRow uncovered = parentOf(nested);
  uncovered.setColumn(0, kParentFixed, kParentFixed);
  uncovered.readOnlyIs(true);
  EXPECT_EQ(parent.template columnHash<TypeParam>(kSlot), kPinned<TypeParam>.numbers.rowHash);
  EXPECT_TRUE(parent.template columnEqual<TypeParam>(kSlot, middle, kSlot));
  EXPECT_FALSE(parent.template columnEqual<TypeParam>(kSlot, other, kSlot));
  EXPECT_TRUE(parent.template columnLess<TypeParam>(kSlot, uncovered, kSlot));
  EXPECT_FALSE(other.columnLess<TypeParam>(kSlot, parent, kSlot));
  uncovered.getColumnStruct(kSlot, nested);
  EXPECT_TRUE(nested.sharedContents() && !nested.readOnly());
  nested.rowTypeIs(0);
  EXPECT_TRUE(uncovered.columnEqual<TypeParam>(kSlot, other, kSlot));
  BaseRow(12).getColumnStruct(kSlot, nested);
  EXPECT_TRUE(nested.isNull());
}

}  // namespace
}  // namespace TolmarHwLib
