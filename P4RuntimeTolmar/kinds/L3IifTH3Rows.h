// Rows of the L3 ingress interface (L3 IIF) table: row classes, row operations, and the config table as a
// table of rows.
#pragma once

#include "P4RuntimeTolmar/KindRows.h"
#include "P4RuntimeTolmar/kinds/L3IifTH3.h"

namespace TolmarHwLib {

struct L3IifTH3ConfigEntryRow final : EntryRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry> {
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
struct L3IifTH3ConfigEntryRowRowOps_KEY final : EntryRowOps<L3IifTH3ConfigEntryRow> {};
struct L3IifTH3ConfigEntryRowRowOpsGenerator final : EntryRowOpsGenerator<L3IifTH3ConfigEntryRowRowOps_KEY> {
};

struct L3IifTH3StatusEntryRow final : EntryRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry> {
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
struct L3IifTH3StatusEntryRowRowOps_KEY final : EntryRowOps<L3IifTH3StatusEntryRow> {};
struct L3IifTH3StatusEntryRowRowOpsGenerator final : EntryRowOpsGenerator<L3IifTH3StatusEntryRowRowOps_KEY> {
};

namespace L3IifTH3ConfigLumenWrappers {

struct Kind : WrapperTypes<L3IifTH3Config, L3IifTH3ConfigEntryRow> {
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
  static void lumenTolmarHwLibL3IifTH3ConfigEntry(const Entry& entry, EntryRow& row) { row.fill(entry); }
  static Key quillTolmarHwLibL3IifTH3Key(const EntryRow& row) { return row.keyRecord(); }
};

}  // namespace L3IifTH3ConfigLumenWrappers

template <>
struct RowsOf<L3IifTH3> : L3IifTH3ConfigLumenWrappers::Kind {
  using ConfigGenerator = L3IifTH3ConfigEntryRowRowOpsGenerator;
  using StatusGenerator = L3IifTH3StatusEntryRowRowOpsGenerator;
};

extern template class TypedRow<L3IifTH3ConfigEntryRow, L3IifTH3ConfigEntry>;
extern template class TypedRow<L3IifTH3StatusEntryRow, L3IifTH3StatusEntry>;

}  // namespace TolmarHwLib
