// Row operations by key of the six row classes, and their generators.
#pragma once

#include "P4RuntimeTolmar/EntryRowOps.h"
#include "P4RuntimeTolmar/EntryRows.h"

namespace TolmarHwLib {

class L3TunnelTH3ConfigEntryRowRowOps_KEY final : public EntryRowOps<L3TunnelTH3ConfigEntryRow> {};
class L3TunnelTH3ConfigEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntryRowRowOps_KEY> {};

class L3TunnelTH3StatusEntryRowRowOps_KEY final : public EntryRowOps<L3TunnelTH3StatusEntryRow> {};
class L3TunnelTH3StatusEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntryRowRowOps_KEY> {};

class MyStationTcamTH3ConfigEntryRowRowOps_KEY final : public EntryRowOps<MyStationTcamTH3ConfigEntryRow> {};
class MyStationTcamTH3ConfigEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntryRowRowOps_KEY> {
};

class MyStationTcamTH3StatusEntryRowRowOps_KEY final : public EntryRowOps<MyStationTcamTH3StatusEntryRow> {};
class MyStationTcamTH3StatusEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntryRowRowOps_KEY> {
};

class L3IifTH3ConfigEntryRowRowOps_KEY final : public EntryRowOps<L3IifTH3ConfigEntryRow> {};
class L3IifTH3ConfigEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntryRowRowOps_KEY> {};

class L3IifTH3StatusEntryRowRowOps_KEY final : public EntryRowOps<L3IifTH3StatusEntryRow> {};
class L3IifTH3StatusEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3IifTH3StatusEntryRow, L3IifTH3StatusEntryRowRowOps_KEY> {};

}  // namespace TolmarHwLib
