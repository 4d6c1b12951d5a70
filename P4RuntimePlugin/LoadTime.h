// Constants of the library that are made at load time (LoadTime.cpp).
#pragma once

#include "quill/String.h"
#include "quill/TraceHandle.h"

namespace P4RuntimeTolmar {

/// What the paths of all tables begin with; ends in "/".
extern const Quill::String kMountPathPrefix;

// Hidden, so that a trace that is off costs one load of its levels and one branch.

/// The handle of the pending-programming trackers. Its name lacks an "r" on purpose: operators' settings name
/// it so.
[[gnu::visibility("hidden")]] extern const Quill::TraceHandle kPendingHwPogrammingTrace;
[[gnu::visibility("hidden")]] extern const Quill::TraceHandle kVrfSmTrace;

}  // namespace P4RuntimeTolmar
