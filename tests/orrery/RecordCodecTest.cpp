#include "P4RuntimeTolmar/RecordCodec.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using namespace TolmarHwLib;

template <class Record>
auto encoded(const Record& record) {
  std::array<std::uint8_t, Vesta::Codec<Record>::size> bytes;
  bytes.fill(0xee);
  Vesta::Codec<Record>::encode(record, bytes.data());
  return bytes;
}

TEST(RecordCodec, Sizes_AreThoseOfTheSegmentFormat) {
  EXPECT_EQ(Vesta::Codec<L3TunnelTH3Key>::size, 39u);
  EXPECT_EQ(Vesta::Codec<L3TunnelTH3ConfigEntry>::size, 71u);
  EXPECT_EQ(Vesta::Codec<L3TunnelTH3StatusEntry>::size, 58u);
  EXPECT_EQ(Vesta::Codec<MyStationTcamTH3Key>::size, 24u);
  EXPECT_EQ(Vesta::Codec<MyStationTcamTH3ConfigEntry>::size, 49u);
  EXPECT_EQ(Vesta::Codec<MyStationTcamTH3StatusEntry>::size, 43u);
  EXPECT_EQ(Vesta::Codec<L3IifTH3Key>::size, 8u);
  EXPECT_EQ(Vesta::Codec<L3IifTH3ConfigEntry>::size, 39u);
  EXPECT_EQ(Vesta::Codec<L3IifTH3StatusEntry>::size, 27u);
}

TEST(RecordCodec, Bytes_WidestIntegersFirstLittleEndian) {
  L3IifTH3StatusEntry status;
  status.genId = 0x0102030405060708;
  status.entryHandle = 0x1112131415161718;
  status.errorCode = 0x2122;
  status.deleted = true;
  status.l3Iif = 0x3132333435363738;
  const std::array<std::uint8_t, 27> expected{8,    7,    6,    5,    4,    3,    2,    1,    0x18,
                                              0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11, 0x38, 0x37,
                                              0x36, 0x35, 0x34, 0x33, 0x32, 0x31, 0x22, 0x21, 1};
  EXPECT_EQ(encoded(status), expected);
}

TEST(RecordCodec, Addresses_KeepFamilyAndBytes) {
  L3TunnelTH3Key key;
  key.sip = *IpGenAddr::parse("192.0.2.1");
  key.dip = *IpGenAddr::parse("2001:db8::2");
  key.protocol = 47;
  const auto bytes = encoded(key);
  EXPECT_EQ(bytes[5], 1) << "addresses stand last";
  EXPECT_EQ(bytes[6], 192);
  EXPECT_EQ(bytes[10], 0) << "unused address bytes are zero";
  EXPECT_EQ(bytes[22], 2);
  L3TunnelTH3Key back;
  Vesta::Codec<L3TunnelTH3Key>::decode(bytes.data(), back);
  EXPECT_EQ(back, key);
}

TEST(RecordCodec, Addresses_UnsetOnesAreStoredAlike) {
  const std::uint8_t none[16]{};
  L3TunnelTH3Key a;
  L3TunnelTH3Key b;
  b.sip = IpGenAddr::fromBytes(7, none);
  ASSERT_EQ(a, b);
  EXPECT_EQ(encoded(a), encoded(b));
}

TEST(RecordCodec, Decode_TakesAnyBytes) {
  std::array<std::uint8_t, Vesta::Codec<L3TunnelTH3ConfigEntry>::size> bytes;
  bytes.fill(0xff);
  L3TunnelTH3ConfigEntry entry;
  Vesta::Codec<L3TunnelTH3ConfigEntry>::decode(bytes.data(), entry);
  EXPECT_TRUE(entry.valid);
  EXPECT_FALSE(entry.sip.isSet());
}

}  // namespace
