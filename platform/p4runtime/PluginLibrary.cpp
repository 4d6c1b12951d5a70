#include "p4runtime/PluginLibrary.h"

#include <dlfcn.h>

#include <algorithm>

#include "cairn/Exception.h"
#include "lumen/LumenDB.h"
#include "lumen/RowOps.h"
#include "p4runtime/DefaultPluginLoader.h"
#include "p4runtime/P4RuntimePluginBase.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

namespace {

/// What `after` has and `before` has not.
template <class T>
std::vector<T> added(const std::vector<T>& before, const std::vector<T>& after) {
  std::vector<T> result;
  for (const T& one : after) {
    if (std::find(before.begin(), before.end(), one) == before.end()) result.push_back(one);
  }
  return result;
}

std::vector<std::string> servedTables(const PluginContext& context) {
  std::vector<std::string> names;
  if (!context.lumenDb()) return names;
  for (const auto& table : context.lumenDb()->tables()) {
    if (table->implementation()) names.push_back(table->name());
  }
  return names;
}

}  // namespace

PluginLibrary::PluginLibrary(const std::string& path)
    : path_(path), firstCaller_(DefaultPluginLoader().initCallers()) {
  const auto generators = Lumen::rowOpsGeneratorNames();
  const auto typeNodes = Quill::typeNodes();
  handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* const reason = ::dlerror();
    throw Cairn::Exception("plugin library \"" + path +
                           "\": " + (reason != nullptr ? reason : "unknown error"));
  }
  lastCaller_ = DefaultPluginLoader().initCallers();
  generators_ = added(generators, Lumen::rowOpsGeneratorNames());
  typeNodes_ = added(typeNodes, Quill::typeNodes());
}

PluginLibrary::~PluginLibrary() { unload(); }

std::vector<std::string> PluginLibrary::plugins() const {
  std::vector<std::string> names;
  for (std::size_t i = firstCaller_; i < lastCaller_; ++i) {
    const Plugin::LoaderInitCaller* const caller = DefaultPluginLoader().initCaller(i);
    for (const auto& entry : DefaultPluginLoader().impl().registrations()) {
      if (entry.caller == caller) names.push_back(entry.plugin);
    }
  }
  return names;
}

void PluginLibrary::init(const Quill::Ptr<PluginContext>& context) {
  if (context && !context_) servedBefore_ = servedTables(*context);
  if (context) context_ = context;
  DefaultPluginLoader().contextIs(context.get());
  DefaultPluginLoader().runInitCallers(firstCaller_, lastCaller_);
}

void PluginLibrary::requestCleanup(const PluginContext& context) {
  const std::vector<P4RuntimePluginBase*> plugins = context.plugins();
  for (const P4RuntimePluginBase* plugin : plugins) {
    const auto helper =
        plugin->pluginCleanupHelper() ? plugin->pluginCleanupHelper() : plugin->defaultPluginCleanupHelper();
    if (helper) helper->handleCleanupRequest();
  }
}

void PluginLibrary::unload() {
  if (handle_ == nullptr) return;
  if (context_) {
    dropCleanupHelpers();
    dropTableImplementations();
  }
  auto& loader = DefaultPluginLoader();
  loader.initCallersDel(firstCaller_, lastCaller_);
  if (loader.context() == context_.get()) loader.contextIs(nullptr);
  for (const std::string& name : generators_) Lumen::uninstallRowOpsGenerator(Lumen::rowOpsGenerator(name));
  for (const Quill::TypeNode* type : typeNodes_) Quill::typeNodeDel(type);
  ::dlclose(handle_);
  handle_ = nullptr;
  context_ = nullptr;
}

void PluginLibrary::dropCleanupHelpers() const {
  const auto plugins = context_->plugins();
  std::vector<Quill::Ptr<P4RuntimePluginBase>> held;  // a helper may hold the last reference to its plugin
  for (P4RuntimePluginBase* plugin : plugins) {
    const bool ours = std::find(typeNodes_.begin(), typeNodes_.end(), plugin->fwkType()) != typeNodes_.end();
    if (ours) held.emplace_back(plugin);
  }
  for (const auto& plugin : held) plugin->pluginCleanupHelperIs(nullptr);
}

void PluginLibrary::dropTableImplementations() const {
  for (const std::string& name : added(servedBefore_, servedTables(*context_))) {
    context_->lumenDb()->tableImplementationDel(name);
  }
}

}  // namespace P4Runtime
