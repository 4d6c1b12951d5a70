// The yardstick: the fields of an L3 IIF config entry in a packed struct behind a row header.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "P4RuntimeTolmar/Records.h"

namespace TolmarHwLib {

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
