#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"

#include "lumen/LumenDB.h"

namespace TolmarHwLib {

template class EntryRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry>;
template class EntryRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry>;
template class EntryRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry>;
template class EntryRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry>;
template class EntryRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry>;
template class EntryRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry>;

std::uint16_t detail::lookUpRowType(std::string_view rowTypeName) {
  const Lumen::LmClass* known = Lumen::LumenDB::lmClass(rowTypeName);
  if (known == nullptr) {
    Lumen::LumenDB::metadataIs(rowTypeName);
    known = Lumen::LumenDB::lmClass(rowTypeName);
  }
  return known->oid();
}

namespace {

// Registered in this order while the library is loaded, taken back in reverse while it is unloaded.
L3TunnelTH3ConfigEntryRowRowOpsGenerator l3TunnelTH3ConfigEntryRowRowOpsGenerator;
L3TunnelTH3StatusEntryRowRowOpsGenerator l3TunnelTH3StatusEntryRowRowOpsGenerator;
MyStationTcamTH3ConfigEntryRowRowOpsGenerator myStationTcamTH3ConfigEntryRowRowOpsGenerator;
MyStationTcamTH3StatusEntryRowRowOpsGenerator myStationTcamTH3StatusEntryRowRowOpsGenerator;
L3IifTH3ConfigEntryRowRowOpsGenerator l3IifTH3ConfigEntryRowRowOpsGenerator;
L3IifTH3StatusEntryRowRowOpsGenerator l3IifTH3StatusEntryRowRowOpsGenerator;

}  // namespace

}  // namespace TolmarHwLib
