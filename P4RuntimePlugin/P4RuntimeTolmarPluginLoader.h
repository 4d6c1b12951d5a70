#pragma once

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "p4runtime/Loader.h"

namespace P4RuntimeTolmar {

/// Registers the library's plugin with the agent's default loader, and makes the plugin object when the agent
/// runs its callers. There is one, in static storage.
class TolmarP4RuntimePluginLoader final : private PluginBase<P4Runtime::PluginContext> {
 public:
  TolmarP4RuntimePluginLoader();
  ~TolmarP4RuntimePluginLoader() override;

  /// A second call makes a second plugin and drops the first.
  void init(P4Runtime::PluginContext* context) override;

  /// Null until init.
  const Quill::Ptr<TolmarP4RuntimePlugin>& plugin() const noexcept { return plugin_; }

 private:
  Quill::Ptr<TolmarP4RuntimePlugin> plugin_;
};

}  // namespace P4RuntimeTolmar
