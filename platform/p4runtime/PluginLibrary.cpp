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

std::vector<Plugin::LoaderInitCaller*> initCallers() {
  std::vector<Plugin::LoaderInitCaller*> callers(DefaultPluginLoader().initCallers());
  for (std::size_t i = 0; i < callers.size(); ++i) callers[i] = DefaultPluginLoader().initCaller(i);
  return callers;
}

std::vector<std::string> servedTables(const PluginContext* context) {
  std::vector<std::string> names;
  if (context == nullptr || !context->lumenDb()) return names;
  for (const auto& table : context->lumenDb()->tables()) {
    if (table->implementation()) names.push_back(table->name());
  }
  return names;
}

}  // namespace

PluginLibrary::PluginLibrary(const std::string& path) : path_(path) {
  const auto callers = initCallers();
  const std::size_t generators = Lumen::rowOpsGeneratorNames().size();
  const auto typeNodes = Quill::typeNodes();
  handle_ = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    const char* const reason = ::dlerror();
    throw Cairn::Exception("plugin library \"" + path +
                           "\": " + (reason != nullptr ? reason : "unknown error"));
  }
  callers_ = added(callers, initCallers());
  // Known by name, of which the latest counts: this library's, even when another has the same names.
  const auto names = Lumen::rowOpsGeneratorNames();
  for (std::size_t i = generators; i < names.size(); ++i) {
    generators_.push_back(Lumen::rowOpsGenerator(names[i]));
  }
  typeNodes_ = added(typeNodes, Quill::typeNodes());
}

PluginLibrary::~PluginLibrary() { unload(); }

std::vector<std::string> PluginLibrary::plugins() const {
  std::vector<std::string> names;
  for (const Plugin::LoaderInitCaller* const caller : callers_) {
    for (const auto& entry : DefaultPluginLoader().impl().registrations()) {
      if (entry.caller == caller) names.push_back(entry.plugin);
    }
  }
  return names;
}

void PluginLibrary::init(const Quill::Ptr<PluginContext>& context) {
  if (context) context_ = context;
  DefaultPluginLoader().contextIs(context.get());
  const auto before = servedTables(context.get());
  const auto noteTables = [&] {
    for (std::string& name : added(before, servedTables(context.get()))) tables_.push_back(std::move(name));
  };
  try {
    for (Plugin::LoaderInitCaller* const caller : callers_) (*caller)();
  } catch (...) {
    noteTables();
    throw;
  }
  noteTables();
}

void PluginLibrary::requestCleanup(const PluginContext& context) {
  std::vector<Quill::Ptr<P4RuntimePluginBase>> plugins;  // held: a cleanup may let any of them go
  for (P4RuntimePluginBase* const plugin : context.plugins()) plugins.emplace_back(plugin);
  for (const auto& plugin : plugins) {
    const auto helper =
        plugin->pluginCleanupHelper() ? plugin->pluginCleanupHelper() : plugin->defaultPluginCleanupHelper();
    if (helper) helper->handleCleanupRequest();
  }
}

void PluginLibrary::unload() {
  if (handle_ == nullptr) return;
  if (context_) dropCleanupHelpers();
  for (const std::string& name : tables_) context_->lumenDb()->tableImplementationDel(name);
  auto& loader = DefaultPluginLoader();
  for (const Plugin::LoaderInitCaller* const caller : callers_) loader.initCallerDel(caller);
  if (loader.context() == context_.get()) loader.contextIs(nullptr);
  for (const Lumen::RowOpsGenerator* generator : generators_) Lumen::uninstallRowOpsGenerator(generator);
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

}  // namespace P4Runtime
