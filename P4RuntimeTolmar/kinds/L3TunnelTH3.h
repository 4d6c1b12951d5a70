// The L3 tunnel termination tables. The IPv4 and the IPv6 table share the types and differ in the addresses.
#pragma once

#include "P4RuntimeTolmar/TableKind.h"
#include "cairn/IpGenAddr.h"

namespace TolmarHwLib {

struct L3TunnelTH3Key {
  IpGenAddr sip;  ///< outer source address
  IpGenAddr dip;  ///< outer destination address
  std::uint8_t protocol = 0;
  std::uint16_t l4DestPort = 0;
  std::uint16_t l4SrcPort = 0;

  using Key = L3TunnelTH3Key;
  static constexpr std::string_view kind = "L3TunnelTH3";
  static constexpr std::tuple keyColumns{
      Column{"sip", &Key::sip}, Column{"dip", &Key::dip}, Column{"protocol", &Key::protocol},
      Column{"l4DestPort", &Key::l4DestPort}, Column{"l4SrcPort", &Key::l4SrcPort}};
  Key key() const { return *this; }
  std::uint32_t hash() const { return hashKey(*this); }
};

struct L3TunnelTH3ConfigEntry : ConfigBookkeeping, L3TunnelTH3Key {
  std::uint8_t allowedPortBitmapProfilePtr = 0;
  bool bfdEnable = false;
  bool doNotChangeInnerHdrDscp = false;
  bool grePayloadIpv4 = false;
  bool grePayloadIpv6 = false;
  std::uint16_t l3Iif = 0;  ///< 16 bits here, 64 bits as the key of the L3 IIF table
  bool payloadIpv4 = false;
  bool payloadIpv6 = false;
  std::uint8_t subTunnelType = 0;
  std::uint16_t tunnelClassId = 0;
  bool tunnelType = false;
  bool useOuterHdrDscp = false;
  bool useOuterHdrTtl = false;

  using Entry = L3TunnelTH3ConfigEntry;
  static constexpr std::tuple dataColumns{
      Column{"allowedPortBitmapProfilePtr", &Entry::allowedPortBitmapProfilePtr},
      Column{"bfdEnable", &Entry::bfdEnable},
      Column{"doNotChangeInnerHdrDscp", &Entry::doNotChangeInnerHdrDscp},
      Column{"grePayloadIpv4", &Entry::grePayloadIpv4},
      Column{"grePayloadIpv6", &Entry::grePayloadIpv6},
      Column{"l3Iif", &Entry::l3Iif},
      Column{"payloadIpv4", &Entry::payloadIpv4},
      Column{"payloadIpv6", &Entry::payloadIpv6},
      Column{"subTunnelType", &Entry::subTunnelType},
      Column{"tunnelClassId", &Entry::tunnelClassId},
      Column{"tunnelType", &Entry::tunnelType},
      Column{"useOuterHdrDscp", &Entry::useOuterHdrDscp},
      Column{"useOuterHdrTtl", &Entry::useOuterHdrTtl}};
};

struct L3TunnelTH3StatusEntry : StatusBookkeeping, L3TunnelTH3Key {};

struct L3TunnelTH3Config final : TableEntityOf<L3TunnelTH3Config, L3TunnelTH3ConfigEntry> {
  using TableEntityOf::TableEntityOf;
  ~L3TunnelTH3Config() override;
};

struct L3TunnelTH3Status final : TableEntityOf<L3TunnelTH3Status, L3TunnelTH3StatusEntry> {
  using TableEntityOf::TableEntityOf;
  ~L3TunnelTH3Status() override;
};

using L3TunnelTH3 = TableKind<L3TunnelTH3Config, L3TunnelTH3Status>;

extern template class TableEntityOf<L3TunnelTH3Config, L3TunnelTH3ConfigEntry>;
extern template class TableEntityOf<L3TunnelTH3Status, L3TunnelTH3StatusEntry>;

}  // namespace TolmarHwLib
