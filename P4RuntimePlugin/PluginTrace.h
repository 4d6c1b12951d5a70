#pragma once

#include "P4RuntimePlugin/Trace.h"

namespace P4RuntimeTolmar {

/// The library's trace handle, made on first use.
const Quill::TraceHandle& pluginTrace();

}  // namespace P4RuntimeTolmar
