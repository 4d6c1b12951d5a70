// Rows built and printed by the metadata of their class, against the row classes themselves.
#include "lumen/RowText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"
#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {
namespace {

using Lumen::BaseRow;
using Lumen::ColumnText;
using testing::HasSubstr;

const Lumen::LmClass& classOf(std::string_view rowTypeName) {
  Lumen::LumenDB::metadataIs(rowTypeName);
  return *Lumen::LumenDB::lmClass(rowTypeName);
}

std::string whatOf(const std::function<void()>& step) {
  try {
    step();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "no exception";
}

template <class Row>
class RowTextOfClass : public testing::Test {};
using Rows =
    testing::Types<L3TunnelTH3ConfigEntryRow, MyStationTcamTH3ConfigEntryRow, L3IifTH3StatusEntryRow>;
TYPED_TEST_SUITE(RowTextOfClass, Rows);

TYPED_TEST(RowTextOfClass, GenericRow_PrintsLikeTheClass) {
  const BaseRow row = Pinned<TypeParam>::row();
  EXPECT_EQ(Lumen::rowText(row), Pinned<TypeParam>::expected.text);
  EXPECT_EQ(Lumen::rowJson(row), Pinned<TypeParam>::expected.json);
}

TYPED_TEST(RowTextOfClass, PrintedValues_BuildAnEqualRow) {
  const TypeParam row = Pinned<TypeParam>::row();
  std::vector<std::string> texts;
  std::vector<ColumnText> columns;
  const auto& rowClass = classOf(TypeParam::rowTypeName());
  for (const auto& column : rowClass.columns()) {
    texts.push_back(Lumen::printColumn(Lumen::columnValue(row, column.name)));
  }
  for (std::size_t i = 0; i < texts.size(); ++i) columns.push_back({rowClass.columns()[i].name, texts[i]});
  const BaseRow built = Lumen::rowFromText(rowClass, columns);
  EXPECT_EQ(built.bufferLength(), row.bufferLength());
  EXPECT_TRUE(built.rowEqual(row.clone()));
}

TEST(RowText, Set_WritesOneColumnOfAGenericRow) {
  BaseRow row = Lumen::rowFromText(classOf("TolmarHwLib::L3TunnelTH3ConfigEntryRow"), {});
  Lumen::setColumnText(row, "dip", "2001:db8::5");
  Lumen::setColumnText(row, "sip", "192.0.2.1");
  Lumen::setColumnText(row, "l3Iif", "0xfffe");
  Lumen::setColumnText(row, "useOuterHdrTtl", "true");
  Lumen::setColumnValue(row, "genId", std::uint64_t{1} << 63);
  const L3TunnelTH3ConfigEntry entry = L3TunnelTH3ConfigEntryRow(row).entry();
  EXPECT_EQ(entry.dip, kSampleDip);
  EXPECT_EQ(entry.sip, kSampleSip);
  EXPECT_EQ(entry.l3Iif, 0xfffe);
  EXPECT_TRUE(entry.useOuterHdrTtl);
  EXPECT_EQ(entry.genId, std::uint64_t{1} << 63);
  Lumen::setColumnText(row, "dip", "");
  EXPECT_FALSE(std::get<IpGenAddr>(Lumen::columnValue(row, "dip")).isSet());
}

TEST(RowText, BadInput_IsAnsweredWithWhatWasExpected) {
  struct Case {
    const char* column;
    const char* text;
    const char* answer;
  };
  const Case cases[] = {
      {"vlanId", "65536",
       "column \"vlanId\": expected a decimal or 0x number from 0 to 65535 (uint16_t), got \"65536\""},
      {"vlanId", "-1", "from 0 to 65535 (uint16_t), got \"-1\""},
      {"vlanId", "+1", "got \"+1\""},
      {"vlanId", " 1", "got \" 1\""},
      {"vlanId", "", "got \"\""},
      {"vlanId", "0x", "got \"0x\""},
      {"portNum", "256", "from 0 to 255 (uint8_t), got \"256\""},
      {"priority", "4294967296", "from 0 to 4294967295 (uint32_t)"},
      {"genId", "18446744073709551616", "from 0 to 18446744073709551615 (uint64_t)"},
      {"t", "yes", "expected true, false, 1 or 0 (bool), got \"yes\""},
      {"macAddr", "00:00:5e:00:53", "expected an Ethernet address like 00:00:5e:00:53:01 (EthAddr)"},
      {"vlan", "1", "expected one of the columns genId, entryHandle, valid, macAddr, vlanId"},
  };
  const BaseRow before = MyStationTcamTH3ConfigEntryRow(Pinned<MyStationTcamTH3ConfigEntryRow>::row());
  BaseRow row = before.clone();
  for (const Case& each : cases) {
    EXPECT_THAT(whatOf([&] { Lumen::setColumnText(row, each.column, each.text); }), HasSubstr(each.answer));
    EXPECT_TRUE(row.rowEqual(before)) << each.column << " " << each.text;
  }
  EXPECT_THAT(whatOf([&] { Lumen::setColumnValue(row, "vlanId", std::uint32_t{1}); }),
              HasSubstr("expected a value of type uint16_t, got one of type uint32_t"));
}

TEST(RowText, BadAddress_IsAnsweredWithWhatWasExpected) {
  const auto& tunnel = classOf("TolmarHwLib::L3TunnelTH3StatusEntryRow");
  EXPECT_EQ(whatOf([&] {
              Lumen::rowFromText(tunnel, std::vector<ColumnText>{{"sip", "192.0.2"}});
            }),
            "column \"sip\": expected an IPv4 or IPv6 address, or nothing (IpGenAddr), got \"192.0.2\"");
  EXPECT_EQ(whatOf([&] {
              Lumen::rowFromText(tunnel, std::vector<ColumnText>{{"protocol", "1"}, {"protocol", "2"}});
            }),
            "column \"protocol\": expected one value, got a second: \"2\"");
}

TEST(RowText, RowOfAnUnknownTypeOrLayout_IsRefused) {
  BaseRow unknown(43);
  EXPECT_THROW(Lumen::rowText(unknown), Lumen::LmMetadataError);
  BaseRow tooShort(42);
  tooShort.rowTypeIs(classOf("TolmarHwLib::L3IifTH3ConfigEntryRow").oid());
  EXPECT_THROW(Lumen::rowText(tooShort), Cairn::AssertionException);
  EXPECT_THROW(Lumen::setColumnText(tooShort, "vrf", "1"), Cairn::AssertionException);
  EXPECT_EQ(Lumen::rowText(BaseRow()), "len: 0, NULL");
  EXPECT_THROW(Lumen::rowJson(BaseRow()), Lumen::LmNullRow);
}

TEST(RowMetadata, UnknownOrUnreadableClass_IsAnError) {
  using Lumen::LmClass;
  EXPECT_THROW(Lumen::LumenDB::metadataIs("TolmarHwLib::NoSuchRow"), Lumen::LmMetadataError);
  EXPECT_THROW(Lumen::LumenDB::tableTypeId("TolmarHwLib::NoSuchRow", true), Lumen::LmMetadataError);
  EXPECT_EQ(Lumen::LumenDB::lmClass("TolmarHwLib::NoSuchRow"), nullptr);
  for (const char* descriptor : {"", "{", "{}", R"({"a":"uint16_t")", R"({"a":"uint17_t"})",
                                 R"({"a" :"bool"})", R"({"a":"bool","b":"bool"})", R"({"a":"bool"} )",
                                 R"({"a":"bool", "a":"uint8_t"})"}) {
    EXPECT_THROW(LmClass("X", 1, {descriptor, 0, 0}), Lumen::LmMetadataError) << descriptor;
  }
  const char* const twoColumns = R"({"a":"bool", "b":"bool"})";
  EXPECT_TRUE(LmClass("X", 1, {twoColumns, 1, 1}).column("b")->isKey);
  EXPECT_THROW(LmClass("X", 1, {twoColumns, 1, 2}), Lumen::LmMetadataError);
  EXPECT_THROW(LmClass("X", 1, {twoColumns, 3, 0}), Lumen::LmMetadataError);
  EXPECT_THROW(LmClass("X", 1, {twoColumns, 2, ~std::size_t{0}}), Lumen::LmMetadataError);
}

}  // namespace
}  // namespace TolmarHwLib
