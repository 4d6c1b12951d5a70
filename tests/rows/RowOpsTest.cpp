// Row operations by key and their registry.
#include "lumen/RowOps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {
namespace {

using Lumen::BaseRow;
using Lumen::RowOpsBase;

const std::string kNames[] = {
    "TolmarHwLib::L3TunnelTH3ConfigEntryRow",      "TolmarHwLib::L3TunnelTH3StatusEntryRow",
    "TolmarHwLib::MyStationTcamTH3ConfigEntryRow", "TolmarHwLib::MyStationTcamTH3StatusEntryRow",
    "TolmarHwLib::L3IifTH3ConfigEntryRow",         "TolmarHwLib::L3IifTH3StatusEntryRow"};

TEST(RowOps, Generators_AreRegisteredInOrder) {
  EXPECT_THAT(Lumen::rowOpsGeneratorNames(), testing::ElementsAreArray(kNames));
}

TEST(RowOps, Generator_MakesOneSetAtIndexZero) {
  for (const std::string& name : kNames) {
    ASSERT_NE(Lumen::rowOpsGenerator(name), nullptr) << name;
    std::vector<std::shared_ptr<RowOpsBase>> all;
    (*Lumen::rowOpsGenerator(name))(all);
    ASSERT_EQ(all.size(), 1u);
    EXPECT_NE(all[0], Lumen::rowOps(name));
    EXPECT_EQ(Lumen::rowOps(name, 1), nullptr);
    EXPECT_EQ(Lumen::rowOps(name, 255), nullptr);
    EXPECT_TRUE(all[0]->unique());
    EXPECT_FALSE(all[0]->ordered());
    EXPECT_EQ(all[0]->index(), 0);
    EXPECT_EQ(all[0]->getTotalInstructionsExecuted(), 0u);
  }
  EXPECT_EQ(Lumen::rowOpsGenerator("TolmarHwLib::NoSuchRow"), nullptr);
  EXPECT_EQ(Lumen::rowOps("TolmarHwLib::NoSuchRow"), nullptr);
}

/// A nested row of 30 bytes in the middle of a parent of 90.
BaseRow shortNestedRow() {
  BaseRow parent(90);
  parent.setColumn<len_t>(8, 30, 90);
  return Lumen::SubRow(parent, {8, 30});
}

template <class Row>
class RowOpsOf : public testing::Test {
 protected:
  const std::shared_ptr<RowOpsBase> ops = Lumen::rowOps(Row::rowTypeName());
  const Row row = Pinned<Row>::row();
  // Shorter than every class: in a buffer of the length, in a larger one, before the bytes of another row.
  BaseRow shortRows[3] = {BaseRow(30), BaseRow(30, 64), shortNestedRow()};
};
using Rows =
    testing::Types<L3TunnelTH3ConfigEntryRow, L3TunnelTH3StatusEntryRow, MyStationTcamTH3ConfigEntryRow,
                   MyStationTcamTH3StatusEntryRow, L3IifTH3ConfigEntryRow, L3IifTH3StatusEntryRow>;
TYPED_TEST_SUITE(RowOpsOf, Rows);

TYPED_TEST(RowOpsOf, Hashes_AreThoseOfTheRowAndOfNothing) {
  const BaseRow generic = this->row.clone();
  EXPECT_EQ(this->ops->keyHash(generic), Pinned<TypeParam>::expected.keyHash);
  EXPECT_EQ(this->ops->rowHash(generic), Pinned<TypeParam>::expected.rowHash);
  EXPECT_EQ(this->ops->keyHash(BaseRow()), 0u);
  EXPECT_EQ(this->ops->rowHash(BaseRow()), 0u);
}

TYPED_TEST(RowOpsOf, Comparisons_AgreeWithTheRows) {
  auto entry = Pinned<TypeParam>::entry();
  entry.genId += 1;
  const TypeParam sameKey = TypeParam::fromEntry(entry);
  EXPECT_TRUE(this->ops->keyEquals(this->row, sameKey));
  EXPECT_FALSE(this->ops->keyLess(this->row, sameKey));
  EXPECT_FALSE(this->ops->rowEquals(this->row, sameKey));
  EXPECT_TRUE(this->ops->rowLess(this->row, sameKey));
  EXPECT_FALSE(this->ops->rowLess(sameKey, this->row));
  EXPECT_TRUE(this->ops->rowEquals(this->row, this->row.clone()));
}

TYPED_TEST(RowOpsOf, NullAndShortRows_AreRefused) {
  for (const auto operation :
       {&RowOpsBase::keyEquals, &RowOpsBase::rowEquals, &RowOpsBase::keyLess, &RowOpsBase::rowLess}) {
    EXPECT_THROW(((*this->ops).*operation)(this->row, BaseRow()), Lumen::LmNullRow);
    EXPECT_THROW(((*this->ops).*operation)(BaseRow(), this->row), Lumen::LmNullRow);
    for (const BaseRow& tooShort : this->shortRows) {
      EXPECT_THROW(((*this->ops).*operation)(this->row, tooShort), Cairn::AssertionException);
      EXPECT_THROW(((*this->ops).*operation)(tooShort, this->row), Cairn::AssertionException);
    }
  }
  for (BaseRow& tooShort : this->shortRows) {
    EXPECT_THROW(this->ops->keyHash(tooShort), Cairn::AssertionException);
    EXPECT_THROW(this->ops->rowHash(tooShort), Cairn::AssertionException);
    tooShort.rowTypeIs(TypeParam::protRowType());
    EXPECT_THROW(this->row.rowEqual(tooShort), Cairn::AssertionException);
    EXPECT_THROW(this->row.rowLess(tooShort), Cairn::AssertionException);
  }
}

// Rising keys: each pair of neighbours differs in one key column, from the last to the first.
const std::vector<BaseRow> kRisingTunnels = {L3TunnelTH3ConfigEntryRow::key({}, {}, 0, 0, 0),
                                             L3TunnelTH3ConfigEntryRow::key({}, {}, 0, 0, 256),
                                             L3TunnelTH3ConfigEntryRow::key({}, {}, 0, 1, 0),
                                             L3TunnelTH3ConfigEntryRow::key({}, {}, 1, 0, 0),
                                             L3TunnelTH3ConfigEntryRow::key({}, kSampleSip, 0, 0, 0),
                                             L3TunnelTH3ConfigEntryRow::key({}, kSampleDip, 0, 0, 0),
                                             L3TunnelTH3ConfigEntryRow::key(kSampleSip, {}, 0, 0, 0)};
const std::vector<BaseRow> kRisingStations = {
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, false, {}, 0, 0, false, 0),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, false, {}, 0, 0, false, 255),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, false, {}, 0, 0, false, 256),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, false, {}, 0, 0, true, 0),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, false, {}, 0, 1, false, 0),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, false, {}, 1, 0, false, 0),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, false, kSampleMac, 0, 0, false, 0),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 0, true, {}, 0, 0, false, 0),
    MyStationTcamTH3ConfigEntryRow::key({}, 0, 1, false, {}, 0, 0, false, 0),
    MyStationTcamTH3ConfigEntryRow::key({}, 1, 0, false, {}, 0, 0, false, 0),
    MyStationTcamTH3ConfigEntryRow::key(kSampleMac, 0, 0, false, {}, 0, 0, false, 0)};
const std::vector<BaseRow> kRisingIifs = {L3IifTH3ConfigEntryRow::key(5), L3IifTH3ConfigEntryRow::key(256),
                                          L3IifTH3ConfigEntryRow::key(0x100000005),
                                          L3IifTH3ConfigEntryRow::key(~0ull)};

TEST(RowOps, Keys_OrderColumnByColumn) {
  const std::pair<std::string, const std::vector<BaseRow>*> kinds[] = {
      {kNames[0], &kRisingTunnels}, {kNames[2], &kRisingStations}, {kNames[4], &kRisingIifs}};
  for (const auto& [name, rows] : kinds) {
    const auto ops = Lumen::rowOps(name);
    for (std::size_t i = 0; i < rows->size(); ++i) {
      for (std::size_t j = 0; j < rows->size(); ++j) {
        EXPECT_EQ(ops->keyLess((*rows)[i], (*rows)[j]), i < j) << name << i << j;
        EXPECT_EQ(ops->keyEquals((*rows)[i], (*rows)[j]), i == j) << name << i << j;
      }
    }
  }
}

TEST(RowOps, KeyHashOfL3Iif_LeavesTheUpperHalfOut) {
  const auto ops = Lumen::rowOps("TolmarHwLib::L3IifTH3ConfigEntryRow");
  const BaseRow low = L3IifTH3ConfigEntryRow::key(5);
  const BaseRow high = L3IifTH3ConfigEntryRow::key(0x100000005);
  EXPECT_EQ(ops->keyHash(low), 0x58b70b8cu);
  EXPECT_EQ(ops->keyHash(high), ops->keyHash(low));
}

struct NoOps final : Lumen::RowOpsGenerator {
  void operator()(std::vector<std::shared_ptr<RowOpsBase>>&) override {}
  std::shared_ptr<RowOpsBase> operator()(unsigned char) override { return nullptr; }
};

TEST(RowOpsRegistry, LatestOfAName_CountsUntilItIsTakenOut) {
  NoOps first;
  NoOps second;
  Lumen::installRowOpsGenerator("X", &first);
  Lumen::installRowOpsGenerator("X", &second);
  EXPECT_EQ(Lumen::rowOpsGenerator("X"), &second);
  Lumen::uninstallRowOpsGenerator(&second);
  EXPECT_EQ(Lumen::rowOpsGenerator("X"), &first);
  Lumen::uninstallRowOpsGenerator(&first);
  Lumen::uninstallRowOpsGenerator(&first);
  EXPECT_EQ(Lumen::rowOpsGenerator("X"), nullptr);
}

}  // namespace
}  // namespace TolmarHwLib
