#pragma once

#include "p4runtime/Loader.h"
#include "p4runtime/PluginBase.h"
#include "p4runtime/PluginContext.h"

extern template class Plugin::Loader<P4Runtime::PluginContext>;
extern template class Plugin::PluginInitCaller<P4Runtime::PluginContext>;
extern template class PluginBase<P4Runtime::PluginContext>;

namespace P4Runtime {

/// The process's loader of agent plugins; it lives until the process ends.
Plugin::Loader<PluginContext>& DefaultPluginLoader();

}  // namespace P4Runtime
