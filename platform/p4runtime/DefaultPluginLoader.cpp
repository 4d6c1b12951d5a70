#include "p4runtime/DefaultPluginLoader.h"

template class Plugin::Loader<P4Runtime::PluginContext>;
template class Plugin::PluginInitCaller<P4Runtime::PluginContext>;
template class PluginBase<P4Runtime::PluginContext>;

namespace P4Runtime {

// Never destroyed: libraries registered with it may end after this one's static objects.
Plugin::Loader<PluginContext>& DefaultPluginLoader() {
  static auto* const loader = new Plugin::Loader<PluginContext>("P4RuntimePlugins");
  return *loader;
}

}  // namespace P4Runtime
