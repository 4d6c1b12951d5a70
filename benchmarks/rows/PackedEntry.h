// An entry to measure with, and the yardstick: its fields in a packed struct behind a row header.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "P4RuntimeTolmar/kinds/L3IifTH3.h"

namespace TolmarHwLib {

inline L3IifTH3ConfigEntry sampleEntry() {
  L3IifTH3ConfigEntry entry;
  entry.genId = 0x1122334455667788;
  entry.entryHandle = 0x99aabbccddeeff00;
  entry.valid = true;
  entry.l3Iif = 4711;
  entry.classId = 12;
  entry.ecnDecapMappingPtr = 3;
  entry.flexCtrBaseCounterIdx = 2047;
  entry.flexCtrOffsetMode = 2;
  entry.flexCtrPoolNumber = 9;
  entry.ipmcL3Iif = 4711;
  entry.ipOptionProfileIndex = 1;
  entry.l3IifProfileIndex = 7;
  entry.vrf = 300;
  return entry;
}

struct [[gnu::packed]] PackedEntry {
  std::uint16_t rowLength;
  std::uint16_t rowType;
  std::uint64_t genId;
  std::uint64_t entryHandle;
  std::uint8_t valid;
  std::uint64_t l3Iif;
  std::uint16_t classId;
  std::uint8_t ecnDecapMappingPtr;
  std::uint16_t flexCtrBaseCounterIdx;
  std::uint8_t flexCtrOffsetMode;
  std::uint8_t flexCtrPoolNumber;
  std::uint8_t intEnable;
  std::uint16_t ipmcL3Iif;
  std::uint8_t ipOptionProfileIndex;
  std::uint8_t l3IifProfileIndex;
  std::uint16_t vrf;
};
static_assert(sizeof(PackedEntry) == 43);

inline void fillPacked(PackedEntry& packed, const L3IifTH3ConfigEntry& entry) {
  packed = {sizeof(PackedEntry),
            5,
            entry.genId,
            entry.entryHandle,
            entry.valid,
            entry.l3Iif,
            entry.classId,
            entry.ecnDecapMappingPtr,
            entry.flexCtrBaseCounterIdx,
            entry.flexCtrOffsetMode,
            entry.flexCtrPoolNumber,
            entry.intEnable,
            entry.ipmcL3Iif,
            entry.ipOptionProfileIndex,
            entry.l3IifProfileIndex,
            entry.vrf};
}

inline void readPacked(const PackedEntry& packed, L3IifTH3ConfigEntry& entry) {
  entry.genId = packed.genId;
  entry.entryHandle = packed.entryHandle;
  entry.valid = packed.valid != 0;
  entry.l3Iif = packed.l3Iif;
  entry.classId = packed.classId;
  entry.ecnDecapMappingPtr = packed.ecnDecapMappingPtr;
  entry.flexCtrBaseCounterIdx = packed.flexCtrBaseCounterIdx;
  entry.flexCtrOffsetMode = packed.flexCtrOffsetMode;
  entry.flexCtrPoolNumber = packed.flexCtrPoolNumber;
  entry.intEnable = packed.intEnable != 0;
  entry.ipmcL3Iif = packed.ipmcL3Iif;
  entry.ipOptionProfileIndex = packed.ipOptionProfileIndex;
  entry.l3IifProfileIndex = packed.l3IifProfileIndex;
  entry.vrf = packed.vrf;
}

}  // namespace TolmarHwLib
