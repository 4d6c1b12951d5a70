// Every failure of the row library: its kind, its text, and that the row is as it was.
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <vector>

#include "cairn/Assert.h"
#include "rows/BaseRow.h"
#include "tests/rows/FailingAllocator.h"
#include "tests/rows/PinnedRows.h"
#include "tests/rows/Snapshot.h"

namespace Lumen {
namespace {

using TolmarHwLib::kSampleDip;
using TolmarHwLib::kSampleSip;
using TolmarHwLib::L3IifTH3StatusEntryRow;

template <class Kind>
bool is(const std::exception& error) {
  return dynamic_cast<const Kind*>(&error) != nullptr;
}
using IsKind = bool (*)(const std::exception&);
constexpr IsKind kNullRow = &is<LmNullRow>;
constexpr IsKind kPermission = &is<LmPermissionViolation>;
constexpr IsKind kMemory = &is<Cairn::MemoryResourceException>;
constexpr IsKind kAssertion = &is<Cairn::AssertionException>;
constexpr IsKind kClearAssertion = [](const std::exception& error) {
  const auto* const assertion = dynamic_cast<const Cairn::AssertionException*>(&error);
  return assertion != nullptr && assertion->operation() == "clear";
};
constexpr IsKind kNotSupported = &is<LmNotSupported>;

/// Two bytes of row length, two of type, then a slot at 4, zeroes, and room behind the row.
BaseRow plainRow() {
  BaseRow row(20, 24);
  row.rowTypeIs(7);
  row.setColumn<std::uint64_t>(12, 0x1112131415161718, 20);
  return row;
}
BaseRow readOnly(BaseRow row) {
  row.readOnlyIs(true);
  return row;
}
BaseRow readOnlyRow() { return readOnly(plainRow()); }
BaseRow nullRow() { return BaseRow(); }
BaseRow readOnlyNullRow() { return readOnly(BaseRow()); }
BaseRow rowWithSlot(VarSlot slot) {
  BaseRow row = plainRow();
  row.setColumn<std::uint32_t>(4, slot.offset | std::uint32_t{slot.lengthWord} << 16, 20);
  return row;
}
BaseRow nestedRow() {
  BaseRow row = rowWithSlot({8, 12});
  row.setColumn<len_t>(8, 12, 20);
  return SubRow(row, {8, 12});
}

enum class Sharing { none, shared };
enum class After { untouched, copied };

struct Case {
  const char* name;
  std::function<BaseRow()> make;
  Sharing sharing;
  std::function<void(BaseRow&)> act;
  IsKind isKind;
  const char* text;
  After after = After::untouched;
  std::optional<unsigned> allocationsAllowed = std::nullopt;
};

void writeByte(BaseRow& row) { row.setColumn<std::uint8_t>(9, 1, 20); }
void writeAddress(BaseRow& row) { row.setColumn(4, kSampleDip, 20); }
template <class T>
void read(BaseRow& row) {
  T value;
  row.getColumn(4, value);
}

const char kNullText[] = "null row";
const char kReadOnlyText[] = "Attempting to modify read-only row";
const char kLongerText[] = "setting fixed data length forBaseRow longer than buffer size";
const char kHeaderText[] = "len >= lm_contentOffset";

const Case kCases[] = {
    {"null length", nullRow, Sharing::none, [](BaseRow& r) { r.rowLength(); }, kNullRow, kNullText},
    {"null type", nullRow, Sharing::none, [](BaseRow& r) { r.rowType(); }, kNullRow, kNullText},
    {"null set type", nullRow, Sharing::none, [](BaseRow& r) { r.rowTypeIs(1); }, kNullRow, kNullText},
    {"null write", nullRow, Sharing::none, writeByte, kNullRow, kNullText},
    {"null write address", nullRow, Sharing::none, writeAddress, kNullRow, kNullText},
    {"null clear", nullRow, Sharing::none, [](BaseRow& r) { r.clear(20); }, kNullRow, kNullText},
    {"null clone", nullRow, Sharing::none, [](BaseRow& r) { r.clone(); }, kNullRow, kNullText},
    {"null read", nullRow, Sharing::none, read<std::uint16_t>, kNullRow, kNullText},
    {"null read address", nullRow, Sharing::none, read<IpGenAddr>, kNullRow, kNullText},
    {"null read struct", nullRow, Sharing::none,
     [](BaseRow& r) {
       L3IifTH3StatusEntryRow out;
       r.getColumnStruct(4, out);
     },
     kNullRow, kNullText},
    {"null hash", nullRow, Sharing::none, [](BaseRow& r) { r.columnHash<bool>(4); }, kNullRow, kNullText},
    {"null equal", nullRow, Sharing::none, [](BaseRow& r) { r.columnEqual<bool>(4, plainRow(), 4); },
     kNullRow, kNullText},
    {"null less", plainRow, Sharing::none, [](BaseRow& r) { r.columnLess<bool>(4, nullRow(), 4); }, kNullRow,
     kNullText},
    {"null rows equal", plainRow, Sharing::none, [](BaseRow& r) { r.rowEqual(nullRow()); }, kNullRow,
     kNullText},
    {"read-only null write", readOnlyNullRow, Sharing::none, writeByte, kPermission, kReadOnlyText},
    {"read-only null set type", readOnlyNullRow, Sharing::none, [](BaseRow& r) { r.rowTypeIs(1); },
     kPermission, kReadOnlyText},
    {"read-only null clear", readOnlyNullRow, Sharing::none, [](BaseRow& r) { r.clear(20); }, kNullRow,
     kNullText},

    {"read-only write", readOnlyRow, Sharing::none, writeByte, kPermission, kReadOnlyText},
    {"read-only write address", readOnlyRow, Sharing::none, writeAddress, kPermission, kReadOnlyText},
    {"read-only set type", readOnlyRow, Sharing::none, [](BaseRow& r) { r.rowTypeIs(1); }, kPermission,
     kReadOnlyText},
    {"read-only clear", readOnlyRow, Sharing::none, [](BaseRow& r) { r.clear(20); }, kPermission,
     kReadOnlyText},
    {"read-only shared write", readOnlyRow, Sharing::shared, writeByte, kPermission, kReadOnlyText,
     After::copied},
    {"read-only shared set type", readOnlyRow, Sharing::shared, [](BaseRow& r) { r.rowTypeIs(1); },
     kPermission, kReadOnlyText, After::copied},
    {"read-only shared clear", readOnlyRow, Sharing::shared, [](BaseRow& r) { r.clear(20); }, kPermission,
     kReadOnlyText},

    {"copy on write refused", plainRow, Sharing::shared, writeByte, kMemory,
     "malloc() failed requested length: 20", After::untouched, 0},
    {"copy for a type refused", plainRow, Sharing::shared, [](BaseRow& r) { r.rowTypeIs(1); }, kMemory,
     "malloc() failed requested length: 20", After::untouched, 0},
    {"copy of a nested row refused", nestedRow, Sharing::none, [](BaseRow& r) { r.setColumn(4, true, 12); },
     kMemory, "malloc() failed requested length: 12", After::untouched, 0},
    {"read-only copy refused", readOnlyRow, Sharing::shared, writeByte, kMemory,
     "malloc() failed requested length: 20", After::untouched, 0},
    {"clone refused", plainRow, Sharing::none, [](BaseRow& r) { r.clone(); }, kMemory,
     "malloc() failed requested length: 20", After::untouched, 0},
    {"larger buffer refused", plainRow, Sharing::none, writeAddress, kMemory,
     "malloc() failed requested length: 36", After::untouched, 0},
    {"larger buffer refused after copy", plainRow, Sharing::shared, writeAddress, kMemory,
     "malloc() failed requested length: 36", After::copied, 1},
    {"clear of a shared row refused", plainRow, Sharing::shared, [](BaseRow& r) { r.clear(20); }, kMemory,
     "calloc() failed requested length: 24", After::untouched, 0},
    {"new row refused", plainRow, Sharing::none, [](BaseRow&) { BaseRow row(43); }, kMemory,
     "calloc() failed requested length: 43", After::untouched, 0},
    {"new row with room refused", plainRow, Sharing::none, [](BaseRow&) { BaseRow row(43, 59); }, kMemory,
     "calloc() failed requested length: 59", After::untouched, 0},
    {"new short row refused", plainRow, Sharing::none, [](BaseRow&) { BaseRow row(3); }, kMemory,
     "calloc() failed requested length: 3", After::untouched, 0},

    {"clear beyond", plainRow, Sharing::none, [](BaseRow& r) { r.clear(25); }, kClearAssertion, kLongerText},
    {"clear beyond, shared", plainRow, Sharing::shared, [](BaseRow& r) { r.clear(25); }, kClearAssertion,
     kLongerText},
    {"clear beyond, read-only", readOnlyRow, Sharing::none, [](BaseRow& r) { r.clear(25); }, kClearAssertion,
     kLongerText},
    {"clear below the header", plainRow, Sharing::none, [](BaseRow& r) { r.clear(3); }, kAssertion,
     kHeaderText},
    {"clear to nothing, shared", plainRow, Sharing::shared, [](BaseRow& r) { r.clear(0); }, kAssertion,
     kHeaderText},
    {"new row below the header", plainRow, Sharing::none, [](BaseRow&) { BaseRow row(3); }, kAssertion,
     kHeaderText},
    {"new empty row", plainRow, Sharing::none, [](BaseRow&) { BaseRow row(0); }, kAssertion, kHeaderText,
     After::untouched, 0},
    {"new row in a shorter buffer", plainRow, Sharing::none, [](BaseRow&) { BaseRow row(20, 19); },
     kAssertion, "bufLen >= len"},
    {"bytes below the header", plainRow, Sharing::none,
     [](BaseRow&) { BaseRow::fromBytes(std::vector<std::byte>(3)); }, kAssertion, kHeaderText},
    {"bytes beyond a row", plainRow, Sharing::none,
     [](BaseRow&) { BaseRow::fromBytes(std::vector<std::byte>(65536)); }, kAssertion, "len <= 65535"},
    {"write without length", plainRow, Sharing::shared, [](BaseRow& r) { r.setColumn(9, true, 0); },
     kAssertion, "fdLen != 0"},
    {"null write without length", readOnlyNullRow, Sharing::none, [](BaseRow& r) { r.setColumn(9, true, 0); },
     kAssertion, "fdLen != 0"},
    {"write beyond a shared read-only row", readOnlyRow, Sharing::shared,
     [](BaseRow& r) { r.setColumn(20, true, 21); }, kPermission, kReadOnlyText},
    {"write beyond a shared row", plainRow, Sharing::shared, [](BaseRow& r) { r.setColumn(20, true, 21); },
     kAssertion, "fdLen <= row length"},

    {"generic hash", plainRow, Sharing::none, [](BaseRow& r) { r.rowHash(); }, kNotSupported,
     "rowHash not supported on generic base rows"},
    {"generic order", plainRow, Sharing::none, [](BaseRow& r) { r.rowLess(r); }, kNotSupported,
     "rowLess not supported on generic base rows"},
    {"generic columns", plainRow, Sharing::none, [](BaseRow& r) { r.vcd(); }, kAssertion, "0"},
    {"generic fixed length", plainRow, Sharing::none, [](BaseRow& r) { r.baseRowLength(); }, kAssertion, "0"},
    {"generic clear", plainRow, Sharing::none, [](BaseRow& r) { r.clearRow(); }, kAssertion, "0"},

    {"slot beyond the row",
     [] {
       return rowWithSlot({17, 4});
     },
     Sharing::none, read<IpGenAddr>, kAssertion, "address slot inside the row"},
    {"slot whose end wraps",
     [] {
       return rowWithSlot({0xfff0, 16});
     },
     Sharing::none, read<IpGenAddr>, kAssertion, "address slot inside the row"},
    {"nested row beyond the row",
     [] {
       return rowWithSlot({13, 8});
     },
     Sharing::none,
     [](BaseRow& r) {
       SubRow nested(r, {13, 8});
     },
     kAssertion, "nested row inside the row"},
    {"nested row longer than its slot",
     [] {
       return rowWithSlot({12, 8});
     },
     Sharing::none,
     [](BaseRow& r) {
       SubRow nested(r, {12, 8});
     },
     kAssertion, "nested row inside its slot"},
    {"nested row of no header", plainRow, Sharing::none,
     [](BaseRow& r) {
       SubRow nested(r, {16, 3});
     },
     kAssertion, "nested row inside its slot"},
};

TEST(RowFailure, KindAndTextAreAsTold_AndTheRowIsAsItWas) {
  for (const Case& each : kCases) {
    SCOPED_TRACE(each.name);
    FailingAllocator allocator;
    BaseRow row = each.make();
    const std::optional<BaseRow> sharer = each.sharing == Sharing::shared ? std::optional(row) : std::nullopt;
    const Snapshot before(row);
    if (each.allocationsAllowed) allocator.allow(*each.allocationsAllowed);
    try {
      each.act(row);
      ADD_FAILURE() << "did not fail";
    } catch (const std::exception& error) {
      EXPECT_TRUE(each.isKind(error));
      EXPECT_STREQ(error.what(), each.text);
    }
    if (each.after == After::untouched) {
      EXPECT_EQ(Snapshot(row), before);
    } else {
      EXPECT_NE(Snapshot(row).place, before.place);
      EXPECT_EQ(row.bufferLength(), row.rowLength());
      EXPECT_TRUE(row.rowEqual(*sharer));
      EXPECT_EQ(row.readOnly(), before.readOnly);
    }
    if (sharer) {
      EXPECT_EQ(Snapshot(*sharer), before);
    }
  }
}

TEST(RowFailure, LongestRow_RefusesAnotherAddress) {
  BaseRow row(65532);
  const Snapshot before(row);
  EXPECT_THROW(row.setColumn(4, kSampleSip, 65532), Cairn::AssertionException);
  EXPECT_EQ(Snapshot(row), before);
  BaseRow justFits(65531);
  justFits.setColumn(4, kSampleSip, 65531);
  EXPECT_EQ(justFits.rowLength(), 65535);
}

}  // namespace
}  // namespace Lumen
