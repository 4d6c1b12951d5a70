// The L3 ingress interface (L3 IIF) table.
#pragma once

#include "P4RuntimeTolmar/TableKind.h"

namespace TolmarHwLib {

struct L3IifTH3Key {
  std::uint64_t l3Iif = 0;  ///< L3 ingress interface index

  using Key = L3IifTH3Key;
  static constexpr std::string_view kind = "L3IifTH3";
  static constexpr std::tuple keyColumns{Column{"l3Iif", &Key::l3Iif}};
  Key key() const { return *this; }
  std::uint32_t hash() const { return hashKey(*this); }
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

  using Entry = L3IifTH3ConfigEntry;
  static constexpr std::tuple dataColumns{Column{"classId", &Entry::classId},
                                          Column{"ecnDecapMappingPtr", &Entry::ecnDecapMappingPtr},
                                          Column{"flexCtrBaseCounterIdx", &Entry::flexCtrBaseCounterIdx},
                                          Column{"flexCtrOffsetMode", &Entry::flexCtrOffsetMode},
                                          Column{"flexCtrPoolNumber", &Entry::flexCtrPoolNumber},
                                          Column{"intEnable", &Entry::intEnable},
                                          Column{"ipmcL3Iif", &Entry::ipmcL3Iif},
                                          Column{"ipOptionProfileIndex", &Entry::ipOptionProfileIndex},
                                          Column{"l3IifProfileIndex", &Entry::l3IifProfileIndex},
                                          Column{"vrf", &Entry::vrf}};
};

struct L3IifTH3StatusEntry : StatusBookkeeping, L3IifTH3Key {};

struct L3IifTH3Config final : TableEntityOf<L3IifTH3Config, L3IifTH3ConfigEntry> {
  using TableEntityOf::TableEntityOf;
  ~L3IifTH3Config() override;
};

struct L3IifTH3Status final : TableEntityOf<L3IifTH3Status, L3IifTH3StatusEntry> {
  using TableEntityOf::TableEntityOf;
  ~L3IifTH3Status() override;
};

using L3IifTH3 = TableKind<L3IifTH3Config, L3IifTH3Status>;

extern template class TableEntityOf<L3IifTH3Config, L3IifTH3ConfigEntry>;
extern template class TableEntityOf<L3IifTH3Status, L3IifTH3StatusEntry>;

}  // namespace TolmarHwLib
