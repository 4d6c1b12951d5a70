#pragma once

#include "tests/rows/PinnedRow.h"

namespace TolmarHwLib {

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
