#include "cairn/Hash.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

// Published values of the 32-bit hash with seed 0; every length of the tail is among them.
TEST(Hash, MatchesThePublishedValues) {
  const std::pair<std::string, std::uint32_t> cases[] = {
      {"", 0x00000000},
      {"\x21", 0x72661cf4},
      {"\x21\x43", 0xa0f7b07a},
      {"\x21\x43\x65", 0x7e4a8634},
      {"\x21\x43\x65\x87", 0xf55b516b},
      {"\xff\xff\xff\xff", 0x76293b50},
      {"The quick brown fox jumps over the lazy dog", 0x2e4ff723},
  };
  for (const auto& [text, hash] : cases) EXPECT_EQ(Cairn::Util::hash(text.data(), text.size()), hash) << text;
}

TEST(Checksum, MatchesThePublishedValues) {
  const std::pair<std::string, std::uint32_t> cases[] = {{"", 0x00000000},
                                                         {"123456789", 0xe3069283},
                                                         {std::string(32, '\0'), 0x8a9136aa},
                                                         {std::string(32, '\xff'), 0x62a8ab43}};
  for (const auto& [text, checksum] : cases) {
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
