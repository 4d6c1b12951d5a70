#pragma once

#include <string>
#include <vector>

#include "apps/ctl/Folder.h"

namespace Ctl {

/// What a check has found out about one file.
struct Finding {
  enum class Kind {
    fine,
    note,   ///< worth knowing
    fault,  ///< something is wrong
  };
  Kind kind;
  std::string file;  ///< below the runtime folder
  std::string text;
  std::string advice{};  ///< what to do; empty when there is nothing to do
};

/// Checks every file of the folder.
std::vector<Finding> checkAll(const Folder& folder);

/// The findings, then the references to each VRF.
std::string textOf(const std::vector<Finding>& findings);
std::string vrfText(const Folder& folder);

/// Files that the programs leave after damage, "table.retired.2" and "table.report.5": the ending, or "".
std::string leftoverKind(const std::string& file);

}  // namespace Ctl
