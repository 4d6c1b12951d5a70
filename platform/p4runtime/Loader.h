// Registration of plugin libraries: when a library is loaded, it registers one caller with a loader; the
// agent later runs all callers with the plugin context.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "p4runtime/PluginContext.h"
#include "quill/Registrant.h"

namespace Plugin {

/// Run by the loader to start one plugin.
class LoaderInitCaller {
 public:
  virtual ~LoaderInitCaller();
  virtual void operator()() = 0;
};

/// Starts one plugin with its context.
template <class Context>
class PluginInitCaller {
 public:
  virtual ~PluginInitCaller() = default;
  virtual void operator()(Context* context) = 0;
};

namespace Impl {

/// The registrations of a loader, in order.
class LoaderImpl {
 public:
  struct Registration {
    std::string plugin;              ///< the plugin's registration name
    std::string loader;              ///< the name of the loader that it is registered with
    std::string version;             ///< free text; may be empty
    std::string description;         ///< free text; may be empty
    const LoaderInitCaller* caller;  ///< not owned
  };

  void registerPlugin(const std::string& plugin, const std::string& loader, const std::string& version,
                      const std::string& description, LoaderInitCaller* caller);
  /// Removes the registrations of `caller`.
  void registrationDel(const LoaderInitCaller* caller);
  const std::vector<Registration>& registrations() const noexcept { return registrations_; }

 private:
  std::vector<Registration> registrations_;
};

}  // namespace Impl

/// Connects one agent with its plugins. Owns the callers, each recorded under the registrant that was current
/// when it was registered; they must be dropped before that library is unloaded.
template <class Context>
class Loader {
 public:
  explicit Loader(std::string name) : name_(std::move(name)) {}
  Loader(const Loader&) = delete;
  Loader& operator=(const Loader&) = delete;

  /// Runs a plugin's own caller with the loader's current context.
  class LoaderInitCallerWithContext : public LoaderInitCaller {
   public:
    LoaderInitCallerWithContext(Loader* loader, PluginInitCaller<Context>* initCaller)
        : loader_(loader), initCaller_(initCaller) {}
    void operator()() override { (*initCaller_)(loader_->context()); }

   private:
    Loader* loader_;                         // not owned
    PluginInitCaller<Context>* initCaller_;  // not owned
  };

  /// The context for starting plugins; not owned, may be null.
  Context* context() const noexcept { return context_; }
  void contextIs(Context* context) noexcept { context_ = context; }

  const std::string& name() const noexcept { return name_; }
  Impl::LoaderImpl& impl() noexcept { return impl_; }
  const Impl::LoaderImpl& impl() const noexcept { return impl_; }

  LoaderInitCaller& initCallerIs(std::unique_ptr<LoaderInitCaller> caller) {
    initCallers_.push_back({std::move(caller), Quill::Registrant::current()});
    return *initCallers_.back().caller;
  }
  /// The callers of that registrant, in order of registration; not owned.
  std::vector<LoaderInitCaller*> initCallers(const Quill::Registrant& registrant) const {
    std::vector<LoaderInitCaller*> callers;
    for (const auto& [caller, by] : initCallers_) {
      if (by == &registrant) callers.push_back(caller.get());
    }
    return callers;
  }
  /// Drops the callers of that registrant and the registrations made through them.
  void initCallerDelAll(const Quill::Registrant& registrant) {
    for (const LoaderInitCaller* const caller : initCallers(registrant)) impl_.registrationDel(caller);
    std::erase_if(initCallers_, [&](const InitCaller& one) { return one.registrant == &registrant; });
  }

 private:
  struct InitCaller {
    std::unique_ptr<LoaderInitCaller> caller;
    const Quill::Registrant* registrant;  // not owned; may be null
  };

  Context* context_ = nullptr;  // the first member: callers of plugin libraries read it there
  std::string name_;
  std::vector<InitCaller> initCallers_;
  Impl::LoaderImpl impl_;
};

}  // namespace Plugin

/// The base of a plugin library's one static object. Its construction registers the library's plugin with the
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

extern template class Plugin::Loader<P4Runtime::PluginContext>;
extern template class Plugin::PluginInitCaller<P4Runtime::PluginContext>;
extern template class PluginBase<P4Runtime::PluginContext>;

namespace P4Runtime {

/// The process's loader of agent plugins; it lives until the process ends.
Plugin::Loader<PluginContext>& DefaultPluginLoader();

}  // namespace P4Runtime
