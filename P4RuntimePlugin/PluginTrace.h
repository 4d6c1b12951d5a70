#pragma once

#include "P4RuntimePlugin/Trace.h"

namespace P4RuntimeTolmar {

/// Trace handle of the library; constructed on first use.
const Quill::TraceHandle& pluginTrace();

}  // namespace P4RuntimeTolmar
