#include <gtest/gtest.h>

#include "cairn/EthAddr.h"
#include "cairn/IpGenAddr.h"

namespace {

TEST(EthAddress, ReadsOnlySixPairs) {
  const EthAddr expected{{0x00, 0x00, 0x5e, 0x00, 0x53, 0xaf}};
  EXPECT_EQ(EthAddr::parse("00:00:5e:00:53:af"), expected);
  EXPECT_EQ(EthAddr::parse("00:00:5E:00:53:AF"), expected);
  EXPECT_EQ(expected.toString(), "00:00:5e:00:53:af");
  for (const char* const wrong :
       {"", "00:00:5e:00:53", "00:00:5e:00:53:af:", "00-00-5e-00-53-af", "0000:5e:00:53:af0",
        "00:00:5e:00:53:ag", " 0:00:5e:00:53:af", "+0:00:5e:00:53:af"}) {
    EXPECT_EQ(EthAddr::parse(wrong), std::nullopt) << wrong;
  }
}

TEST(IpAddress, ReadsAndPrintsBothFamilies) {
  const auto reprinted = [](std::string_view text) {
    const IpGenAddr address = IpGenAddr::parse(text).value();
    return std::to_string(address.family()) + " " + address.toString();
  };
  EXPECT_EQ(reprinted("192.0.2.1"), "1 192.0.2.1");
  EXPECT_EQ(reprinted("2001:DB8:0::1"), "2 2001:db8::1");
  EXPECT_EQ(reprinted("::ffff:192.0.2.1"), "2 ::ffff:192.0.2.1");
  EXPECT_EQ(reprinted(""), "0 ");
  for (const std::string_view wrong : {std::string_view("192.0.2.1\0junk", 14), std::string_view("192.0.2"),
                                       std::string_view("192.0.2.1 "), std::string_view("2001:db8::1::")}) {
    EXPECT_EQ(IpGenAddr::parse(wrong), std::nullopt) << wrong;
  }
  const std::uint8_t bytes[16] = {0xff, 0xff, 0xff, 0xff, 0xff};
  EXPECT_EQ(IpGenAddr::fromBytes(3, bytes), IpGenAddr());
  EXPECT_EQ(IpGenAddr::fromBytes(1, bytes), IpGenAddr::ipv4({255, 255, 255, 255}));
}

}  // namespace
