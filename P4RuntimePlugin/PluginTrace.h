#pragma once

#include "P4RuntimePlugin/Trace.h"

namespace P4RuntimeTolmar {

inline constexpr const char* kPluginSource = "./P4RuntimePlugin/P4RuntimeTolmarPlugin";

/// The library's trace handle, made on first use.
const Quill::TraceHandle& pluginTrace();

}  // namespace P4RuntimeTolmar
