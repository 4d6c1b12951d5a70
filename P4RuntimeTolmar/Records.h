// The records of the three TH3 table kinds: the key, the config entry (what the agent asks the hardware to
// hold) and the status entry (what the hardware agent answers). Values, all zero at first. The meaning of the
// hardware fields is the hardware's; nothing here interprets them.
//
// Keys hash like the key columns of their rows, compare field by field and order in field order, all fields
// in full width. Their text, used in traces, is the fields in order joined by one blank.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>

#include "cairn/EthAddr.h"
#include "cairn/IpGenAddr.h"

namespace TolmarHwLib {

struct ConfigBookkeeping {
  std::uint64_t genId = 0;        ///< generation of the write that produced the entry
  std::uint64_t entryHandle = 0;  ///< handle under which the agent tracks the entry
  bool valid = false;             ///< the entry is to be programmed

  friend bool operator==(const ConfigBookkeeping&, const ConfigBookkeeping&) = default;
};

struct StatusBookkeeping {
  std::uint64_t genId = 0;        ///< generation that the hardware agent has processed
  std::uint64_t entryHandle = 0;  ///< handle of the config entry that is answered
  std::uint16_t errorCode = 0;    ///< 0 on success, otherwise the hardware agent's code
  bool deleted = false;           ///< the hardware has removed the entry

  friend bool operator==(const StatusBookkeeping&, const StatusBookkeeping&) = default;
};

/// Tunnel termination; IPv4 and IPv6 tables share the type and differ in the addresses.
struct L3TunnelTH3Key {
  IpGenAddr sip;  ///< outer source address
  IpGenAddr dip;  ///< outer destination address
  std::uint8_t protocol = 0;
  std::uint16_t l4DestPort = 0;
  std::uint16_t l4SrcPort = 0;

  std::uint32_t hash() const;
  friend bool operator==(const L3TunnelTH3Key&, const L3TunnelTH3Key&) = default;
  friend std::strong_ordering operator<=>(const L3TunnelTH3Key&, const L3TunnelTH3Key&) = default;
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

  L3TunnelTH3Key key() const { return *this; }
  friend bool operator==(const L3TunnelTH3ConfigEntry&, const L3TunnelTH3ConfigEntry&) = default;
};

struct L3TunnelTH3StatusEntry : StatusBookkeeping, L3TunnelTH3Key {
  L3TunnelTH3Key key() const { return *this; }
  friend bool operator==(const L3TunnelTH3StatusEntry&, const L3TunnelTH3StatusEntry&) = default;
};

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

  std::uint32_t hash() const;
  friend bool operator==(const MyStationTcamTH3Key&, const MyStationTcamTH3Key&) = default;
  friend std::strong_ordering operator<=>(const MyStationTcamTH3Key&, const MyStationTcamTH3Key&) = default;
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

  MyStationTcamTH3Key key() const { return *this; }
  friend bool operator==(const MyStationTcamTH3ConfigEntry&, const MyStationTcamTH3ConfigEntry&) = default;
};

struct MyStationTcamTH3StatusEntry : StatusBookkeeping, MyStationTcamTH3Key {
  MyStationTcamTH3Key key() const { return *this; }
  friend bool operator==(const MyStationTcamTH3StatusEntry&, const MyStationTcamTH3StatusEntry&) = default;
};

struct L3IifTH3Key {
  std::uint64_t l3Iif = 0;  ///< L3 ingress interface index

  std::uint32_t hash() const;
  friend bool operator==(const L3IifTH3Key&, const L3IifTH3Key&) = default;
  friend std::strong_ordering operator<=>(const L3IifTH3Key&, const L3IifTH3Key&) = default;
};

struct L3IifTH3ConfigEntry : ConfigBookkeeping, L3IifTH3Key {
  std::uint16_t classId = 0;
  std::uint8_t ecnDecapMappingPtr = 0;
  std::uint16_t flexCtrBaseCounterIdx = 0;
  std::uint8_t flexCtrOffsetMode = 0;
  std::uint8_t flexCtrPoolNumber = 0;
  bool intEnable = false;
  std::uint16_t ipmcL3Iif = 0;
  std::uint8_t ipOptionProfileIndex = 0;
  std::uint8_t l3IifProfileIndex = 0;
  std::uint16_t vrf = 0;  ///< VRF to which the interface belongs

  L3IifTH3Key key() const { return *this; }
  friend bool operator==(const L3IifTH3ConfigEntry&, const L3IifTH3ConfigEntry&) = default;
};

struct L3IifTH3StatusEntry : StatusBookkeeping, L3IifTH3Key {
  L3IifTH3Key key() const { return *this; }
  friend bool operator==(const L3IifTH3StatusEntry&, const L3IifTH3StatusEntry&) = default;
};

template <class T>
concept EntryRecord = requires(const T& record) {
  record.key();
};

// An entry would pass for its key in these: whoever means the key asks for it.
template <EntryRecord Entry, class Other>
bool operator==(const Entry&, const Other&) = delete;
template <EntryRecord Entry, class Other>
std::strong_ordering operator<=>(const Entry&, const Other&) = delete;
template <EntryRecord Entry>
std::ostream& operator<<(std::ostream&, const Entry&) = delete;

std::ostream& operator<<(std::ostream& out, const L3TunnelTH3Key& key);
std::ostream& operator<<(std::ostream& out, const MyStationTcamTH3Key& key);
std::ostream& operator<<(std::ostream& out, const L3IifTH3Key& key);

}  // namespace TolmarHwLib
