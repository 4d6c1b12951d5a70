#include "P4RuntimeTolmar/RecordCodec.h"

#include <gmock/gmock.h>

#include <array>

namespace {

using namespace TolmarHwLib;
using Vesta::Codec;

template <class Record>
auto encoded(const Record& record) {
  std::array<std::uint8_t, Codec<Record>::size> bytes;
  bytes.fill(0xee);
  Codec<Record>::encode(record, bytes.data());
  return bytes;
}

TEST(RecordCodec, Sizes_AreThoseOfTheSegmentFormat) {
  const std::size_t sizes[] = {Codec<L3TunnelTH3Key>::size,
                               Codec<L3TunnelTH3ConfigEntry>::size,
                               Codec<L3TunnelTH3StatusEntry>::size,
                               Codec<MyStationTcamTH3Key>::size,
                               Codec<MyStationTcamTH3ConfigEntry>::size,
                               Codec<MyStationTcamTH3StatusEntry>::size,
                               Codec<L3IifTH3Key>::size,
                               Codec<L3IifTH3ConfigEntry>::size,
                               Codec<L3IifTH3StatusEntry>::size};
  EXPECT_THAT(sizes, testing::ElementsAre(39, 71, 58, 24, 49, 43, 8, 39, 27));
}

TEST(RecordCodec, Bytes_WidestIntegersFirstLittleEndian) {
  L3IifTH3StatusEntry status;
  status.genId = 0x0102030405060708;
  status.entryHandle = 0x1112131415161718;
  status.errorCode = 0x2122;
  status.deleted = true;
  status.l3Iif = 0x3132333435363738;
  EXPECT_THAT(encoded(status),
              testing::ElementsAre(8, 7, 6, 5, 4, 3, 2, 1, 0x18, 0x17, 0x16, 0x15, 0x14, 0x13, 0x12, 0x11,
                                   0x38, 0x37, 0x36, 0x35, 0x34, 0x33, 0x32, 0x31, 0x22, 0x21, 1));
}

TEST(RecordCodec, Addresses_KeepFamilyAndBytesAndUnsetOnesAreStoredAlike) {
  L3TunnelTH3Key key, back;
  key.sip = *IpGenAddr::parse("192.0.2.1");
  key.dip = *IpGenAddr::parse("2001:db8::2");
  auto bytes = encoded(key);
  EXPECT_EQ(bytes[5], 1) << "addresses stand last";
  EXPECT_EQ(bytes[6], 192);
  EXPECT_EQ(bytes[10], 0) << "unused address bytes are zero";
  EXPECT_EQ(bytes[22], 2);
  Codec<L3TunnelTH3Key>::decode(bytes.data(), back);
  EXPECT_EQ(back, key);
  bytes.fill(0xff);
  Codec<L3TunnelTH3Key>::decode(bytes.data(), back);
  EXPECT_EQ(encoded(back)[5], 0);
  EXPECT_EQ(encoded(back)[6], 0);
}

}  // namespace
