#pragma once

#include "p4runtime/PluginLibrary.h"

/// The built plugin library.
inline constexpr const char* kPluginPath = TOLMAR_PLUGIN_PATH;
