#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/ctl/Folder.h"
#include "apps/ctl/Text.h"
#include "skein/TraceReader.h"

namespace Ctl {

/// Which records of the traces are wanted.
struct TraceSelection {
  WallTime since = 0;
  std::string handle;  ///< one that has this as a value; empty: any
};

/// The selected records of all traces of a folder that `progress` does not cover yet, merged by time. A trace
/// that cannot be read is left out; what is wrong with it goes to `problems`.
std::vector<Skein::TraceRecord> readTraces(const Folder& folder, const TraceSelection& selection,
                                           Skein::TraceProgress& progress,
                                           std::vector<std::string>& problems);

/// The source of the messages about what the agent writes.
inline constexpr std::string_view kCore = "./apps/core/AgentCore";

/// Whether what the message says has been damaged.
bool isUnreadable(const Skein::TraceRecord& record);
/// One line.
std::string textOf(const Skein::TraceRecord& record);

}  // namespace Ctl
