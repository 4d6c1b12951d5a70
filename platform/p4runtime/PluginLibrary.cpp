#include "p4runtime/PluginLibrary.h"

#include <dlfcn.h>

#include "cairn/Exception.h"
#include "lumen/LumenDB.h"
#include "p4runtime/Loader.h"
#include "p4runtime/P4RuntimePluginBase.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

PluginLibrary::PluginLibrary(const std::string& path) : path_(path) {
  if (void* const loaded = ::dlopen(path.c_str(), RTLD_NOW | RTLD_NOLOAD)) {
    ::dlclose(loaded);
    throw Cairn::Exception("plugin library \"" + path + "\": loaded already");
  }
  const Quill::Registrant::Scope scope(registrant_);
  handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* const reason = ::dlerror();
    throw Cairn::Exception("plugin library \"" + path +
                           "\": " + (reason != nullptr ? reason : "unknown error"));
  }
}

PluginLibrary::~PluginLibrary() { unload(); }

std::vector<std::string> PluginLibrary::plugins() const {
  std::vector<std::string> names;
  for (const Plugin::LoaderInitCaller* const caller : DefaultPluginLoader().initCallers(registrant_)) {
    for (const auto& entry : DefaultPluginLoader().impl().registrations()) {
      if (entry.caller == caller) names.push_back(entry.plugin);
    }
  }
  return names;
}

void PluginLibrary::init(const Quill::Ptr<PluginContext>& context) {
  if (handle_ == nullptr) throw Cairn::Exception("plugin library \"" + path_ + "\": unloaded already");
  if (context_ && context != context_) {
    throw Cairn::Exception("plugin library \"" + path_ + "\": started already, with another context");
  }
  context_ = context;
  DefaultPluginLoader().contextIs(context.get());
  const Quill::Registrant::Scope scope(registrant_);
  for (Plugin::LoaderInitCaller* const caller : DefaultPluginLoader().initCallers(registrant_)) (*caller)();
}

void PluginLibrary::requestCleanup(const PluginContext& context) {
  std::vector<Quill::Ptr<P4RuntimePluginBase>> plugins;  // held: a cleanup may release any of them
  for (P4RuntimePluginBase* const plugin : context.plugins()) plugins.emplace_back(plugin);
  for (const auto& plugin : plugins) plugin->requestCleanup();
}

void PluginLibrary::unload() {
  if (handle_ == nullptr) return;
  auto& loader = DefaultPluginLoader();
  if (context_) {
    dropCleanupHelpers();
    if (context_->lumenDb()) context_->lumenDb()->tableImplementationDelAll(registrant_);
  }
  loader.initCallerDelAll(registrant_);
  if (loader.context() == context_.get()) loader.contextIs(nullptr);
  Quill::typeNodeDelAll(registrant_);
  ::dlclose(handle_);
  handle_ = nullptr;
  context_ = nullptr;
}

void PluginLibrary::dropCleanupHelpers() const {
  std::vector<Quill::Ptr<P4RuntimePluginBase>> held;  // a helper may hold the last reference to its plugin
  for (P4RuntimePluginBase* const plugin : context_->plugins()) {
    if (Quill::typeNodeRegistrant(plugin->fwkType()) == &registrant_) held.emplace_back(plugin);
  }
  for (const auto& plugin : held) plugin->pluginCleanupHelperIs(nullptr);
}

}  // namespace P4Runtime
