#pragma once

#include <string>
#include <vector>

#include "apps/ctl/Folder.h"

namespace Ctl {

/// What a check has found out about one file or VRF.
struct Finding {
  enum class Kind {
    fine,
    note,   ///< worth knowing
    fault,  ///< something is wrong
  };
  Kind kind;
  std::string name;  ///< of the file, below the runtime folder, or "VRF 10"
  std::string text;
  std::string advice{};  ///< what to do; empty when there is nothing to do
};

/// Checks every file of the folder.
std::vector<Finding> checkAll(const Folder& folder);

/// Compares the references to each VRF by rows with the agent's own count. Takes up to two seconds when the
/// agent's count seems too low.
void checkVrfs(const Folder& folder, std::vector<Finding>& findings);

/// One line for each finding, and one more for its advice.
std::string textOf(const std::vector<Finding>& findings);

/// Files that the programs leave after damage, "table.retired.2" and "table.report.5": the ending, or "".
std::string leftoverKind(const std::string& file);

}  // namespace Ctl
