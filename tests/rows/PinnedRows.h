// The format of the six row classes once more, as literals: one sample entry per class with the bytes, texts
// and hashes of its row.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"

namespace TolmarHwLib {

struct PinnedRow {
  std::string_view name;
  std::string_view descriptor;
  len_t fixedLength;
  std::vector<len_t> variableColumns;
  std::uint32_t keyHash;
  std::uint32_t rowHash;
  std::string_view lengthHex;   // header, bytes 0 and 1; the row type follows
  std::string_view columnsHex;  // from byte 4 on
  std::string_view text;
  std::string_view json;
};

inline const IpGenAddr kSampleSip = IpGenAddr::ipv4({192, 0, 2, 1});
inline const IpGenAddr kSampleDip =
    IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05});
inline const EthAddr kSampleMac{{0x00, 0x00, 0x5e, 0x00, 0x53, 0x01}};
inline const EthAddr kSampleMacMask{{0xff, 0xff, 0xff, 0x00, 0x00, 0x0f}};

template <class Row>
struct Pinned;

template <>
struct Pinned<L3TunnelTH3ConfigEntryRow> {
  static L3TunnelTH3ConfigEntryRow row() {
    return L3TunnelTH3ConfigEntryRow(0x102030405060708, 0x1112131415161718, true, kSampleSip, kSampleDip,
                                     0x11, 0x3132, 0x4142, 0x70, false, true, false, true, 0x7172, false,
                                     true, 0x73, 0x7475, false, true, false);
  }
  static L3TunnelTH3ConfigEntry entry() {
    L3TunnelTH3ConfigEntry entry;
    entry.genId = 0x102030405060708;
    entry.entryHandle = 0x1112131415161718;
    entry.valid = true;
    entry.sip = kSampleSip;
    entry.dip = kSampleDip;
    entry.protocol = 0x11;
    entry.l4DestPort = 0x3132;
    entry.l4SrcPort = 0x4142;
    entry.allowedPortBitmapProfilePtr = 0x70;
    entry.bfdEnable = false;
    entry.doNotChangeInnerHdrDscp = true;
    entry.grePayloadIpv4 = false;
    entry.grePayloadIpv6 = true;
    entry.l3Iif = 0x7172;
    entry.payloadIpv4 = false;
    entry.payloadIpv6 = true;
    entry.subTunnelType = 0x73;
    entry.tunnelClassId = 0x7475;
    entry.tunnelType = false;
    entry.useOuterHdrDscp = true;
    entry.useOuterHdrTtl = false;
    return entry;
  }
  static inline const PinnedRow expected{
      "TolmarHwLib::L3TunnelTH3ConfigEntryRow",
      R"({"genId":"uint64_t", "entryHandle":"uint64_t", "valid":"bool", "sip":"IpGenAddr", )"
      R"("dip":"IpGenAddr", "protocol":"uint8_t", "l4DestPort":"uint16_t", )"
      R"("l4SrcPort":"uint16_t", "allowedPortBitmapProfilePtr":"uint8_t", "bfdEnable":"bool", )"
      R"("doNotChangeInnerHdrDscp":"bool", "grePayloadIpv4":"bool", "grePayloadIpv6":"bool", )"
      R"("l3Iif":"uint16_t", "payloadIpv4":"bool", "payloadIpv6":"bool", )"
      R"("subTunnelType":"uint8_t", "tunnelClassId":"uint16_t", "tunnelType":"bool", )"
      R"("useOuterHdrDscp":"bool", "useOuterHdrTtl":"bool"})",
      49,
      {21, 25},
      0x7f1e15a7,
      0xce89f74a,
      "4500",
      "0807060504030201181716151413121101310004003500100011323142417000"
      "01000172710001737574000100c000020120010db80000000000000000000000"
      "05",
      R"(genId = 72623859790382856, entryHandle = 1230066625199609624, valid = true, )"
      R"(sip = "192.0.2.1", dip = "2001:db8::5", protocol = 17, l4DestPort = 12594, )"
      R"(l4SrcPort = 16706, allowedPortBitmapProfilePtr = 112, bfdEnable = false, )"
      R"(doNotChangeInnerHdrDscp = true, grePayloadIpv4 = false, grePayloadIpv6 = true, )"
      R"(l3Iif = 29042, payloadIpv4 = false, payloadIpv6 = true, subTunnelType = 115, )"
      R"(tunnelClassId = 29813, tunnelType = false, useOuterHdrDscp = true, )"
      R"(useOuterHdrTtl = false)",
      R"({"genId":72623859790382856, "entryHandle":1230066625199609624, "valid":true, )"
      R"("sip":"192.0.2.1", "dip":"2001:db8::5", "protocol":17, "l4DestPort":12594, )"
      R"("l4SrcPort":16706, "allowedPortBitmapProfilePtr":112, "bfdEnable":false, )"
      R"("doNotChangeInnerHdrDscp":true, "grePayloadIpv4":false, "grePayloadIpv6":true, )"
      R"("l3Iif":29042, "payloadIpv4":false, "payloadIpv6":true, "subTunnelType":115, )"
      R"("tunnelClassId":29813, "tunnelType":false, "useOuterHdrDscp":true, )"
      R"("useOuterHdrTtl":false})"};
};

template <>
struct Pinned<L3TunnelTH3StatusEntryRow> {
  static L3TunnelTH3StatusEntryRow row() {
    return L3TunnelTH3StatusEntryRow(0x102030405060708, 0x1112131415161718, 0x2122, true, kSampleSip,
                                     kSampleDip, 0x11, 0x3132, 0x4142);
  }
  static L3TunnelTH3StatusEntry entry() {
    L3TunnelTH3StatusEntry entry;
    entry.genId = 0x102030405060708;
    entry.entryHandle = 0x1112131415161718;
    entry.errorCode = 0x2122;
    entry.deleted = true;
    entry.sip = kSampleSip;
    entry.dip = kSampleDip;
    entry.protocol = 0x11;
    entry.l4DestPort = 0x3132;
    entry.l4SrcPort = 0x4142;
    return entry;
  }
  static inline const PinnedRow expected{
      "TolmarHwLib::L3TunnelTH3StatusEntryRow",
      R"({"genId":"uint64_t", "entryHandle":"uint64_t", "errorCode":"uint16_t", )"
      R"("deleted":"bool", "sip":"IpGenAddr", "dip":"IpGenAddr", "protocol":"uint8_t", )"
      R"("l4DestPort":"uint16_t", "l4SrcPort":"uint16_t"})",
      36,
      {23, 27},
      0x7f1e15a7,
      0x722afd8c,
      "3800",
      "0807060504030201181716151413121122210124000400280010001132314241"
      "c000020120010db8000000000000000000000005",
      R"(genId = 72623859790382856, entryHandle = 1230066625199609624, errorCode = 8482, )"
      R"(deleted = true, sip = "192.0.2.1", dip = "2001:db8::5", protocol = 17, )"
      R"(l4DestPort = 12594, l4SrcPort = 16706)",
      R"({"genId":72623859790382856, "entryHandle":1230066625199609624, "errorCode":8482, )"
      R"("deleted":true, "sip":"192.0.2.1", "dip":"2001:db8::5", "protocol":17, )"
      R"("l4DestPort":12594, "l4SrcPort":16706})"};
};

template <>
struct Pinned<MyStationTcamTH3ConfigEntryRow> {
  static MyStationTcamTH3ConfigEntryRow row() {
    return MyStationTcamTH3ConfigEntryRow(0x102030405060708, 0x1112131415161718, true, kSampleMac, 0xa0b,
                                          0x51, true, kSampleMacMask, 0xfff, 0x7f, false, 0x61626364, false,
                                          true, false, true, false, true, false, true);
  }
  static MyStationTcamTH3ConfigEntry entry() {
    MyStationTcamTH3ConfigEntry entry;
    entry.genId = 0x102030405060708;
    entry.entryHandle = 0x1112131415161718;
    entry.valid = true;
    entry.macAddr = kSampleMac;
    entry.vlanId = 0xa0b;
    entry.portNum = 0x51;
    entry.t = true;
    entry.macAddrMask = kSampleMacMask;
    entry.vlanIdMask = 0xfff;
    entry.portNumMask = 0x7f;
    entry.tMask = false;
    entry.priority = 0x61626364;
    entry.arpRarpTerminationAllowed = false;
    entry.copyToCpu = true;
    entry.discard = false;
    entry.ipv4MulticastTerminationAllowed = true;
    entry.ipv4TerminationAllowed = false;
    entry.ipv6MulticastTerminationAllowed = true;
    entry.ipv6TerminationAllowed = false;
    entry.mplsTerminationAllowed = true;
    return entry;
  }
  static inline const PinnedRow expected{
      "TolmarHwLib::MyStationTcamTH3ConfigEntryRow",
      R"({"genId":"uint64_t", "entryHandle":"uint64_t", "valid":"bool", "macAddr":"EthAddr", )"
      R"("vlanId":"uint16_t", "portNum":"uint8_t", "t":"bool", "macAddrMask":"EthAddr", )"
      R"("vlanIdMask":"uint16_t", "portNumMask":"uint8_t", "tMask":"bool", )"
      R"("priority":"uint32_t", "arpRarpTerminationAllowed":"bool", "copyToCpu":"bool", )"
      R"("discard":"bool", "ipv4MulticastTerminationAllowed":"bool", )"
      R"("ipv4TerminationAllowed":"bool", "ipv6MulticastTerminationAllowed":"bool", )"
      R"("ipv6TerminationAllowed":"bool", "mplsTerminationAllowed":"bool"})",
      53,
      {},
      0x90c5b562,
      0x0e85c989,
      "3500",
      "080706050403020118171615141312110100005e0053010b0a5101ffffff0000"
      "0fff0f7f00646362610001000100010001",
      R"(genId = 72623859790382856, entryHandle = 1230066625199609624, valid = true, )"
      R"(macAddr = "00:00:5e:00:53:01", vlanId = 2571, portNum = 81, t = true, )"
      R"(macAddrMask = "ff:ff:ff:00:00:0f", vlanIdMask = 4095, portNumMask = 127, tMask = false, )"
      R"(priority = 1633837924, arpRarpTerminationAllowed = false, copyToCpu = true, )"
      R"(discard = false, ipv4MulticastTerminationAllowed = true, )"
      R"(ipv4TerminationAllowed = false, ipv6MulticastTerminationAllowed = true, )"
      R"(ipv6TerminationAllowed = false, mplsTerminationAllowed = true)",
      R"({"genId":72623859790382856, "entryHandle":1230066625199609624, "valid":true, )"
      R"("macAddr":"00:00:5e:00:53:01", "vlanId":2571, "portNum":81, "t":true, )"
      R"("macAddrMask":"ff:ff:ff:00:00:0f", "vlanIdMask":4095, "portNumMask":127, "tMask":false, )"
      R"("priority":1633837924, "arpRarpTerminationAllowed":false, "copyToCpu":true, )"
      R"("discard":false, "ipv4MulticastTerminationAllowed":true, )"
      R"("ipv4TerminationAllowed":false, "ipv6MulticastTerminationAllowed":true, )"
      R"("ipv6TerminationAllowed":false, "mplsTerminationAllowed":true})"};
};

template <>
struct Pinned<MyStationTcamTH3StatusEntryRow> {
  static MyStationTcamTH3StatusEntryRow row() {
    return MyStationTcamTH3StatusEntryRow(0x102030405060708, 0x1112131415161718, 0x2122, true, kSampleMac,
                                          0xa0b, 0x51, true, kSampleMacMask, 0xfff, 0x7f, false, 0x61626364);
  }
  static MyStationTcamTH3StatusEntry entry() {
    MyStationTcamTH3StatusEntry entry;
    entry.genId = 0x102030405060708;
    entry.entryHandle = 0x1112131415161718;
    entry.errorCode = 0x2122;
    entry.deleted = true;
    entry.macAddr = kSampleMac;
    entry.vlanId = 0xa0b;
    entry.portNum = 0x51;
    entry.t = true;
    entry.macAddrMask = kSampleMacMask;
    entry.vlanIdMask = 0xfff;
    entry.portNumMask = 0x7f;
    entry.tMask = false;
    entry.priority = 0x61626364;
    return entry;
  }
  static inline const PinnedRow expected{
      "TolmarHwLib::MyStationTcamTH3StatusEntryRow",
      R"({"genId":"uint64_t", "entryHandle":"uint64_t", "errorCode":"uint16_t", )"
      R"("deleted":"bool", "macAddr":"EthAddr", "vlanId":"uint16_t", "portNum":"uint8_t", )"
      R"("t":"bool", "macAddrMask":"EthAddr", "vlanIdMask":"uint16_t", "portNumMask":"uint8_t", )"
      R"("tMask":"bool", "priority":"uint32_t"})",
      47,
      {},
      0x90c5b562,
      0xd867e210,
      "2f00",
      "0807060504030201181716151413121122210100005e0053010b0a5101ffffff"
      "00000fff0f7f0064636261",
      R"(genId = 72623859790382856, entryHandle = 1230066625199609624, errorCode = 8482, )"
      R"(deleted = true, macAddr = "00:00:5e:00:53:01", vlanId = 2571, portNum = 81, t = true, )"
      R"(macAddrMask = "ff:ff:ff:00:00:0f", vlanIdMask = 4095, portNumMask = 127, tMask = false, )"
      R"(priority = 1633837924)",
      R"({"genId":72623859790382856, "entryHandle":1230066625199609624, "errorCode":8482, )"
      R"("deleted":true, "macAddr":"00:00:5e:00:53:01", "vlanId":2571, "portNum":81, "t":true, )"
      R"("macAddrMask":"ff:ff:ff:00:00:0f", "vlanIdMask":4095, "portNumMask":127, "tMask":false, )"
      R"("priority":1633837924})"};
};

template <>
struct Pinned<L3IifTH3ConfigEntryRow> {
  static L3IifTH3ConfigEntryRow row() {
    return L3IifTH3ConfigEntryRow(0x102030405060708, 0x1112131415161718, true, 0x100000005, 0x7071, 0x72,
                                  0x7374, 0x75, 0x76, false, 0x7778, 0x79, 0x7a, 0x7b7c);
  }
  static L3IifTH3ConfigEntry entry() {
    L3IifTH3ConfigEntry entry;
    entry.genId = 0x102030405060708;
    entry.entryHandle = 0x1112131415161718;
    entry.valid = true;
    entry.l3Iif = 0x100000005;
    entry.classId = 0x7071;
    entry.ecnDecapMappingPtr = 0x72;
    entry.flexCtrBaseCounterIdx = 0x7374;
    entry.flexCtrOffsetMode = 0x75;
    entry.flexCtrPoolNumber = 0x76;
    entry.intEnable = false;
    entry.ipmcL3Iif = 0x7778;
    entry.ipOptionProfileIndex = 0x79;
    entry.l3IifProfileIndex = 0x7a;
    entry.vrf = 0x7b7c;
    return entry;
  }
  static inline const PinnedRow expected{
      "TolmarHwLib::L3IifTH3ConfigEntryRow",
      R"({"genId":"uint64_t", "entryHandle":"uint64_t", "valid":"bool", "l3Iif":"uint64_t", )"
      R"("classId":"uint16_t", "ecnDecapMappingPtr":"uint8_t", )"
      R"("flexCtrBaseCounterIdx":"uint16_t", "flexCtrOffsetMode":"uint8_t", )"
      R"("flexCtrPoolNumber":"uint8_t", "intEnable":"bool", "ipmcL3Iif":"uint16_t", )"
      R"("ipOptionProfileIndex":"uint8_t", "l3IifProfileIndex":"uint8_t", "vrf":"uint16_t"})",
      43,
      {},
      0x58b70b8c,
      0x31728650,
      "2b00",
      "0807060504030201181716151413121101050000000100000071707274737576"
      "007877797a7c7b",
      R"(genId = 72623859790382856, entryHandle = 1230066625199609624, valid = true, )"
      R"(l3Iif = 4294967301, classId = 28785, ecnDecapMappingPtr = 114, )"
      R"(flexCtrBaseCounterIdx = 29556, flexCtrOffsetMode = 117, flexCtrPoolNumber = 118, )"
      R"(intEnable = false, ipmcL3Iif = 30584, ipOptionProfileIndex = 121, )"
      R"(l3IifProfileIndex = 122, vrf = 31612)",
      R"({"genId":72623859790382856, "entryHandle":1230066625199609624, "valid":true, )"
      R"("l3Iif":4294967301, "classId":28785, "ecnDecapMappingPtr":114, )"
      R"("flexCtrBaseCounterIdx":29556, "flexCtrOffsetMode":117, "flexCtrPoolNumber":118, )"
      R"("intEnable":false, "ipmcL3Iif":30584, "ipOptionProfileIndex":121, )"
      R"("l3IifProfileIndex":122, "vrf":31612})"};
};

template <>
struct Pinned<L3IifTH3StatusEntryRow> {
  static L3IifTH3StatusEntryRow row() {
    return L3IifTH3StatusEntryRow(0x102030405060708, 0x1112131415161718, 0x2122, true, 0x100000005);
  }
  static L3IifTH3StatusEntry entry() {
    L3IifTH3StatusEntry entry;
    entry.genId = 0x102030405060708;
    entry.entryHandle = 0x1112131415161718;
    entry.errorCode = 0x2122;
    entry.deleted = true;
    entry.l3Iif = 0x100000005;
    return entry;
  }
  static inline const PinnedRow expected{
      "TolmarHwLib::L3IifTH3StatusEntryRow",
      R"({"genId":"uint64_t", "entryHandle":"uint64_t", "errorCode":"uint16_t", )"
      R"("deleted":"bool", "l3Iif":"uint64_t"})",
      31,
      {},
      0x58b70b8c,
      0x1314822a,
      "1f00",
      "080706050403020118171615141312112221010500000001000000",
      R"(genId = 72623859790382856, entryHandle = 1230066625199609624, errorCode = 8482, )"
      R"(deleted = true, l3Iif = 4294967301)",
      R"({"genId":72623859790382856, "entryHandle":1230066625199609624, "errorCode":8482, )"
      R"("deleted":true, "l3Iif":4294967301})"};
};

}  // namespace TolmarHwLib
