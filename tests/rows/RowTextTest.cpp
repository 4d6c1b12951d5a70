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
    testing::Types<L3TunnelTH3ConfigEntryRow, L3TunnelTH3StatusEntryRow, MyStationTcamTH3ConfigEntryRow,
                   MyStationTcamTH3StatusEntryRow, L3IifTH3ConfigEntryRow, L3IifTH3StatusEntryRow>;
TYPED_TEST_SUITE(RowTextOfClass, Rows);

TYPED_TEST(RowTextOfClass, GenericRow_PrintsLikeTheClass) {
  const BaseRow row = Pinned<TypeParam>::row();
  EXPECT_EQ(Lumen::rowText(row), Pinned<TypeParam>::expected.text);
}

/// The texts in "name = value, name = value", quotes taken off.
std::vector<ColumnText> columnsIn(std::string_view text) {
  std::vector<ColumnText> columns;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(", "), text.size());
    const std::size_t assign = text.find(" = ");
    std::string_view value = text.substr(assign + 3, end - assign - 3);
    if (value.starts_with('"')) value = value.substr(1, value.size() - 2);
    columns.push_back({text.substr(0, assign), value});
    text.remove_prefix(std::min(end + 2, text.size()));
  }
  return columns;
}

TYPED_TEST(RowTextOfClass, PrintedValues_BuildAnEqualRow) {
  const TypeParam row = Pinned<TypeParam>::row();
  const BaseRow built =
      Lumen::rowFromText(classOf(TypeParam::rowTypeName()), columnsIn(Pinned<TypeParam>::expected.text));
  EXPECT_EQ(built.bufferLength(), row.bufferLength());
  EXPECT_TRUE(built.rowEqual(row.clone()));
}

TEST(RowText, ColumnsInAnyOrder_LeaveTheOthersZero) {
  const std::vector<ColumnText> columns{{"dip", "2001:db8::5"},  {"l3Iif", "0xfffe"},
                                        {"useOuterHdrTtl", "1"}, {"sip", ""},
                                        {"valid", "true"},       {"genId", "0X8000000000000000"}};
  const L3TunnelTH3ConfigEntryRow row(
      Lumen::rowFromText(classOf("TolmarHwLib::L3TunnelTH3ConfigEntryRow"), columns));
  L3TunnelTH3ConfigEntry expected;
  expected.dip = kSampleDip;
  expected.l3Iif = 0xfffe;
  expected.useOuterHdrTtl = true;
  expected.valid = true;
  expected.genId = std::uint64_t{1} << 63;
  EXPECT_EQ(row.entry(), expected);
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
  const auto& station = classOf("TolmarHwLib::MyStationTcamTH3ConfigEntryRow");
  for (const Case& each : cases) {
    const std::vector<ColumnText> columns{{each.column, each.text}};
    EXPECT_THAT(whatOf([&] { Lumen::rowFromText(station, columns); }), HasSubstr(each.answer));
  }
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
  EXPECT_EQ(Lumen::rowText(BaseRow()), "len: 0, NULL");
}

TEST(RowMetadata, UnknownOrUnreadableClass_IsAnError) {
  using Lumen::LmClass;
  EXPECT_THROW(Lumen::LumenDB::metadataIs("TolmarHwLib::NoSuchRow"), Lumen::LmMetadataError);
  EXPECT_THROW(Lumen::LumenDB::tableTypeId("TolmarHwLib::NoSuchRow", true), Lumen::LmMetadataError);
  EXPECT_EQ(Lumen::LumenDB::lmClass("TolmarHwLib::NoSuchRow"), nullptr);
  for (const char* descriptor :
       {"", "{", "{}", R"({"a":"uint16_t")", R"({"a":"uint17_t"})", R"({"a" :"bool"})",
        R"({"a":"bool","b":"bool"})", R"({"a":"bool"} )", R"({"a":"bool", "a":"uint8_t"})"}) {
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
