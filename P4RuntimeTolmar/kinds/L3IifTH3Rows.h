// Rows of the L3 ingress interface (L3 IIF) table: the row classes, their operations, and the config table as
// a table of rows.
#pragma once

#include "P4RuntimeTolmar/KindRows.h"
#include "P4RuntimeTolmar/kinds/L3IifTH3.h"

namespace TolmarHwLib {

class L3IifTH3ConfigEntryRow final : public EntryRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
class L3IifTH3ConfigEntryRowRowOps_KEY final : public EntryRowOps<L3IifTH3ConfigEntryRow> {};
class L3IifTH3ConfigEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3IifTH3ConfigEntryRowRowOps_KEY> {};

class L3IifTH3StatusEntryRow final : public EntryRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
class L3IifTH3StatusEntryRowRowOps_KEY final : public EntryRowOps<L3IifTH3StatusEntryRow> {};
class L3IifTH3StatusEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3IifTH3StatusEntryRowRowOps_KEY> {};

namespace L3IifTH3ConfigLumenWrappers {

struct Kind : WrapperTypes<L3IifTH3Config, L3IifTH3ConfigEntryRow> {
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
  static void lumenTolmarHwLibL3IifTH3ConfigEntry(const Entry& entry, EntryRow& row) { row.fill(entry); }
  static Key quillTolmarHwLibL3IifTH3Key(const EntryRow& row) { return row.keyRecord(); }
};

}  // namespace L3IifTH3ConfigLumenWrappers

template <>
struct RowsOf<L3IifTH3> {
  using ConfigGenerator = L3IifTH3ConfigEntryRowRowOpsGenerator;
  using StatusGenerator = L3IifTH3StatusEntryRowRowOpsGenerator;
  using LumenWrappers = L3IifTH3ConfigLumenWrappers::Kind;
};

extern template class TypedRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry>;
extern template class TypedRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry>;
extern template class ConfigTableWrapper<L3IifTH3ConfigLumenWrappers::Kind>;

}  // namespace TolmarHwLib
