#pragma once

#include <memory>
#include <string>

#include "p4runtime/Loader.h"

/// What a plugin library keeps in one static object: construction registers the library's plugin with the
/// agent's loader, which later calls init once through the two callers.
template <class Context>
class PluginBase {
 public:
  PluginBase(const PluginBase&) = delete;
  PluginBase& operator=(const PluginBase&) = delete;
  virtual ~PluginBase() = default;

  /// Creates the plugin and starts it; `context` is not owned.
  virtual void init(Context* context) = 0;

  class PluginBaseInitCaller : public Plugin::PluginInitCaller<Context> {
   public:
    explicit PluginBaseInitCaller(PluginBase* plugin) : plugin_(plugin) {}
    void operator()(Context* context) override { plugin_->init(context); }

   private:
    PluginBase* plugin_;  // not owned
  };

 protected:
  PluginBase(Plugin::Loader<Context>& loader, const std::string& pluginName)
      : initCaller_(std::make_unique<PluginBaseInitCaller>(this)) {
    using Caller = typename Plugin::Loader<Context>::LoaderInitCallerWithContext;
    Plugin::LoaderInitCaller& caller =
        loader.initCallerIs(std::make_unique<Caller>(&loader, initCaller_.get()));
    loader.impl().registerPlugin(pluginName, loader.name(), "", "", &caller);
  }

 private:
  std::unique_ptr<PluginBaseInitCaller> initCaller_;
};
