// Rows of the MyStation TCAM table: row classes, row operations, and the config table as a table of rows.
#pragma once

#include "P4RuntimeTolmar/KindRows.h"
#include "P4RuntimeTolmar/kinds/MyStationTcamTH3.h"

namespace TolmarHwLib {

struct MyStationTcamTH3ConfigEntryRow final
    : EntryRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry> {
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
struct MyStationTcamTH3ConfigEntryRowRowOps_KEY final : EntryRowOps<MyStationTcamTH3ConfigEntryRow> {};
struct MyStationTcamTH3ConfigEntryRowRowOpsGenerator final
    : EntryRowOpsGenerator<MyStationTcamTH3ConfigEntryRowRowOps_KEY> {};

struct MyStationTcamTH3StatusEntryRow final
    : EntryRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry> {
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
struct MyStationTcamTH3StatusEntryRowRowOps_KEY final : EntryRowOps<MyStationTcamTH3StatusEntryRow> {};
struct MyStationTcamTH3StatusEntryRowRowOpsGenerator final
    : EntryRowOpsGenerator<MyStationTcamTH3StatusEntryRowRowOps_KEY> {};

namespace MyStationTcamTH3ConfigLumenWrappers {

struct Kind : WrapperTypes<MyStationTcamTH3Config, MyStationTcamTH3ConfigEntryRow> {
  using RowIterator = struct TableLumenWrapperIterator;
  using ChangeIterator = struct TableLumenWrapperChangeIterator;
  using Reactor = struct ReactorForLumen;
  using Wrapper = struct TableLumenWrapper;
};

struct TableLumenWrapperIterator final : ConfigRowIterator<Kind> {
  using ConfigRowIterator::ConfigRowIterator;
};
struct TableLumenWrapperChangeIterator final : ConfigChangeIterator<Kind> {
  using ConfigChangeIterator::ConfigChangeIterator;
};
struct ReactorForLumen final : ConfigReactor<Kind> {
  using ConfigReactor::ConfigReactor;
};
struct TableLumenWrapper final : ConfigTableWrapper<Kind> {
  using ConfigTableWrapper::ConfigTableWrapper;
  static void lumenTolmarHwLibMyStationTcamTH3ConfigEntry(const Entry& entry, EntryRow& row) {
    row.fill(entry);
  }
  static Key quillTolmarHwLibMyStationTcamTH3Key(const EntryRow& row) { return row.keyRecord(); }
};

}  // namespace MyStationTcamTH3ConfigLumenWrappers

template <>
struct RowsOf<MyStationTcamTH3> : MyStationTcamTH3ConfigLumenWrappers::Kind {
  using ConfigGenerator = MyStationTcamTH3ConfigEntryRowRowOpsGenerator;
  using StatusGenerator = MyStationTcamTH3StatusEntryRowRowOpsGenerator;
};

extern template class TypedRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry>;
extern template class TypedRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry>;

}  // namespace TolmarHwLib
