// Constants that are constructed at load (LoadTime.cpp).
#pragma once

#include "quill/String.h"
#include "quill/TraceHandle.h"

namespace P4RuntimeTolmar {

/// Prefix of the paths of all tables; ends in "/".
extern const Quill::String kMountPathPrefix;

// Hidden, so that a disabled trace costs one load of the levels and one branch.

/// Trace handle of the pending-programming trackers. Its name lacks an "r" on purpose, because operators'
/// settings contain it in this spelling.
[[gnu::visibility("hidden")]] extern const Quill::TraceHandle kPendingHwPogrammingTrace;
[[gnu::visibility("hidden")]] extern const Quill::TraceHandle kVrfSmTrace;

/// Trace handle of the library; constructed on first use.
const Quill::TraceHandle& pluginTrace();

}  // namespace P4RuntimeTolmar
