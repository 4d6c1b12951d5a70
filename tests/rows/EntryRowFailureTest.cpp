// Failures of the row classes: casts, malformed bytes, refused memory; and that the rows are as they were.
#include <gtest/gtest.h>

#include <functional>
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
using TolmarHwLib::L3IifTH3ConfigEntryRow;
using TolmarHwLib::L3IifTH3StatusEntryRow;
using TolmarHwLib::L3TunnelTH3ConfigEntryRow;

TEST(EntryRowFailure, RefusedMemory_IsToldWithItsLength) {
  L3IifTH3ConfigEntryRow row = TolmarHwLib::Pinned<L3IifTH3ConfigEntryRow>::row();
  const L3IifTH3ConfigEntryRow sharer = row;
  const std::pair<std::function<void()>, const char*> steps[] = {
      {[] { L3IifTH3ConfigEntryRow(); }, "calloc() failed requested length: 43"},
      {[] { L3IifTH3ConfigEntryRow::key(1); }, "calloc() failed requested length: 43"},
      {[] { TolmarHwLib::Pinned<L3IifTH3ConfigEntryRow>::row(); }, "calloc() failed requested length: 43"},
      {[] { TolmarHwLib::Pinned<L3TunnelTH3ConfigEntryRow>::row(); }, "calloc() failed requested length: 69"},
      {[] { L3TunnelTH3ConfigEntryRow::key(kSampleSip, kSampleDip, 0, 0, 0); },
       "calloc() failed requested length: 69"},
      {[&] { row.clearRow(); }, "calloc() failed requested length: 43"},
      {[&] { row.clone(); }, "malloc() failed requested length: 43"},
  };
  const Snapshot before(row);
  FailingAllocator allocator;
  allocator.allow(0);
  for (const auto& [step, text] : steps) {
    try {
      step();
      ADD_FAILURE() << "did not fail: " << text;
    } catch (const Cairn::MemoryResourceException& error) {
      EXPECT_STREQ(error.what(), text);
    }
    EXPECT_EQ(Snapshot(row), before);
    EXPECT_EQ(Snapshot(sharer), before);
  }
}

TEST(EntryRowFailure, ClearRowOfAReadOnlyRow_IsRefused) {
  L3IifTH3ConfigEntryRow row = TolmarHwLib::Pinned<L3IifTH3ConfigEntryRow>::row();
  row.readOnlyIs(true);
  const Snapshot before(row);
  EXPECT_THROW(row.clearRow(), LmPermissionViolation);
  const L3IifTH3ConfigEntryRow sharer = row;
  EXPECT_THROW(row.clearRow(), LmPermissionViolation);
  EXPECT_EQ(Snapshot(row), before);
}

TEST(EntryRowFailure, BadCast_LeavesBothSidesAsTheyWere) {
  const L3IifTH3StatusEntryRow status = TolmarHwLib::Pinned<L3IifTH3StatusEntryRow>::row();
  const std::string types = "row type " + std::to_string(L3IifTH3StatusEntryRow::protRowType()) +
                            " does not match row type " +
                            std::to_string(L3IifTH3ConfigEntryRow::protRowType());
  L3IifTH3ConfigEntryRow config = TolmarHwLib::Pinned<L3IifTH3ConfigEntryRow>::row();
  // A view that stands at 8 in a larger buffer, to tell source and target in the text.
  std::vector<std::byte> bytes(8 + status.rowLength());
  const len_t total = static_cast<len_t>(bytes.size());
  storeBytes(bytes.data(), total);
  std::memcpy(bytes.data() + 8, status.bytes().data, status.rowLength());
  BaseRow nested = SubRow(BaseRow::fromBytes(bytes), {8, status.rowLength()});

  const std::vector<std::pair<std::function<void()>, std::string>> casts = {
      {[&] { L3IifTH3ConfigEntryRow made{nested}; }, types + " 8"},
      {[&] { L3IifTH3ConfigEntryRow made{std::move(nested)}; }, types + " 8"},
      {[&] { config = nested; }, types + " 0"},
      {[&] { config = std::move(nested); }, types + " 0"},
      {[&] { L3IifTH3ConfigEntryRow::browToString(nested); }, types + " 8"},
      {[&] { config.rowLess(status); }, types + " 0"},
  };
  const Snapshot beforeNested(nested);
  const Snapshot beforeConfig(config);
  for (std::size_t i = 0; i < casts.size(); ++i) {
    SCOPED_TRACE(i);
    try {
      casts[i].first();
      ADD_FAILURE() << "did not fail";
    } catch (const LmBadCast& error) {
      EXPECT_EQ(error.what(), casts[i].second);
    }
    EXPECT_EQ(Snapshot(nested), beforeNested);
    EXPECT_EQ(Snapshot(config), beforeConfig);
  }
}

TEST(EntryRowFailure, ClassOverMalformedBytes_IsRefusedAndTheSourceKept) {
  const L3TunnelTH3ConfigEntryRow good = TolmarHwLib::Pinned<L3TunnelTH3ConfigEntryRow>::row();
  struct Damage {
    const char* text;
    len_t offset;
    std::uint16_t value;
  };
  const Damage damages[] = {{"row inside its buffer", 0, 70},    {"fixed data inside the row", 0, 48},
                            {"fixed data inside the row", 0, 0}, {"slot inside the row", 21, 66},
                            {"slot inside the row", 23, 0x7fff}, {"slot inside the row", 25, 0xffff}};
  for (const Damage& damage : damages) {
    BaseRow row = good.clone();
    row.setColumn(damage.offset, damage.value, 49);
    const Snapshot before(row);
    try {
      L3TunnelTH3ConfigEntryRow made{std::move(row)};
      ADD_FAILURE() << "did not fail at " << damage.offset;
    } catch (const Cairn::AssertionException& error) {
      EXPECT_STREQ(error.what(), damage.text);
    }
    // NOLINTNEXTLINE(bugprone-use-after-move): the move failed
    EXPECT_EQ(Snapshot(row), before);
    L3TunnelTH3ConfigEntryRow target = good;
    EXPECT_THROW(target.shareContents(row), Cairn::AssertionException);
    EXPECT_TRUE(target.rowEqual(good));
  }
}

}  // namespace
}  // namespace Lumen
