#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <vector>

#include "cairn/EthAddr.h"
#include "cairn/IpGenAddr.h"

namespace {

TEST(EthAddress, ReadsOnlySixPairs) {
  const EthAddr expected{{0x00, 0x00, 0x5e, 0x00, 0x53, 0xaf}};
  EXPECT_EQ(EthAddr::parse("00:00:5e:00:53:af"), expected);
  EXPECT_EQ(EthAddr::parse("00:00:5E:00:53:AF"), expected);
  EXPECT_EQ(expected.toString(), "00:00:5e:00:53:af");
  for (const char* const wrong :
       {"", "00:00:5e:00:53", "00:00:5e:00:53:af:", "00:00:5e:00:53:a", "00-00-5e-00-53-af",
        "0000:5e:00:53:af0", "00:00:5e:00:53:ag", " 0:00:5e:00:53:af", "+0:00:5e:00:53:af"}) {
    EXPECT_EQ(EthAddr::parse(wrong), std::nullopt) << wrong;
  }
}

struct IpCase {
  const char* text;
  std::uint8_t family;
  const char* printed;  // null: refused
};

TEST(IpAddress, ReadsAndPrintsBothFamilies) {
  static constexpr IpCase kCases[] = {
      {"192.0.2.1", 1, "192.0.2.1"},
      {"0.0.0.0", 1, "0.0.0.0"},
      {"2001:DB8:0::1", 2, "2001:db8::1"},
      {"::", 2, "::"},
      {"::ffff:192.0.2.1", 2, "::ffff:192.0.2.1"},
      {"", 0, ""},
      {"192.0.2", 0, nullptr},
      {"192.0.2.256", 0, nullptr},
      {"192.0.2.1 ", 0, nullptr},
      {"2001:db8::1::", 0, nullptr},
      {"blue", 0, nullptr},
  };
  for (const IpCase& c : kCases) {
    SCOPED_TRACE(c.text);
    const auto address = IpGenAddr::parse(c.text);
    ASSERT_EQ(address.has_value(), c.printed != nullptr);
    if (!address) continue;
    EXPECT_EQ(address->family(), c.family);
    std::ostringstream out;
    out << *address;
    EXPECT_EQ(out.str(), c.printed);
  }
  EXPECT_EQ(IpGenAddr::parse(std::string_view("192.0.2.1\0junk", 14)), std::nullopt);
}

TEST(IpAddress, OrderIsUnsetThenIpv4ThenIpv6ThenBytewise) {
  const std::uint8_t bytes[16] = {0xff, 0xff, 0xff, 0xff, 0xff};
  const std::vector<IpGenAddr> ordered{
      IpGenAddr(),
      IpGenAddr::ipv4({0, 0, 0, 0}),
      IpGenAddr::ipv4({127, 255, 255, 255}),
      IpGenAddr::ipv4({128, 0, 0, 0}),
      IpGenAddr::ipv6({}),
      *IpGenAddr::parse("::1"),
      *IpGenAddr::parse("8000::"),
  };
  for (std::size_t i = 0; i < ordered.size(); ++i) {
    for (std::size_t j = 0; j < ordered.size(); ++j) {
      EXPECT_EQ(ordered[i] <=> ordered[j], i <=> j) << i << " " << j;
      EXPECT_EQ(ordered[i] == ordered[j], i == j) << i << " " << j;
    }
  }
  for (const int family : {0, 3, 255}) {
    EXPECT_EQ(IpGenAddr::fromBytes(static_cast<std::uint8_t>(family), bytes), IpGenAddr()) << family;
  }
  EXPECT_EQ(IpGenAddr::fromBytes(1, bytes), IpGenAddr::ipv4({255, 255, 255, 255}));
}

}  // namespace
