#include "p4runtime/Loader.h"

namespace Plugin {

LoaderInitCaller::~LoaderInitCaller() = default;

namespace Impl {

void LoaderImpl::registerPlugin(const std::string& plugin, const std::string& loader,
                                const std::string& version, const std::string& description,
                                LoaderInitCaller* caller) {
  registrations_.push_back({plugin, loader, version, description, caller});
}

void LoaderImpl::registrationDel(const LoaderInitCaller* caller) {
  std::erase_if(registrations_, [caller](const Registration& entry) { return entry.caller == caller; });
}

}  // namespace Impl

}  // namespace Plugin

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
