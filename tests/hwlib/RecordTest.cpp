// Keys and entries as values: what makes them equal, how they order, and that a key hashes like its rows.
#include <gtest/gtest.h>

#include <sstream>

#include "P4RuntimeTolmar/Records.h"
#include "P4RuntimeTolmar/RowLayout.h"

namespace TolmarHwLib {
namespace {

/// Calls check(name, changed) with `record` changed in one column at a time.
template <class Record, class Columns, class Check>
void forEachChange(const Record& record, const Columns& columns, Check check) {
  forEachColumn(columns, [&]<class C>(const C& column) {
    Record changed = record;
    auto& field = changed.*column.member;
    if constexpr (std::same_as<typename C::Type, bool>) {
      field = !field;
    } else if constexpr (std::same_as<typename C::Type, EthAddr>) {
      field.bytes[5] ^= 1;
    } else if constexpr (std::same_as<typename C::Type, IpGenAddr>) {
      field = IpGenAddr::ipv4({192, 0, 2, 99});
    } else {
      // The highest bit, so that a comparison in less than full width is seen.
      field = static_cast<typename C::Type>(field ^ typename C::Type{1} << (8 * sizeof field - 1));
    }
    check(column.name, changed);
  });
}

template <class Entry>
class RecordOf : public testing::Test {};
using Entries = testing::Types<L3TunnelTH3ConfigEntry, L3TunnelTH3StatusEntry, MyStationTcamTH3ConfigEntry,
                               MyStationTcamTH3StatusEntry, L3IifTH3ConfigEntry, L3IifTH3StatusEntry>;
TYPED_TEST_SUITE(RecordOf, Entries);

TYPED_TEST(RecordOf, EveryField_CountsInEquality) {
  const TypeParam entry;
  forEachChange(entry, RowLayout<TypeParam>::kColumns, [&](std::string_view name, const TypeParam& changed) {
    EXPECT_FALSE(entry == changed) << name;
    EXPECT_TRUE(changed == TypeParam(changed)) << name;
  });
}

TYPED_TEST(RecordOf, KeyFieldsAlone_MakeTheKey) {
  using Key = typename RowSchema<TypeParam>::Key;
  const TypeParam entry;
  forEachChange(entry, RowLayout<TypeParam>::kColumns, [&](std::string_view name, const TypeParam& changed) {
    bool isKey = false;
    forEachColumn(RowSchema<Key>::columns, [&](const auto& column) { isKey |= column.name == name; });
    EXPECT_EQ(entry.key() == changed.key(), !isKey) << name;
    EXPECT_EQ(entry.key() < changed.key(), isKey) << name;
    EXPECT_FALSE(changed.key() < entry.key()) << name;
  });
}

template <class A, class B>
concept Equal = requires(const A& a, const B& b) {
  a == b;
};
template <class T>
concept Ordered = requires(const T& a) {
  a < a;
};

TEST(Record, Entries_DoNotPassForTheirKeys) {
  EXPECT_TRUE((Equal<L3IifTH3Key, L3IifTH3Key> && Equal<L3IifTH3ConfigEntry, L3IifTH3ConfigEntry>));
  EXPECT_FALSE(
      (Equal<L3IifTH3ConfigEntry, L3IifTH3StatusEntry> || Equal<L3IifTH3StatusEntry, L3IifTH3ConfigEntry>));
  EXPECT_FALSE((Equal<L3IifTH3ConfigEntry, L3IifTH3Key> || Equal<L3IifTH3Key, L3IifTH3ConfigEntry>));
  EXPECT_TRUE(Ordered<L3IifTH3Key>);
  EXPECT_FALSE(Ordered<L3IifTH3ConfigEntry>);
}

TEST(Record, KeyOrder_IsThatOfTheFieldsInOrder) {
  EXPECT_LT((L3TunnelTH3Key{{}, {}, 0, 0, 65535}), (L3TunnelTH3Key{{}, {}, 0, 1, 0}));
  EXPECT_LT((L3TunnelTH3Key{{}, IpGenAddr::ipv6({255}), 255, 0, 0}),
            (L3TunnelTH3Key{IpGenAddr::ipv4({}), {}, 0, 0, 0}));
  EXPECT_LT(L3IifTH3Key{5}, L3IifTH3Key{0x100000005});
}

TEST(Record, AddressesOfBothFamilies_AreNeverEqual) {
  const IpGenAddr ipv4 = IpGenAddr::ipv4({192, 0, 2, 1});
  const IpGenAddr ipv6 = IpGenAddr::ipv6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 192, 0, 2, 1});
  EXPECT_NE((L3TunnelTH3Key{ipv4, {}, 0, 0, 0}), (L3TunnelTH3Key{ipv6, {}, 0, 0, 0}));
}

// Values computed apart from this code: block steps alone, over the low half of 64 bits and the addresses'
// hashes.
TEST(Record, KeyHash_IsThatOfTheTablesOtherUsers) {
  EXPECT_EQ(L3IifTH3Key{5}.hash(), 0x58b70b8cu);
  EXPECT_EQ(L3IifTH3Key{0x100000005}.hash(), 0x58b70b8cu);
  const L3TunnelTH3Key tunnel{
      IpGenAddr::ipv4({192, 0, 2, 1}),
      IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05}), 17, 0x3132, 0x4142};
  EXPECT_EQ(tunnel.hash(), 0x7f1e15a7u);
  const MyStationTcamTH3Key station{{{0, 0, 0x5e, 0, 0x53, 1}},
                                    0x0a0b,
                                    0x51,
                                    true,
                                    {{0xff, 0xff, 0xff, 0, 0, 0x0f}},
                                    0x0fff,
                                    0x7f,
                                    false,
                                    0x61626364};
  EXPECT_EQ(station.hash(), 0x90c5b562u);
}

TEST(Record, KeyText_IsItsFieldsWhateverTheStreamIsSetTo) {
  std::ostringstream out;
  out << std::hex << L3IifTH3Key{4711} << '|'
      << L3TunnelTH3Key{IpGenAddr::ipv4({192, 0, 2, 1}), {}, 17, 4789, 1};
  EXPECT_EQ(out.str(), "4711|192.0.2.1  17 4789 1");
}

}  // namespace
}  // namespace TolmarHwLib
