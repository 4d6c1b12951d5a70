#include "tests/SlotOf.h"

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"

namespace {

using namespace P4RuntimeTolmar;
using namespace TolmarHwLib;

/// The slots of every counted object, then `more`.
template <class T, class... Members>
void expectObjectSlots(Members... more) {
  expectSlots(&T::notifieeList, &T::hasNotificationActiveIs, &T::zeroReferencesIs, &T::fwkType,
              DestructorSlots(), more...);
}

template <class T, class... Members>
void expectNotifieeSlots(Members... more) {
  expectObjectSlots<T>(&T::quillReactor, &T::isRegisteredNotifieeIs, &T::notifierIs, &T::handleNotification,
                       &T::onNotificationException, &T::onZeroReferences, &T::quillFwkActivity, &T::actsm,
                       more...);
}

template <class T, class Table>
void expectReactorSlots() {
  using Notifiee = typename Table::NotifieeConst;
  using Key = typename Table::Key;
  expectNotifieeSlots<T>(static_cast<void (T::*)(const Key&)>(&T::onTable), &T::onTablequillImmediate,
                         static_cast<void (Notifiee::*)()>(&Notifiee::onTable), &T::quillDoZombieReactors);
}

TEST(SlotOrder, OfPluginHelperTrackersAndReactors) {
  using Plugin = TolmarP4RuntimePlugin;
  expectObjectSlots<Plugin>(&Plugin::nameIsFromBackup, &Plugin::name, &Plugin::handleParent,
                            &Plugin::quillHasAttrLogInterface, &Plugin::quillNboAttrLogSaIs,
                            &Plugin::reconstruct, &Plugin::saveConstructParams, &Plugin::entBackupDel,
                            &Plugin::doMountsComplete, &Plugin::handleMountStatus, &Plugin::pluginInit);
  using Notifiee = Plugin::NotifieeConst;
  expectNotifieeSlots<Notifiee>(
      &Notifiee::onCliConfig, &Notifiee::onCliStatus, &Notifiee::onPluginContext,
      &Notifiee::onPluginConfigDir, &Notifiee::onPluginStatusDir, &Notifiee::onAllPluginConfig,
      &Notifiee::onPluginStatus, &Notifiee::onPluginCleanupSm, &Notifiee::onPluginCleanupHelper,
      &Notifiee::onDefaultPluginCleanupHelper, &Notifiee::onL3TunnelIpv4TH3Config,
      &Notifiee::onL3TunnelIpv4TH3Status, &Notifiee::onL3TunnelIpv6TH3Config,
      &Notifiee::onL3TunnelIpv6TH3Status, &Notifiee::onMyStationTcamTH3Config,
      &Notifiee::onMyStationTcamTH3Status, &Notifiee::onL3IifTH3Config, &Notifiee::onL3IifTH3Status,
      &Notifiee::onVrfSm, &Notifiee::onL3TunnelIpv4TH3PhpSm, &Notifiee::onL3TunnelIpv6TH3PhpSm,
      &Notifiee::onL3IifTH3PhpSm, &Notifiee::onMyStationTcamTH3PhpSm);
  expectSlots(DestructorSlots(), &TolmarP4RuntimePluginLoader::init);
  expectObjectSlots<PluginCleanupHelper>(&PluginCleanupHelper::handleCleanupRequest);
  expectObjectSlots<VrfSm>(&VrfSm::quillDoZombieReactors);
  expectReactorSlots<VrfSm::QuillL3IifTH3Config, L3IifTH3Config>();
  Kinds::forEach([]<class Kind>() {
    using Sm = typename TrackerOf<Kind>::type;
    expectObjectSlots<Sm>(&Sm::quillDoZombieReactors);
    expectReactorSlots<typename Sm::QuillStatus, typename Kind::Status>();
  });
}

}  // namespace
