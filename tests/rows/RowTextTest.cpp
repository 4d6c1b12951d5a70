// The texts of rows, and rows built of texts and printed by the metadata of their class.
#include "lumen/RowText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "lumen/LmErrors.h"
#include "lumen/LumenDB.h"
#include "tests/rows/PinnedRows.h"

namespace TolmarHwLib {
namespace {

using Lumen::BaseRow, Lumen::ColumnText, Lumen::LmClass;
using Tunnel = L3TunnelTH3StatusEntryRow;
using Station = MyStationTcamTH3StatusEntryRow;

const LmClass& classOf(std::string_view rowTypeName) {
  Lumen::LumenDB::metadataIs(rowTypeName);
  return *Lumen::LumenDB::lmClass(rowTypeName);
}

TEST(RowText, Texts_NameEveryColumnInOrder) {
  const std::vector<ColumnText> columns{
      {"dip", "2001:db8::5"},  {"protocol", "17"}, {"sip", ""},
      {"errorCode", "0xfffe"}, {"deleted", "1"},   {"genId", "0X8000000000000000"}};
  const Tunnel row(Lumen::rowFromText(classOf(Tunnel::rowTypeName()), columns));
  const std::string_view text =
      R"(genId = 9223372036854775808, entryHandle = 0, errorCode = 65534, deleted = true, sip = "", )"
      R"(dip = "2001:db8::5", protocol = 17, l4DestPort = 0, l4SrcPort = 0)";
  std::ostringstream out;
  out << std::hex << std::showbase << row;
  EXPECT_EQ(out.str(), text);
  EXPECT_EQ(Tunnel::browToString(BaseRow(row)), text);
  EXPECT_EQ(row.toJson(),
            R"({"genId":9223372036854775808, "entryHandle":0, "errorCode":65534, "deleted":true, "sip":"", )"
            R"("dip":"2001:db8::5", "protocol":17, "l4DestPort":0, "l4SrcPort":0})");
  EXPECT_EQ(row.bufferLength(), 36 + 16);
  const std::vector<ColumnText> masks{
      {"macAddrMask", "00:00:5e:00:53:01"}, {"priority", "4294967295"}, {"portNumMask", "255"}};
  const Station station(Lumen::rowFromText(classOf(Station::rowTypeName()), masks));
  EXPECT_EQ(station.toString(),
            R"(genId = 0, entryHandle = 0, errorCode = 0, deleted = false, macAddr = "00:00:00:00:00:00", )"
            R"(vlanId = 0, portNum = 0, t = false, macAddrMask = "00:00:5e:00:53:01", vlanIdMask = 0, )"
            R"(portNumMask = 255, tMask = false, priority = 4294967295)");
  EXPECT_EQ(Tunnel(BaseRow()).toString(), "len: 0, NULL");
  EXPECT_EQ(Lumen::rowText(BaseRow()), "len: 0, NULL");
}

TEST(RowText, KeyText_IsItsFieldsWhateverTheStreamIsSetTo) {
  std::ostringstream out;
  out << std::hex << kSampleTunnel << '|' << kSampleStation << '|' << L3IifTH3Key{0x100000005};
  EXPECT_EQ(out.str(),
            "192.0.2.1 2001:db8::5 17 12594 16706|"
            "00:00:5e:00:53:01 2571 81 true ff:ff:ff:00:00:0f 4095 127 false 1633837924|4294967301");
}

TEST(RowText, BadInput_IsAnsweredWithWhatWasExpected) {
  const struct {
    std::vector<ColumnText> columns;
    const char* answer;
    std::string_view rowTypeName = Station::rowTypeName();
  } cases[] = {
      {{{"vlanId", "65536"}},
       "column \"vlanId\": expected a decimal or 0x number from 0 to 65535 (uint16_t), got \"65536\""},
      {{{"vlanId", " 1"}}, "got \" 1\""},
      {{{"vlanId", "0x"}}, "got \"0x\""},
      {{{"portNum", "256"}}, "from 0 to 255 (uint8_t), got \"256\""},
      {{{"genId", "18446744073709551616"}}, "from 0 to 18446744073709551615 (uint64_t)"},
      {{{"t", "yes"}}, "expected true, false, 1 or 0 (bool), got \"yes\""},
      {{{"macAddr", "00:00:5e"}}, "expected an Ethernet address like 00:00:5e:00:53:01 (EthAddr)"},
      {{{"vlan", "1"}}, "expected one of the columns genId, entryHandle, errorCode"},
      {{{"t", "1"}, {"t", "0"}}, "column \"t\": expected one value, got a second: \"0\""},
      {{{"sip", "192.0.2"}}, "expected an IPv4 or IPv6 address, or nothing", Tunnel::rowTypeName()},
  };
  for (const auto& each : cases) {
    EXPECT_THAT([&] { Lumen::rowFromText(classOf(each.rowTypeName), each.columns); },
                testing::ThrowsMessage<Lumen::LmTextError>(testing::HasSubstr(each.answer)));
  }
}

TEST(RowMetadata, UnknownOrUnreadableClass_IsAnError) {
  EXPECT_THROW(Lumen::LumenDB::metadataIs("X"), Lumen::LmMetadataError);
  EXPECT_THROW(Lumen::LumenDB::tableTypeId("X", true), Lumen::LmMetadataError);
  EXPECT_THROW(Lumen::rowText(BaseRow(43)), Lumen::LmMetadataError);
  for (const char* descriptor : {"", "{}", R"({"a":"uint16_t")", R"({"a":"uint17_t"})", R"({"a":"bool"} )",
                                 R"({"a":"bool","b":"bool"})", R"({"a":"bool", "a":"uint8_t"})"}) {
    EXPECT_THROW(LmClass("X", 1, {descriptor, 0, 0}), Lumen::LmMetadataError) << descriptor;
  }
  const char* const good = R"({"a":"bool", "b":"bool"})";
  EXPECT_TRUE(LmClass("X", 1, {good, 1, 1}).column("b")->isKey);
  EXPECT_THROW(LmClass("X", 1, {good, 1, 2}), Lumen::LmMetadataError);
  EXPECT_THROW(LmClass("X", 1, {good, 2, ~std::size_t{0}}), Lumen::LmMetadataError);
}

}  // namespace
}  // namespace TolmarHwLib
