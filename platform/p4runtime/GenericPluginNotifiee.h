// How the notifications of a plugin reach generic observers.
#pragma once

#include <utility>

#include "p4runtime/P4RuntimePluginBase.h"

namespace P4Runtime {

/// Tells `observer` the name of each attribute of the agent's base that changes. `Base` is a NotifieeConst
/// derived from that of the base; the class derived from this one adds the attributes of its own. The reactor
/// holds no reference to the plugin.
template <class Base>
class GenericPluginNotifiee : public Quill::Counted<GenericPluginNotifiee<Base>, Base> {
 public:
  explicit GenericPluginNotifiee(Quill::GenericObserver observer)
      : GenericPluginNotifiee::Counted(Quill::NotifieeConst::Hold::uncounted),
        observer_(std::move(observer)) {}

  void onCliConfig() override { observe("cliConfig"); }
  void onCliStatus() override { observe("cliStatus"); }
  void onPluginContext() override { observe("pluginContext"); }
  void onPluginConfigDir() override { observe("pluginConfigDir"); }
  void onPluginStatusDir() override { observe("pluginStatusDir"); }
  void onAllPluginConfig() override { observe("allPluginConfig"); }
  void onPluginStatus() override { observe("pluginStatus"); }
  void onPluginCleanupSm() override { observe("pluginCleanupSm"); }
  void onPluginCleanupHelper() override { observe("pluginCleanupHelper"); }
  void onDefaultPluginCleanupHelper() override { observe("defaultPluginCleanupHelper"); }

 protected:
  void observe(std::string_view attribute) const { observer_(attribute); }

 private:
  Quill::GenericObserver observer_;
};

/// A registered, active reactor of that class on `plugin`.
template <class Notifiee>
Quill::Ptr<Quill::NotifieeConst> genericPluginNotifieeIs(const Quill::Ptr<const Quill::PtrInterface>& plugin,
                                                         Quill::GenericObserver observer) {
  const auto reactor = Quill::allocate<Notifiee>(std::move(observer));
  reactor->notifierIs(plugin);
  reactor->isRegisteredNotifieeIs(true);
  return reactor;
}

}  // namespace P4Runtime
