#pragma once

#include <string_view>
#include <utility>

#include "orrery/Mounter.h"
#include "p4runtime/PluginCleanup.h"
#include "p4runtime/PluginContext.h"
#include "quill/Counted.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

/// The agent's part of a plugin: the attributes below, in this order, and initialisation.
class P4RuntimePluginBase : public Quill::Typed<P4RuntimePluginBase, Orrery::Mounter> {
 public:
  /// Creates a plugin status of the same name; all other attributes are null. init() creates the default
  /// cleanup helper.
  explicit P4RuntimePluginBase(const Quill::Name& name);
  ~P4RuntimePluginBase() override;

  // Virtual operation, in slot order after those of Orrery::Mounter.

  /// The plugin's own initialisation, called once with the context that was stored in pluginContext.
  virtual void pluginInit(const Quill::Ptr<PluginContext>& context);

  /// Stores the context, sets the attributes that follow from it and calls pluginInit. doMountsComplete is
  /// called later from the event loop, also if pluginInit throws. A null context is passed on.
  void init(const Quill::Ptr<PluginContext>& context);

  /// Asks the plugin's cleanup helper to clean up; its default helper if it has none of its own.
  void requestCleanup();

  class NotifieeConst : public Quill::Typed<NotifieeConst, Quill::NotifieeConst> {
   public:
    using Typed::Typed;
    ~NotifieeConst() override;
    static const Quill::TypeNode _quillType;
    // One per attribute, in slot order. By default each only calls the generic observer, if there is one.
    virtual void onCliConfig();
    virtual void onCliStatus();
    virtual void onPluginContext();
    virtual void onPluginConfigDir();
    virtual void onPluginStatusDir();
    virtual void onAllPluginConfig();
    virtual void onPluginStatus();
    virtual void onPluginCleanupSm();
    virtual void onPluginCleanupHelper();
    virtual void onDefaultPluginCleanupHelper();

    /// `observer` is called with the names of attributes that change, unless their notification is
    /// overridden.
    void genericObserverIs(Quill::GenericObserver observer) { observer_ = std::move(observer); }

   protected:
    void observe(std::string_view attribute) const {
      if (observer_) observer_(attribute);
    }

   private:
    Quill::GenericObserver observer_;
  };

  /// The name of the entity, which is also that of the plugin's registration and status.
  const Quill::String& pluginName() const { return name().stringValue(); }

  const Quill::Ptr<CliCommandConfig>& cliConfig() const noexcept { return cliConfig_; }
  void cliConfigIs(const Quill::Ptr<CliCommandConfig>& value);
  const Quill::Ptr<CliCommandStatus>& cliStatus() const noexcept { return cliStatus_; }
  void cliStatusIs(const Quill::Ptr<CliCommandStatus>& value);
  const Quill::Ptr<PluginContext>& pluginContext() const noexcept { return pluginContext_; }
  void pluginContextIs(const Quill::Ptr<PluginContext>& value);
  const Quill::Ptr<Quill::Entity>& pluginConfigDir() const noexcept { return pluginConfigDir_; }
  void pluginConfigDirIs(const Quill::Ptr<Quill::Entity>& value);
  const Quill::Ptr<Quill::Entity>& pluginStatusDir() const noexcept { return pluginStatusDir_; }
  void pluginStatusDirIs(const Quill::Ptr<Quill::Entity>& value);
  const Quill::Ptr<const AllPluginConfig>& allPluginConfig() const noexcept { return allPluginConfig_; }
  void allPluginConfigIs(const Quill::Ptr<const AllPluginConfig>& value);
  const Quill::Ptr<PluginStatus>& pluginStatus() const noexcept { return pluginStatus_; }
  void pluginStatusIs(const Quill::Ptr<PluginStatus>& value);
  const Quill::Ptr<PluginCleanupSm>& pluginCleanupSm() const noexcept { return pluginCleanupSm_; }
  void pluginCleanupSmIs(const Quill::Ptr<PluginCleanupSm>& value);
  /// The plugin's own cleanup helper. Helper and plugin usually hold references to each other; the agent sets
  /// the attribute to null to release both.
  const Quill::Ptr<PluginCleanupHelper>& pluginCleanupHelper() const noexcept { return pluginCleanupHelper_; }
  void pluginCleanupHelperIs(const Quill::Ptr<PluginCleanupHelper>& value);
  const Quill::Ptr<PluginCleanupHelper>& defaultPluginCleanupHelper() const noexcept {
    return defaultPluginCleanupHelper_;
  }
  void defaultPluginCleanupHelperIs(const Quill::Ptr<PluginCleanupHelper>& value);

  static const Quill::TypeNode _quillType;

 private:
  Quill::Ptr<CliCommandConfig> cliConfig_;
  Quill::Ptr<CliCommandStatus> cliStatus_;
  Quill::Ptr<PluginContext> pluginContext_;
  Quill::Ptr<Quill::Entity> pluginConfigDir_;
  Quill::Ptr<Quill::Entity> pluginStatusDir_;
  Quill::Ptr<const AllPluginConfig> allPluginConfig_;
  Quill::Ptr<PluginStatus> pluginStatus_;
  Quill::Ptr<PluginCleanupSm> pluginCleanupSm_;
  Quill::Ptr<PluginCleanupHelper> pluginCleanupHelper_;
  Quill::Ptr<PluginCleanupHelper> defaultPluginCleanupHelper_;
};

/// The reactor on `plugin` through which `observer` hears of every attribute; it holds no reference to the
/// plugin. `Notifiee` is the plugin's NotifieeConst.
template <class Notifiee>
Quill::Ptr<Quill::NotifieeConst> genericPluginNotifieeIs(const Quill::Ptr<const Quill::PtrInterface>& plugin,
                                                         Quill::GenericObserver observer) {
  class Generic final : public Quill::Counted<Generic, Notifiee> {
   public:
    Generic() : Generic::Counted(Quill::NotifieeConst::Hold::uncounted) {}
  };
  const auto reactor = Quill::allocate<Generic>();
  reactor->genericObserverIs(std::move(observer));
  reactor->notifierIs(plugin);
  reactor->isRegisteredNotifieeIs(true);
  return reactor;
}

}  // namespace P4Runtime
