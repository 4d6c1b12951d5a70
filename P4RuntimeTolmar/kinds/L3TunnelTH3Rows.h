// Rows of the L3 tunnel termination tables: the row classes, their operations, and the config table as a
// table of rows.
#pragma once

#include "P4RuntimeTolmar/KindRows.h"
#include "P4RuntimeTolmar/kinds/L3TunnelTH3.h"

namespace TolmarHwLib {

class L3TunnelTH3ConfigEntryRow final : public EntryRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
class L3TunnelTH3ConfigEntryRowRowOps_KEY final : public EntryRowOps<L3TunnelTH3ConfigEntryRow> {};
class L3TunnelTH3ConfigEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3TunnelTH3ConfigEntryRowRowOps_KEY> {};

class L3TunnelTH3StatusEntryRow final : public EntryRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry> {
 public:
  using EntryRow::EntryRow;
  using EntryRow::operator=;
};
class L3TunnelTH3StatusEntryRowRowOps_KEY final : public EntryRowOps<L3TunnelTH3StatusEntryRow> {};
class L3TunnelTH3StatusEntryRowRowOpsGenerator final
    : public EntryRowOpsGenerator<L3TunnelTH3StatusEntryRowRowOps_KEY> {};

namespace L3TunnelTH3ConfigLumenWrappers {

struct Kind : WrapperTypes<L3TunnelTH3Config, L3TunnelTH3ConfigEntryRow> {
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
  static void lumenTolmarHwLibL3TunnelTH3ConfigEntry(const Entry& entry, EntryRow& row) { row.fill(entry); }
  static Key quillTolmarHwLibL3TunnelTH3Key(const EntryRow& row) { return row.keyRecord(); }
};

}  // namespace L3TunnelTH3ConfigLumenWrappers

template <>
struct RowsOf<L3TunnelTH3> {
  using ConfigGenerator = L3TunnelTH3ConfigEntryRowRowOpsGenerator;
  using StatusGenerator = L3TunnelTH3StatusEntryRowRowOpsGenerator;
  using LumenWrappers = L3TunnelTH3ConfigLumenWrappers::Kind;
};

extern template class TypedRow<L3TunnelTH3ConfigEntryRow, L3TunnelTH3ConfigEntry>;
extern template class TypedRow<L3TunnelTH3StatusEntryRow, L3TunnelTH3StatusEntry>;
extern template class ConfigTableWrapper<L3TunnelTH3ConfigLumenWrappers::Kind>;

}  // namespace TolmarHwLib
