#include "cairn/Hash.h"

#include <gtest/gtest.h>

#include <random>
#include <string_view>
#include <vector>

namespace {

struct HashCase {
  std::string_view text;
  std::uint32_t hash;
};

// Published values of the 32-bit hash with seed 0; every length of the tail is among them.
constexpr HashCase kHashes[] = {
    {"", 0x00000000},
    {"a", 0x3c2569b2},
    {"abc", 0xb3dd93fa},
    {"\x21", 0x72661cf4},
    {"\x21\x43", 0xa0f7b07a},
    {"\x21\x43\x65", 0x7e4a8634},
    {"\x21\x43\x65\x87", 0xf55b516b},
    {"test", 0xba6bd213},
    {"Hello, world!", 0xc0363e43},
    {"The quick brown fox jumps over the lazy dog", 0x2e4ff723},
    {std::string_view("\0\0\0\0", 4), 0x2362f9de},
    {"\xff\xff\xff\xff", 0x76293b50},
};

TEST(Hash, MatchesThePublishedValues) {
  for (const HashCase& c : kHashes)
    EXPECT_EQ(Cairn::Util::hash(c.text.data(), c.text.size()), c.hash) << c.text;
}

constexpr HashCase kChecksums[] = {
    {"", 0x00000000},
    {"a", 0xc1d04330},
    {"123456789", 0xe3069283},
    {std::string_view("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 32), 0x8a9136aa},
    {"\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff\xff"
     "\xff\xff"
     "\xff\xff\xff\xff\xff",
     0x62a8ab43},
};

TEST(Checksum, MatchesThePublishedValues) {
  for (const HashCase& c : kChecksums) {
    EXPECT_EQ(Cairn::checksum(c.text.data(), c.text.size()), c.hash) << c.text;
    EXPECT_EQ(Cairn::checksumByTable(c.text.data(), c.text.size()), c.hash) << c.text;
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
      const std::uint32_t pieces =
          Cairn::checksum(from + first, length - first, Cairn::checksum(from, first));
      ASSERT_EQ(pieces, whole) << begin << "+" << length;
    }
  }
}

}  // namespace
