// The MyStation TCAM table.
#pragma once

#include "P4RuntimeTolmar/TableKind.h"
#include "cairn/EthAddr.h"

namespace TolmarHwLib {

/// An entry is identified by its values, its masks and its priority together.
struct MyStationTcamTH3Key {
  EthAddr macAddr;
  std::uint16_t vlanId = 0;
  std::uint8_t portNum = 0;
  bool t = false;  ///< qualifier that accompanies portNum
  EthAddr macAddrMask;
  std::uint16_t vlanIdMask = 0;
  std::uint8_t portNumMask = 0;
  bool tMask = false;
  std::uint32_t priority = 0;

  using Key = MyStationTcamTH3Key;
  static constexpr std::string_view kind = "MyStationTcamTH3";
  static constexpr std::tuple keyColumns{
      Column{"macAddr", &Key::macAddr},         Column{"vlanId", &Key::vlanId},
      Column{"portNum", &Key::portNum},         Column{"t", &Key::t},
      Column{"macAddrMask", &Key::macAddrMask}, Column{"vlanIdMask", &Key::vlanIdMask},
      Column{"portNumMask", &Key::portNumMask}, Column{"tMask", &Key::tMask},
      Column{"priority", &Key::priority}};
  Key key() const { return *this; }
  std::uint32_t hash() const { return hashKey(*this); }
};

struct MyStationTcamTH3ConfigEntry : ConfigBookkeeping, MyStationTcamTH3Key {
  bool arpRarpTerminationAllowed = false;
  bool copyToCpu = false;
  bool discard = false;
  bool ipv4MulticastTerminationAllowed = false;
  bool ipv4TerminationAllowed = false;
  bool ipv6MulticastTerminationAllowed = false;
  bool ipv6TerminationAllowed = false;
  bool mplsTerminationAllowed = false;

  using Entry = MyStationTcamTH3ConfigEntry;
  static constexpr std::tuple dataColumns{
      Column{"arpRarpTerminationAllowed", &Entry::arpRarpTerminationAllowed},
      Column{"copyToCpu", &Entry::copyToCpu},
      Column{"discard", &Entry::discard},
      Column{"ipv4MulticastTerminationAllowed", &Entry::ipv4MulticastTerminationAllowed},
      Column{"ipv4TerminationAllowed", &Entry::ipv4TerminationAllowed},
      Column{"ipv6MulticastTerminationAllowed", &Entry::ipv6MulticastTerminationAllowed},
      Column{"ipv6TerminationAllowed", &Entry::ipv6TerminationAllowed},
      Column{"mplsTerminationAllowed", &Entry::mplsTerminationAllowed}};
};

struct MyStationTcamTH3StatusEntry : StatusBookkeeping, MyStationTcamTH3Key {};

struct MyStationTcamTH3Config final : TableEntityOf<MyStationTcamTH3Config, MyStationTcamTH3ConfigEntry> {
  using TableEntityOf::TableEntityOf;
  ~MyStationTcamTH3Config() override;
};

struct MyStationTcamTH3Status final : TableEntityOf<MyStationTcamTH3Status, MyStationTcamTH3StatusEntry> {
  using TableEntityOf::TableEntityOf;
  ~MyStationTcamTH3Status() override;
};

using MyStationTcamTH3 = TableKind<MyStationTcamTH3Config, MyStationTcamTH3Status>;

extern template class TableEntityOf<MyStationTcamTH3Config, MyStationTcamTH3ConfigEntry>;
extern template class TableEntityOf<MyStationTcamTH3Status, MyStationTcamTH3StatusEntry>;

}  // namespace TolmarHwLib
