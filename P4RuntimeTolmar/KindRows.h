// Common parts of the row files of the table kinds (kinds/*Rows.h).
#pragma once

#include "P4RuntimeTolmar/ConfigTableWrapper.h"
#include "P4RuntimeTolmar/EntryRow.h"
#include "P4RuntimeTolmar/EntryRowOps.h"

namespace TolmarHwLib {

/// The row classes of a table kind; each kind specialises it with
///   ConfigGenerator, StatusGenerator   the generators of its row operations
/// and inherits the `Kind` of its wrapper classes.
template <class Kind>
struct RowsOf;

template <class Kind>
using ConfigEntryRowOf = typename RowsOf<Kind>::ConfigGenerator::Row;
template <class Kind>
using StatusEntryRowOf = typename RowsOf<Kind>::StatusGenerator::Row;

/// Part of the `Kind` of the wrapper classes (ConfigTableWrapper.h): what follows from entity and row class.
template <class ConfigT, class EntryRowT>
struct WrapperTypes {
  using Config = ConfigT;
  using Key = typename Config::Key;
  using Entry = typename Config::Entry;
  using EntryRow = EntryRowT;
};

}  // namespace TolmarHwLib
