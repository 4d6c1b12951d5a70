#pragma once

#include "tests/rows/PinnedRow.h"

namespace TolmarHwLib {

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

}  // namespace TolmarHwLib
