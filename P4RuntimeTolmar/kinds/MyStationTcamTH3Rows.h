// Rows of the MyStation TCAM table: the row classes, their operations, and the config table as a table of
// rows.
#pragma once

#include "P4RuntimeTolmar/KindRows.h"
#include "P4RuntimeTolmar/kinds/MyStationTcamTH3.h"

namespace TolmarHwLib {

class MyStationTcamTH3ConfigEntryRow final
    : public EntryRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
class MyStationTcamTH3ConfigEntryRowRowOps_KEY final : public EntryRowOps<MyStationTcamTH3ConfigEntryRow> {};
class MyStationTcamTH3ConfigEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<MyStationTcamTH3ConfigEntryRowRowOps_KEY> {};

class MyStationTcamTH3StatusEntryRow final
    : public EntryRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
class MyStationTcamTH3StatusEntryRowRowOps_KEY final : public EntryRowOps<MyStationTcamTH3StatusEntryRow> {};
class MyStationTcamTH3StatusEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<MyStationTcamTH3StatusEntryRowRowOps_KEY> {};

namespace MyStationTcamTH3ConfigLumenWrappers {

struct Kind : WrapperTypes<MyStationTcamTH3Config, MyStationTcamTH3ConfigEntryRow> {
  using RowIterator = class TableLumenWrapperIterator;
  using ChangeIterator = class TableLumenWrapperChangeIterator;
  using Reactor = class ReactorForLumen;
  using Wrapper = class TableLumenWrapper;
};

class TableLumenWrapperIterator final : public ConfigRowIterator<Kind> {
 public:
  using ConfigRowIterator::ConfigRowIterator;
};
class TableLumenWrapperChangeIterator final : public ConfigChangeIterator<Kind> {
 public:
  using ConfigChangeIterator::ConfigChangeIterator;
};
class ReactorForLumen final : public ConfigReactor<Kind> {
 public:
  using ConfigReactor::ConfigReactor;
};
class TableLumenWrapper final : public ConfigTableWrapper<Kind> {
 public:
  using ConfigTableWrapper::ConfigTableWrapper;
  static void lumenTolmarHwLibMyStationTcamTH3ConfigEntry(const Entry& entry, EntryRow& row) {
    row.fill(entry);
  }
  static Key quillTolmarHwLibMyStationTcamTH3Key(const EntryRow& row) { return row.keyRecord(); }
};

}  // namespace MyStationTcamTH3ConfigLumenWrappers

template <>
struct RowsOf<MyStationTcamTH3> {
  using ConfigGenerator = MyStationTcamTH3ConfigEntryRowRowOpsGenerator;
  using StatusGenerator = MyStationTcamTH3StatusEntryRowRowOpsGenerator;
  using LumenWrappers = MyStationTcamTH3ConfigLumenWrappers::Kind;
};

extern template class TypedRow<MyStationTcamTH3ConfigEntryRow, MyStationTcamTH3ConfigEntry>;
extern template class TypedRow<MyStationTcamTH3StatusEntryRow, MyStationTcamTH3StatusEntry>;
extern template class ConfigTableWrapper<MyStationTcamTH3ConfigLumenWrappers::Kind>;

}  // namespace TolmarHwLib
