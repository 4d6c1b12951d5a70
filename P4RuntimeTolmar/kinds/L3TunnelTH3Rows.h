// Rows of the L3 tunnel termination tables: row classes, row operations, and the config table as a table of
// rows.
#pragma once

#include "P4RuntimeTolmar/KindRows.h"
#include "P4RuntimeTolmar/kinds/L3TunnelTH3.h"

namespace TolmarHwLib {

struct L3TunnelTH3ConfigEntryRow final : EntryRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry> {
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
struct L3TunnelTH3ConfigEntryRowRowOps_KEY final : EntryRowOps<L3TunnelTH3ConfigEntryRow> {};
struct L3TunnelTH3ConfigEntryRowRowOpsGenerator final
    : EntryRowOpsGenerator<L3TunnelTH3ConfigEntryRowRowOps_KEY> {};

struct L3TunnelTH3StatusEntryRow final : EntryRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry> {
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
struct L3TunnelTH3StatusEntryRowRowOps_KEY final : EntryRowOps<L3TunnelTH3StatusEntryRow> {};
struct L3TunnelTH3StatusEntryRowRowOpsGenerator final
    : EntryRowOpsGenerator<L3TunnelTH3StatusEntryRowRowOps_KEY> {};

namespace L3TunnelTH3ConfigLumenWrappers {

struct Kind : WrapperTypes<L3TunnelTH3Config, L3TunnelTH3ConfigEntryRow> {
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
  static void lumenTolmarHwLibL3TunnelTH3ConfigEntry(const Entry& entry, EntryRow& row) { row.fill(entry); }
  static Key quillTolmarHwLibL3TunnelTH3Key(const EntryRow& row) { return row.keyRecord(); }
};

}  // namespace L3TunnelTH3ConfigLumenWrappers

template <>
struct RowsOf<L3TunnelTH3> : L3TunnelTH3ConfigLumenWrappers::Kind {
  using ConfigGenerator = L3TunnelTH3ConfigEntryRowRowOpsGenerator;
  using StatusGenerator = L3TunnelTH3StatusEntryRowRowOpsGenerator;
};

extern template class TypedRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry>;
extern template class TypedRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry>;

}  // namespace TolmarHwLib
