#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "cairn/Assert.h"
#include "cairn/EthAddr.h"
#include "cairn/Hash.h"
#include "cairn/IpGenAddr.h"

namespace {

TEST(Addresses, Texts_AreReadWholeOrNotAtAll) {
  EXPECT_EQ(EthAddr::parse("00:00:5E:00:53:af"), (EthAddr{{0x00, 0x00, 0x5e, 0x00, 0x53, 0xaf}}));
  for (const char* const wrong :
       {"", "00:00:5e:00:53", "00:00:5e:00:53:af:", "00-00-5e-00-53-af", "0000:5e:00:53:af0",
        "00:00:5e:00:53:ag", " 0:00:5e:00:53:af", "+0:00:5e:00:53:af"}) {
    EXPECT_EQ(EthAddr::parse(wrong), std::nullopt) << wrong;
  }
  for (const auto& [text, family] :
       {std::pair{"192.0.2.1", 1}, {"2001:db8::1", 2}, {"::ffff:192.0.2.1", 2}, {"", 0}}) {
    EXPECT_EQ(IpGenAddr::parse(text).value().family(), family);
    EXPECT_EQ(IpGenAddr::parse(text).value().toString(), text);
  }
  using namespace std::string_view_literals;
  for (const auto wrong : {"192.0.2.1\0junk"sv, "192.0.2"sv, "192.0.2.1 "sv, "2001:db8::1::"sv}) {
    EXPECT_EQ(IpGenAddr::parse(wrong), std::nullopt) << wrong;
  }
  const std::uint8_t bytes[16] = {0xff, 0xff, 0xff, 0xff, 0xff};
  EXPECT_EQ(IpGenAddr::fromBytes(3, bytes), IpGenAddr());
  EXPECT_EQ(IpGenAddr::fromBytes(1, bytes), IpGenAddr::ipv4({255, 255, 255, 255}));
}

TEST(Assertion, ThatStops_NotifiesItsHandlerAndStopsAllTheSame) {
  const auto fail = [](auto handler) {
    Cairn::fatalHandlerIs(handler);
    Cairn::requireOrStop(false, "adb", "attach");
  };
  EXPECT_DEATH(fail(nullptr), "assertion failed: adb in attach");
  EXPECT_DEATH(fail([](const char*, const char*) { std::fputs("reported and returned\n", stderr); }),
               "reported and returned");
}

// Published values, the hash with seed 0; every length of a tail is among them.
TEST(Hash, MatchesThePublishedValues) {
  const std::pair<std::string, std::uint32_t> hashes[] = {
      {"", 0x00000000},
      {"\x21", 0x72661cf4},
      {"\x21\x43", 0xa0f7b07a},
      {"\x21\x43\x65", 0x7e4a8634},
      {"\x21\x43\x65\x87", 0xf55b516b},
      {"The quick brown fox jumps over the lazy dog", 0x2e4ff723}};
  for (const auto& [text, hash] : hashes) EXPECT_EQ(Cairn::Util::hash(text.data(), text.size()), hash);
  const std::pair<std::string, std::uint32_t> checksums[] = {
      {"", 0x00000000}, {"123456789", 0xe3069283}, {std::string(32, '\xff'), 0x62a8ab43}};
  for (const auto& [text, checksum] : checksums) {
    EXPECT_EQ(Cairn::checksum(text.data(), text.size()), checksum) << text;
  }
}

TEST(Checksum, IsTheSameBothWaysAndInPieces) {
  std::mt19937 random(7);
  std::vector<unsigned char> bytes(200);
  for (auto& byte : bytes) byte = static_cast<unsigned char>(random());
  for (std::size_t begin = 0; begin < 9; ++begin) {
    for (std::size_t length = 0; length + begin <= bytes.size(); ++length) {
      const auto* const from = bytes.data() + begin;
      const std::uint32_t whole = Cairn::checksum(from, length);
      ASSERT_EQ(Cairn::checksumByTable(from, length), whole) << begin << "+" << length;
      const std::size_t first = length / 3;
      ASSERT_EQ(Cairn::checksum(from + first, length - first, Cairn::checksum(from, first)), whole);
    }
  }
}

}  // namespace
