// Every failure of rows, row classes and row operations: its kind, its text, and that the row is as it was.
#include <cxxabi.h>
#include <gtest/gtest.h>

#include <optional>

#include "lumen/RowText.h"
#include "tests/AllocationCount.h"
#include "tests/rows/PinnedRows.h"

namespace Lumen {
namespace {

using TolmarHwLib::kSampleDip, TolmarHwLib::pinnedRow;
using Iif = TolmarHwLib::L3IifTH3ConfigEntryRow;
using Tunnel = TolmarHwLib::L3TunnelTH3ConfigEntryRow;

const std::string kNullRow = "Lumen::LmNullRow: null row";
const std::string kReadOnlyRow = "Lumen::LmPermissionViolation: Attempting to modify read-only row";
const std::string kMalloc = "Cairn::MemoryResourceException: malloc() failed requested length: ";
const std::string kCalloc = "Cairn::MemoryResourceException: calloc() failed requested length: ";
const std::string kBadCast = "Lumen::LmBadCast: row type ";
const std::string kToIif = " does not match row type " + std::to_string(Iif::protRowType()) + " ";
const std::string kUnsupported = " not supported on generic base rows";
const std::string kAssert = "Cairn::AssertionException: ";
const std::string kBeyond = kAssert + "setting fixed data length forBaseRow longer than buffer size in clear";
const std::string kHeader = kAssert + "len >= lm_contentOffset in ";
const std::string kAddress = kAssert + "address slot inside the row in getColumn";
const std::string kTooLong =
    kAssert + "row length <= 65535 (a generic row appends values that outgrow their place)";
const std::string kSlot = kAssert + "slot inside the row in requireLayout";
const std::string kOutside = kAssert + "nested row inside the row in SubRow";
const std::string kNest = kAssert + "nested row inside its slot in SubRow";
const std::string kInBuffer = kAssert + "row inside its buffer in ";
const std::string kShort = kAssert + "fixed data inside the row in ";

std::string reported(const std::exception& error) {
  const std::unique_ptr<char, decltype(&std::free)> kind(
      abi::__cxa_demangle(typeid(error).name(), nullptr, nullptr, nullptr), &std::free);
  const auto* const assertion = dynamic_cast<const Cairn::AssertionException*>(&error);
  return std::string(kind.get()) + ": " + error.what() + (assertion ? " in " + assertion->operation() : "");
}

/// 20 bytes of fixed data with a slot at 4, in a buffer of 24; type 7. A row of 12 bytes begins at 8, another
/// at 12, which is too long to stand there.
BaseRow plainRow(len_t slotOffset = 0, len_t slotLength = 0) {
  BaseRow row(20, 24);
  row.rowTypeIs(7);
  row.setColumn(4, slotOffset, 20);
  row.setColumn(6, slotLength, 20);
  row.setColumn<len_t>(8, 12, 20);
  row.setColumn<len_t>(12, 12, 20);
  return row;
}
/// One byte short of its class, though its buffer is not.
BaseRow shortRow() {
  BaseRow row(42, 64);
  row.rowTypeIs(Iif::protRowType());
  return row;
}
/// A row of 69 bytes with two of them overwritten.
BaseRow damagedRow(len_t offset, std::uint16_t value) {
  BaseRow row = pinnedRow<Tunnel>();
  row.setColumn(offset, value, 49);
  return row;
}

enum State { kPlain = 0, kNull = 1, kNested = 2, kIif = 4, kReadOnly = 8, kShared = 16, kCopied = 32 };

std::unique_ptr<BaseRow> rowIn(int state) {
  BaseRow row = (state & kNull) != 0     ? BaseRow()
                : (state & kNested) != 0 ? SubRow(plainRow(), {8, 12})
                : (state & kIif) != 0    ? pinnedRow<Iif>()
                                         : plainRow();
  row.readOnlyIs((state & kReadOnly) != 0);
  return (state & kIif) != 0 ? std::make_unique<Iif>(row) : std::make_unique<BaseRow>(row);
}

void setByte(BaseRow& row) { row.setColumn<std::uint8_t>(9, 1, 12); }
void setAddress(BaseRow& row) { row.setColumn(4, kSampleDip, 20); }
void setType(BaseRow& row) { row.rowTypeIs(1); }
void setNothing(BaseRow& row) { row.setColumn(9, true, 0); }
void setBeyond(BaseRow& row) { row.setColumn(20, true, 21); }
void setIn(len_t length) { BaseRow(length).setColumn(4, kSampleDip, length); }
void clear20(BaseRow& row) { row.clear(20); }
void clear25(BaseRow& row) { row.clear(25); }
void clone(BaseRow& row) { row.clone(); }
void get(const BaseRow& row) {
  IpGenAddr value;
  row.getColumn(4, value);
}
void getStruct(const BaseRow& row) {
  Iif nested;
  row.getColumnStruct(4, nested);
}
Iif& iif(BaseRow& row) { return dynamic_cast<Iif&>(row); }
void fill(BaseRow& row) { iif(row).fill({}); }
void ofBytes(std::size_t count) { BaseRow::fromBytes(std::vector<std::byte>(count)); }
const std::shared_ptr<RowOpsBase> kOps = TolmarHwLib::L3IifTH3ConfigEntryRowRowOpsGenerator()(0);

struct Case {
  const char* name;
  int state;
  void (*act)(BaseRow&);
  std::string reported;
  std::size_t failingAllocation = 0;
};

const Case kCases[] = {
    {"set", kNull, setByte, kNullRow},
    {"clone", kNull, clone, kNullRow},
    {"absent struct hash", kPlain, [](BaseRow& r) { r.columnHash<Iif>(4); }, kNullRow},
    {"hash", kNull | kIif, [](BaseRow& r) { iif(r).hash(); }, kNullRow},
    {"JSON", kNull | kIif, [](BaseRow& r) { r.toJson(); }, kNullRow},
    {"operations: key equals", kNull, [](BaseRow& r) { kOps->keyEquals(r, Iif()); }, kNullRow},

    {"set, null", kReadOnly | kNull, setByte, kReadOnlyRow},
    {"clear, null", kReadOnly | kNull, clear20, kNullRow},
    {"set", kReadOnly, setByte, kReadOnlyRow},
    {"clear", kReadOnly, clear20, kReadOnlyRow},
    {"set", kReadOnly | kShared | kCopied, setByte, kReadOnlyRow},
    {"set type", kReadOnly | kShared | kCopied, setType, kReadOnlyRow},
    {"set beyond", kReadOnly | kShared, setBeyond, kReadOnlyRow},

    {"set", kShared, setByte, kMalloc + "20", 1},
    {"set in a view", kNested, setByte, kMalloc + "12", 1},
    {"clone", kPlain, clone, kMalloc + "20", 1},
    {"set longer", kPlain, setAddress, kMalloc + "36", 1},
    {"set longer in a copy", kShared | kCopied, setAddress, kMalloc + "36", 2},
    {"clear", kShared, clear20, kCalloc + "24", 1},
    {"fill", kShared | kIif, fill, kCalloc + "43", 1},
    {"new", kPlain, [](BaseRow&) { BaseRow(43); }, kCalloc + "43", 1},

    {"clear beyond", kPlain, clear25, kBeyond},
    {"clear below the header", kPlain, [](BaseRow& r) { r.clear(3); }, kHeader + "clear"},
    {"new below the header", kPlain, [](BaseRow&) { BaseRow(3); }, kHeader + "BaseRow"},
    {"new in less", kPlain, [](BaseRow&) { BaseRow(20, 19); }, kAssert + "bufLen >= len in BaseRow"},
    {"too few bytes", kPlain, [](BaseRow&) { ofBytes(3); }, kHeader + "fromBytes"},
    {"too many bytes", kPlain, [](BaseRow&) { ofBytes(65536); }, kAssert + "len <= 65535 in fromBytes"},
    {"no length", kReadOnly | kNull, setNothing, kAssert + "fdLen != 0 in setColumn"},
    {"set too much", kPlain, [](BaseRow&) { setIn(65520); }, kTooLong + " in setColumn"},
    {"set beyond", kShared, setBeyond, kAssert + "column inside the row in setColumn"},
    {"generic columns", kPlain, [](BaseRow& r) { r.vcd(); }, kAssert + "0 in vcd"},
    {"generic length", kPlain, [](BaseRow& r) { r.baseRowLength(); }, kAssert + "0 in baseRowLength"},
    {"generic hash", kPlain, [](BaseRow& r) { r.rowHash(); },
     "Lumen::LmNotSupported: rowHash" + kUnsupported},
    {"generic order", kPlain, [](BaseRow& r) { r.rowLess(r); },
     "Lumen::LmNotSupported: rowLess" + kUnsupported},

    {"made", kNested, [](BaseRow& r) { Iif made{r}; }, kBadCast + "0" + kToIif + "8"},
    {"made by move", kNested, [](BaseRow& r) { Iif made{std::move(r)}; }, kBadCast + "0" + kToIif + "8"},
    {"read", kPlain, [](BaseRow&) { getStruct(plainRow(8, 12)); }, kBadCast + "0" + kToIif + "8"},
    {"assigned", kNested, [](BaseRow& r) { Iif() = r; }, kBadCast + "0" + kToIif + "0"},
    {"assigned to", kIif, [](BaseRow& r) { iif(r) = plainRow(); }, kBadCast + "7" + kToIif + "0"},
    {"ordered", kIif, [](BaseRow& r) { r.rowLess(plainRow()); }, kBadCast + "7" + kToIif + "0"},

    {"slot", kPlain, [](BaseRow&) { get(plainRow(17, 4)); }, kAddress},
    {"slot that wraps", kPlain, [](BaseRow&) { get(plainRow(0xfff0, 16)); }, kAddress},
    {"nested", kPlain, [](BaseRow&) { getStruct(plainRow(12, 13)); }, kOutside},
    {"nested, lost by a copy", kPlain, [](BaseRow&) { getStruct(plainRow(20, 4).clone()); }, kOutside},
    {"nested, longer", kPlain, [](BaseRow&) { getStruct(plainRow(12, 8)); }, kNest},
    {"nested, no header", kPlain, [](BaseRow&) { getStruct(plainRow(16, 3)); }, kNest},
    {"row length", kPlain, [](BaseRow&) { Tunnel{damagedRow(0, 70)}; }, kInBuffer + "requireLayout"},
    {"copy, row length", kPlain, [](BaseRow&) { damagedRow(0, 70).clone(); }, kInBuffer + "copy"},
    {"copy, no header", kPlain, [](BaseRow&) { damagedRow(0, 3).clone(); }, kInBuffer + "copy"},
    {"short row", kPlain, [](BaseRow&) { Tunnel{damagedRow(0, 48)}; }, kShort + "requireLayout"},
    {"sip offset", kPlain, [](BaseRow&) { Tunnel{damagedRow(21, 66)}; }, kSlot},
    {"dip offset", kPlain, [](BaseRow&) { Tunnel{damagedRow(25, 0xffff)}; }, kSlot},
    {"shared", kIif, [](BaseRow& r) { r.shareContents(shortRow()); }, kShort + "requireLayout"},
    {"short, equal", kIif, [](BaseRow& r) { r.rowEqual(shortRow()); }, kShort + "columnBytes"},
    {"short, less", kIif, [](BaseRow& r) { r.rowLess(shortRow()); }, kShort + "columnBytes"},
    {"short, text", kIif, [](BaseRow&) { rowText(shortRow()); }, kShort + "requireLayout"},
    {"short, key hash", kIif, [](BaseRow&) { kOps->keyHash(shortRow()); }, kShort + "columnBytes"},
    {"short, row equals", kIif, [](BaseRow& r) { kOps->rowEquals(shortRow(), r); }, kShort + "columnBytes"},
    {"short, row less", kIif, [](BaseRow& r) { kOps->rowLess(r, shortRow()); }, kShort + "columnBytes"},
};

auto snapshot(const BaseRow& row) {
  const RowBytes bytes = row.isNull() ? RowBytes{} : row.bytes();
  return std::tuple(bytes.data, std::vector(bytes.data, bytes.data + bytes.available), row.contentOffset(),
                    row.sharedContents(), row.readOnly());
}

TEST(RowFailure, HasItsKindAndText_AndLeavesTheRowAsItWas) {
  for (const Case& each : kCases) {
    SCOPED_TRACE(testing::Message() << each.name << " in state " << each.state);
    const std::unique_ptr<BaseRow> row = rowIn(each.state);
    const std::optional<BaseRow> sharer = (each.state & kShared) != 0 ? std::optional(*row) : std::nullopt;
    const auto before = snapshot(*row);
    allocationFailureIs(each.failingAllocation);
    try {
      each.act(*row);
      ADD_FAILURE() << "did not fail";
    } catch (const std::exception& error) {
      EXPECT_EQ(reported(error), each.reported);
    }
    allocationFailureIs(0);
    if ((each.state & kCopied) == 0) {
      EXPECT_EQ(snapshot(*row), before);
    } else {
      EXPECT_EQ(row->bufferUseCount(), 1u);
      EXPECT_EQ(row->bufferLength(), row->rowLength());
      EXPECT_TRUE(row->rowEqual(*sharer));
      EXPECT_EQ(row->readOnly(), sharer->readOnly());
    }
    if (sharer) {
      EXPECT_EQ(snapshot(*sharer), before);
    }
  }
}

}  // namespace
}  // namespace Lumen
