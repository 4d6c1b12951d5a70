#pragma once

#include <string>
#include <utility>
#include <vector>

#include "apps/ctl/Entry.h"
#include "apps/ctl/Folder.h"
#include "apps/ctl/Text.h"

namespace Ctl {

/// Which entries a command is about.
struct Selection {
  std::vector<std::string> tables;                          ///< all when there is none
  std::vector<std::pair<std::string, std::string>> fields;  ///< of the key, with their values

  /// Takes texts "FIELD=VALUE". Throws Cairn::Exception for another form.
  void addKey(const std::vector<std::string>& texts);
};

/// The selected tables in the order of their list, with the selected entries. A table without a selected
/// field is left out unless it was named. Throws Cairn::Exception for an unknown table, a field that no
/// selected table has and a value that does not fit it, and when the folder has none of the tables.
std::vector<Table> readTables(const Folder& folder, const Selection& selection = {});

/// Notes of entries that do not match when they were written, as far as the agent's traces reach back.
void addTimes(const Folder& folder, std::vector<Table>& tables);

/// The tables as one JSON document.
std::string jsonText(const std::string& folder, const std::vector<Table>& tables, WallTime time);

/// Throws Cairn::Exception for one that is none.
void requireTables(const std::vector<std::string>& names);

}  // namespace Ctl
