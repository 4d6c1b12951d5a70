// The six row classes. They add nothing to a row handle; see EntryRow.h for what they offer.
#pragma once

#include "P4RuntimeTolmar/EntryRow.h"

namespace TolmarHwLib {

class L3TunnelTH3ConfigEntryRow final : public EntryRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};

class L3TunnelTH3StatusEntryRow final : public EntryRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};

class MyStationTcamTH3ConfigEntryRow final
    : public EntryRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};

class MyStationTcamTH3StatusEntryRow final
    : public EntryRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};

class L3IifTH3ConfigEntryRow final : public EntryRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};

class L3IifTH3StatusEntryRow final : public EntryRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};

extern template class EntryRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry>;
extern template class EntryRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry>;
extern template class EntryRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry>;
extern template class EntryRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry>;
extern template class EntryRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry>;
extern template class EntryRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry>;

}  // namespace TolmarHwLib
