// The format of every row class once more, as literals that the code under test has no part in: a sample
// entry of each class, and the bytes and hashes of its row.
#pragma once

#include <gtest/gtest.h>

#include <vector>

#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"

namespace TolmarHwLib {

template <class... Kind>
std::tuple<std::pair<ConfigEntryRowOf<Kind>, StatusEntryRowOf<Kind>>...> rowsOf(KindList<Kind...>);
template <class... Config, class... Status>
testing::Types<Config..., Status...> typesOf(const std::tuple<std::pair<Config, Status>...>&);
/// Every row class.
using EntryRows = decltype(typesOf(rowsOf(Kinds())));

inline const IpGenAddr kSampleSip = IpGenAddr::ipv4({192, 0, 2, 1});
inline const IpGenAddr kSampleDip =
    IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05});
inline const EthAddr kSampleMac{{0x00, 0x00, 0x5e, 0x00, 0x53, 0x01}};
inline const EthAddr kSampleMask{{0xff, 0xff, 0xff, 0x00, 0x00, 0x0f}};
inline const ConfigBookkeeping kSampleConfig{0x0102030405060708, 0x1112131415161718, true};
inline const StatusBookkeeping kSampleStatus{0x0102030405060708, 0x1112131415161718, 0x2122, true};
inline const L3TunnelTH3Key kSampleTunnel{kSampleSip, kSampleDip, 0x11, 0x3132, 0x4142};
inline const MyStationTcamTH3Key kSampleStation{kSampleMac, 0x0a0b, 0x51,  true,      kSampleMask,
                                                0x0fff,     0x7f,   false, 0x61626364};

struct PinnedNumbers {
  len_t fixedLength;
  std::vector<len_t> variableColumns;
  std::uint32_t rowHash;
  std::uint32_t keyHash;
  std::size_t storedSize;  // in shared memory; of the key, too
  std::size_t storedKeySize;
};

template <class Entry>
struct PinnedRow {
  std::string_view name;
  std::string_view descriptor;
  PinnedNumbers numbers;
  std::string_view hex;  // without the row type, bytes 2 and 3
  Entry entry;
};

template <class Row>
extern const PinnedRow<typename Row::EntryType> kPinned;  // of a class without a sample below: not defined

template <>
inline const PinnedRow<L3TunnelTH3ConfigEntry> kPinned<L3TunnelTH3ConfigEntryRow>{
    "TolmarHwLib::L3TunnelTH3ConfigEntryRow",
    R"({"genId":"uint64_t", "entryHandle":"uint64_t", "valid":"bool", "sip":"IpGenAddr", "dip":"IpGenAddr", )"
    R"("protocol":"uint8_t", "l4DestPort":"uint16_t", "l4SrcPort":"uint16_t", )"
    R"("allowedPortBitmapProfilePtr":"uint8_t", "bfdEnable":"bool", "doNotChangeInnerHdrDscp":"bool", )"
    R"("grePayloadIpv4":"bool", "grePayloadIpv6":"bool", "l3Iif":"uint16_t", "payloadIpv4":"bool", )"
    R"("payloadIpv6":"bool", "subTunnelType":"uint8_t", "tunnelClassId":"uint16_t", "tunnelType":"bool", )"
    R"("useOuterHdrDscp":"bool", "useOuterHdrTtl":"bool"})",
    {49, {21, 25}, 0xce89f74a, 0x7f1e15a7, 71, 39},
    "4500080706050403020118171615141312110131000400350010001132314241700001000172710001737574000100"
    "c000020120010db8000000000000000000000005",
    {kSampleConfig, kSampleTunnel, 0x70, false, true, false, true, 0x7172, false, true, 0x73, 0x7475, false,
     true, false}};

template <>
inline const PinnedRow<L3TunnelTH3StatusEntry> kPinned<L3TunnelTH3StatusEntryRow>{
    "TolmarHwLib::L3TunnelTH3StatusEntryRow",
    R"({"genId":"uint64_t", "entryHandle":"uint64_t", "errorCode":"uint16_t", "deleted":"bool", )"
    R"("sip":"IpGenAddr", "dip":"IpGenAddr", "protocol":"uint8_t", "l4DestPort":"uint16_t", )"
    R"("l4SrcPort":"uint16_t"})",
    {36, {23, 27}, 0x722afd8c, 0x7f1e15a7, 58, 39},
    "3800080706050403020118171615141312112221012400040028001000113231"
    "4241c000020120010db8000000000000000000000005",
    {kSampleStatus, kSampleTunnel}};

template <>
inline const PinnedRow<MyStationTcamTH3ConfigEntry> kPinned<MyStationTcamTH3ConfigEntryRow>{
    "TolmarHwLib::MyStationTcamTH3ConfigEntryRow",
    R"({"genId":"uint64_t", "entryHandle":"uint64_t", "valid":"bool", "macAddr":"EthAddr", )"
    R"("vlanId":"uint16_t", "portNum":"uint8_t", "t":"bool", "macAddrMask":"EthAddr", )"
    R"("vlanIdMask":"uint16_t", "portNumMask":"uint8_t", "tMask":"bool", "priority":"uint32_t", )"
    R"("arpRarpTerminationAllowed":"bool", "copyToCpu":"bool", "discard":"bool", )"
    R"("ipv4MulticastTerminationAllowed":"bool", "ipv4TerminationAllowed":"bool", )"
    R"("ipv6MulticastTerminationAllowed":"bool", "ipv6TerminationAllowed":"bool", )"
    R"("mplsTerminationAllowed":"bool"})",
    {53, {}, 0x0e85c989, 0x90c5b562, 49, 24},
    "3500080706050403020118171615141312110100005e0053010b0a5101ffffff00000fff0f7f006463626100010001"
    "00010001",
    {kSampleConfig, kSampleStation, false, true, false, true, false, true, false, true}};

template <>
inline const PinnedRow<MyStationTcamTH3StatusEntry> kPinned<MyStationTcamTH3StatusEntryRow>{
    "TolmarHwLib::MyStationTcamTH3StatusEntryRow",
    R"({"genId":"uint64_t", "entryHandle":"uint64_t", "errorCode":"uint16_t", "deleted":"bool", )"
    R"("macAddr":"EthAddr", "vlanId":"uint16_t", "portNum":"uint8_t", "t":"bool", "macAddrMask":"EthAddr", )"
    R"("vlanIdMask":"uint16_t", "portNumMask":"uint8_t", "tMask":"bool", "priority":"uint32_t"})",
    {47, {}, 0xd867e210, 0x90c5b562, 43, 24},
    "2f000807060504030201181716151413121122210100005e0053010b0a5101ffffff00000fff0f7f0064636261",
    {kSampleStatus, kSampleStation}};

template <>
inline const PinnedRow<L3IifTH3ConfigEntry> kPinned<L3IifTH3ConfigEntryRow>{
    "TolmarHwLib::L3IifTH3ConfigEntryRow",
    R"({"genId":"uint64_t", "entryHandle":"uint64_t", "valid":"bool", "l3Iif":"uint64_t", )"
    R"("classId":"uint16_t", "ecnDecapMappingPtr":"uint8_t", "flexCtrBaseCounterIdx":"uint16_t", )"
    R"("flexCtrOffsetMode":"uint8_t", "flexCtrPoolNumber":"uint8_t", "intEnable":"bool", )"
    R"("ipmcL3Iif":"uint16_t", "ipOptionProfileIndex":"uint8_t", "l3IifProfileIndex":"uint8_t", )"
    R"("vrf":"uint16_t"})",
    {43, {}, 0x31728650, 0x58b70b8c, 39, 8},
    "2b000807060504030201181716151413121101050000000100000071707274737576007877797a7c7b",
    {kSampleConfig, {0x100000005}, 0x7071, 0x72, 0x7374, 0x75, 0x76, false, 0x7778, 0x79, 0x7a, 0x7b7c}};

template <>
inline const PinnedRow<L3IifTH3StatusEntry> kPinned<L3IifTH3StatusEntryRow>{
    "TolmarHwLib::L3IifTH3StatusEntryRow",
    R"({"genId":"uint64_t", "entryHandle":"uint64_t", "errorCode":"uint16_t", "deleted":"bool", )"
    R"("l3Iif":"uint64_t"})",
    {31, {}, 0x1314822a, 0x58b70b8c, 27, 8},
    "1f00080706050403020118171615141312112221010500000001000000",
    {kSampleStatus, {0x100000005}}};

/// The row of the class's sample entry.
template <class Row>
Row pinnedRow() {
  return Row::fromEntry(kPinned<Row>.entry);
}

}  // namespace TolmarHwLib
