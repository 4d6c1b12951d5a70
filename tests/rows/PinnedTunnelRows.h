#pragma once

#include "tests/rows/PinnedRow.h"

namespace TolmarHwLib {

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

}  // namespace TolmarHwLib
