// Keys and entries as values: what makes them equal, how they order, and that a key hashes like its rows.
#include <gtest/gtest.h>

#include <sstream>

#include "P4RuntimeTolmar/RowLayout.h"

namespace TolmarHwLib {
namespace {

/// `value` made larger; a number by its highest bit, so that a comparison in less than full width is seen.
template <class T>
T larger(T value) {
  if constexpr (std::same_as<T, EthAddr>) return {{0, 0, 0, 0, 0, 1}};
  if constexpr (std::same_as<T, IpGenAddr>) return IpGenAddr::ipv4({192, 0, 2, 99});
  if constexpr (std::integral<T>) {
    return static_cast<T>(value | T{1} << (std::same_as<T, bool> ? 0 : 8 * sizeof(T) - 1));
  }
}

template <class Entry>
class RecordOf : public testing::Test {};
using Entries = testing::Types<L3TunnelTH3ConfigEntry, L3TunnelTH3StatusEntry, MyStationTcamTH3ConfigEntry,
                               MyStationTcamTH3StatusEntry, L3IifTH3ConfigEntry, L3IifTH3StatusEntry>;
TYPED_TEST_SUITE(RecordOf, Entries);

TYPED_TEST(RecordOf, EveryField_CountsInTheEntryAndKeyFieldsInTheKey) {
  using Key = typename RowSchema<TypeParam>::Key;
  const TypeParam entry;
  forEachColumn(RowLayout<TypeParam>::kColumns, [&](const auto& column) {
    SCOPED_TRACE(column.name);
    TypeParam changed;
    changed.*column.member = larger(entry.*column.member);
    EXPECT_FALSE(entry == changed);
    EXPECT_TRUE(changed == TypeParam(changed));
    bool isKey = false;
    forEachColumn(RowSchema<Key>::columns, [&](const auto& key) { isKey |= column.name == key.name; });
    EXPECT_EQ(entry.key() == changed.key(), !isKey);
    EXPECT_EQ(entry.key() < changed.key(), isKey);
    EXPECT_FALSE(changed.key() < entry.key());
  });
}

template <class A, class B>
concept Equal = requires(const A& a, const B& b) {
  a == b;
};

TEST(Record, Entries_DoNotPassForTheirKeys) {
  EXPECT_TRUE((Equal<L3IifTH3Key, L3IifTH3Key> && Equal<L3IifTH3ConfigEntry, L3IifTH3ConfigEntry>));
  EXPECT_FALSE((Equal<L3IifTH3ConfigEntry, L3IifTH3StatusEntry>));
  EXPECT_FALSE((Equal<L3IifTH3ConfigEntry, L3IifTH3Key> || Equal<L3IifTH3Key, L3IifTH3ConfigEntry>));
  EXPECT_FALSE((std::totally_ordered<L3IifTH3ConfigEntry>));
}

TEST(Record, KeyOrder_IsThatOfTheFieldsInOrder) {
  EXPECT_LT((L3TunnelTH3Key{{}, {}, 0, 0, 65535}), (L3TunnelTH3Key{{}, {}, 0, 1, 0}));
  EXPECT_LT((L3TunnelTH3Key{{}, IpGenAddr::ipv6({255}), 255, 0, 0}),
            (L3TunnelTH3Key{IpGenAddr::ipv4({}), {}, 0, 0, 0}));
  EXPECT_LT(L3IifTH3Key{5}, L3IifTH3Key{0x100000005});
}

// Values computed apart from this code: block steps alone, over the low half of 64 bits and the addresses'
// hashes.
TEST(Record, KeyHash_IsThatOfTheTablesOtherUsers) {
  EXPECT_EQ(L3IifTH3Key{5}.hash(), 0x58b70b8cu);
  EXPECT_EQ(L3IifTH3Key{0x100000005}.hash(), 0x58b70b8cu);
  const IpGenAddr dip = IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05});
  EXPECT_EQ((L3TunnelTH3Key{IpGenAddr::ipv4({192, 0, 2, 1}), dip, 17, 0x3132, 0x4142}.hash()), 0x7f1e15a7u);
  const EthAddr mac{{0x00, 0x00, 0x5e, 0x00, 0x53, 0x01}};
  const EthAddr mask{{0xff, 0xff, 0xff, 0x00, 0x00, 0x0f}};
  const MyStationTcamTH3Key station{mac, 0x0a0b, 0x51, true, mask, 0x0fff, 0x7f, false, 0x61626364};
  EXPECT_EQ(station.hash(), 0x90c5b562u);
}

TEST(Record, KeyText_IsItsFieldsWhateverTheStreamIsSetTo) {
  std::ostringstream out;
  out << std::hex << L3TunnelTH3Key{IpGenAddr::ipv4({192, 0, 2, 1}), {}, 17, 4789, 1};
  EXPECT_EQ(out.str(), "192.0.2.1  17 4789 1");
}

}  // namespace
}  // namespace TolmarHwLib
