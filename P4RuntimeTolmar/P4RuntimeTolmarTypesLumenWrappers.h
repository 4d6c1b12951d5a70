// The config tables as tables of rows: per table kind a wrapper, its iterators and its reactor, each kind in
// its own namespace. What they do is told in ConfigTableWrapper.h.
#pragma once

#include "P4RuntimeTolmar/ConfigTableWrapper.h"
#include "P4RuntimeTolmar/Entities.h"
#include "P4RuntimeTolmar/P4RuntimeTolmarTypes.h"

namespace TolmarHwLib {

namespace L3TunnelTH3ConfigLumenWrappers {

class TableLumenWrapper;
class TableLumenWrapperIterator;
class TableLumenWrapperChangeIterator;
class ReactorForLumen;

struct Kind {
  using Config = L3TunnelTH3Config;
  using Key = L3TunnelTH3Key;
  using Entry = L3TunnelTH3ConfigEntry;
  using EntryRow = L3TunnelTH3ConfigEntryRow;
  using RowIterator = TableLumenWrapperIterator;
  using ChangeIterator = TableLumenWrapperChangeIterator;
  using Reactor = ReactorForLumen;
  using Wrapper = TableLumenWrapper;
};

class TableLumenWrapperIterator final : public ConfigRowIterator<Kind> {
 public:
  using ConfigRowIterator::ConfigRowIterator;
  ~TableLumenWrapperIterator() override;
};

class TableLumenWrapperChangeIterator final : public ConfigChangeIterator<Kind> {
 public:
  using ConfigChangeIterator::ConfigChangeIterator;
  ~TableLumenWrapperChangeIterator() override;
};

class ReactorForLumen final : public ConfigReactor<Kind> {
 public:
  using ConfigReactor::ConfigReactor;
  ~ReactorForLumen() override;
};

class TableLumenWrapper final : public ConfigTableWrapper<Kind> {
 public:
  using ConfigTableWrapper::ConfigTableWrapper;
  ~TableLumenWrapper() override;

  /// Fills the row from the entry.
  static void lumenTolmarHwLibL3TunnelTH3ConfigEntry(const L3TunnelTH3ConfigEntry& entry,
                                                     L3TunnelTH3ConfigEntryRow& row) {
    row.fill(entry);
  }
  /// The key of the row.
  static L3TunnelTH3Key quillTolmarHwLibL3TunnelTH3Key(const L3TunnelTH3ConfigEntryRow& row) {
    return row.keyRecord();
  }
};

}  // namespace L3TunnelTH3ConfigLumenWrappers

namespace MyStationTcamTH3ConfigLumenWrappers {

class TableLumenWrapper;
class TableLumenWrapperIterator;
class TableLumenWrapperChangeIterator;
class ReactorForLumen;

struct Kind {
  using Config = MyStationTcamTH3Config;
  using Key = MyStationTcamTH3Key;
  using Entry = MyStationTcamTH3ConfigEntry;
  using EntryRow = MyStationTcamTH3ConfigEntryRow;
  using RowIterator = TableLumenWrapperIterator;
  using ChangeIterator = TableLumenWrapperChangeIterator;
  using Reactor = ReactorForLumen;
  using Wrapper = TableLumenWrapper;
};

class TableLumenWrapperIterator final : public ConfigRowIterator<Kind> {
 public:
  using ConfigRowIterator::ConfigRowIterator;
  ~TableLumenWrapperIterator() override;
};

class TableLumenWrapperChangeIterator final : public ConfigChangeIterator<Kind> {
 public:
  using ConfigChangeIterator::ConfigChangeIterator;
  ~TableLumenWrapperChangeIterator() override;
};

class ReactorForLumen final : public ConfigReactor<Kind> {
 public:
  using ConfigReactor::ConfigReactor;
  ~ReactorForLumen() override;
};

class TableLumenWrapper final : public ConfigTableWrapper<Kind> {
 public:
  using ConfigTableWrapper::ConfigTableWrapper;
  ~TableLumenWrapper() override;

  /// Fills the row from the entry.
  static void lumenTolmarHwLibMyStationTcamTH3ConfigEntry(const MyStationTcamTH3ConfigEntry& entry,
                                                          MyStationTcamTH3ConfigEntryRow& row) {
    row.fill(entry);
  }
  /// The key of the row.
  static MyStationTcamTH3Key quillTolmarHwLibMyStationTcamTH3Key(const MyStationTcamTH3ConfigEntryRow& row) {
    return row.keyRecord();
  }
};

}  // namespace MyStationTcamTH3ConfigLumenWrappers

namespace L3IifTH3ConfigLumenWrappers {

class TableLumenWrapper;
class TableLumenWrapperIterator;
class TableLumenWrapperChangeIterator;
class ReactorForLumen;

struct Kind {
  using Config = L3IifTH3Config;
  using Key = L3IifTH3Key;
  using Entry = L3IifTH3ConfigEntry;
  using EntryRow = L3IifTH3ConfigEntryRow;
  using RowIterator = TableLumenWrapperIterator;
  using ChangeIterator = TableLumenWrapperChangeIterator;
  using Reactor = ReactorForLumen;
  using Wrapper = TableLumenWrapper;
};

class TableLumenWrapperIterator final : public ConfigRowIterator<Kind> {
 public:
  using ConfigRowIterator::ConfigRowIterator;
  ~TableLumenWrapperIterator() override;
};

class TableLumenWrapperChangeIterator final : public ConfigChangeIterator<Kind> {
 public:
  using ConfigChangeIterator::ConfigChangeIterator;
  ~TableLumenWrapperChangeIterator() override;
};

class ReactorForLumen final : public ConfigReactor<Kind> {
 public:
  using ConfigReactor::ConfigReactor;
  ~ReactorForLumen() override;
};

class TableLumenWrapper final : public ConfigTableWrapper<Kind> {
 public:
  using ConfigTableWrapper::ConfigTableWrapper;
  ~TableLumenWrapper() override;

  /// Fills the row from the entry.
  static void lumenTolmarHwLibL3IifTH3ConfigEntry(const L3IifTH3ConfigEntry& entry,
                                                  L3IifTH3ConfigEntryRow& row) {
    row.fill(entry);
  }
  /// The key of the row.
  static L3IifTH3Key quillTolmarHwLibL3IifTH3Key(const L3IifTH3ConfigEntryRow& row) {
    return row.keyRecord();
  }
};

}  // namespace L3IifTH3ConfigLumenWrappers

extern template class ConfigTableWrapper<L3TunnelTH3ConfigLumenWrappers::Kind>;
extern template class ConfigTableWrapper<MyStationTcamTH3ConfigLumenWrappers::Kind>;
extern template class ConfigTableWrapper<L3IifTH3ConfigLumenWrappers::Kind>;

}  // namespace TolmarHwLib
