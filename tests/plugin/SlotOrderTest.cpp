// The order of virtual operations is part of the contract: other libraries call them by slot.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "P4RuntimePlugin/P4RuntimeTolmarPluginLoader.h"

namespace {

using namespace P4RuntimeTolmar;
using namespace TolmarHwLib;

/// Stands for the two slots of a destructor.
struct Destructors {};

/// Expects the virtual tables' slots to be those of `members`, one after the other.
template <class... Members>
void expectSlots(const char* type, Members... members) {
  std::size_t slot = 0;
  const auto check = [&](auto member) {
    if constexpr (std::is_same_v<decltype(member), Destructors>) {
      slot += 2;
    } else {
      std::size_t word = 0;  // a pointer to a virtual member holds one plus the offset in the virtual table
      std::memcpy(&word, &member, sizeof word);
      EXPECT_EQ(word, 1 + slot * sizeof(void*)) << type << " slot " << slot;
      ++slot;
    }
  };
  (check(members), ...);
}

/// The slots of every counted object, then `more`.
template <class T, class... Members>
void expectObjectSlots(const char* type, Members... more) {
  expectSlots(type, &T::notifieeList, &T::hasNotificationActiveIs, &T::zeroReferencesIs, &T::fwkType,
              Destructors(), more...);
}

template <class T, class... Members>
void expectNotifieeSlots(const char* type, Members... more) {
  expectObjectSlots<T>(type, &T::quillReactor, &T::isRegisteredNotifieeIs, &T::notifierIs,
                       &T::handleNotification, &T::onNotificationException, &T::onZeroReferences,
                       &T::quillFwkActivity, &T::actsm, more...);
}

template <class T, class Table>
void expectReactorSlots(const char* type) {
  using Notifiee = typename Table::NotifieeConst;
  using Key = typename Table::Key;
  expectNotifieeSlots<T>(type, static_cast<void (T::*)(const Key&)>(&T::onTable), &T::onTablequillImmediate,
                         static_cast<void (Notifiee::*)()>(&Notifiee::onTable), &T::quillDoZombieReactors);
}

TEST(SlotOrder, OfPluginHelperTrackersAndReactors) {
  using Plugin = TolmarP4RuntimePlugin;
  expectObjectSlots<Plugin>("plugin", &Plugin::nameIsFromBackup, &Plugin::name, &Plugin::handleParent,
                            &Plugin::quillHasAttrLogInterface, &Plugin::quillNboAttrLogSaIs,
                            &Plugin::reconstruct, &Plugin::saveConstructParams, &Plugin::entBackupDel,
                            &Plugin::doMountsComplete, &Plugin::handleMountStatus, &Plugin::pluginInit);
  using Notifiee = Plugin::NotifieeConst;
  expectNotifieeSlots<Notifiee>(
      "plugin's notifiee", &Notifiee::onCliConfig, &Notifiee::onCliStatus, &Notifiee::onPluginContext,
      &Notifiee::onPluginConfigDir, &Notifiee::onPluginStatusDir, &Notifiee::onAllPluginConfig,
      &Notifiee::onPluginStatus, &Notifiee::onPluginCleanupSm, &Notifiee::onPluginCleanupHelper,
      &Notifiee::onDefaultPluginCleanupHelper, &Notifiee::onL3TunnelIpv4TH3Config,
      &Notifiee::onL3TunnelIpv4TH3Status, &Notifiee::onL3TunnelIpv6TH3Config,
      &Notifiee::onL3TunnelIpv6TH3Status, &Notifiee::onMyStationTcamTH3Config,
      &Notifiee::onMyStationTcamTH3Status, &Notifiee::onL3IifTH3Config, &Notifiee::onL3IifTH3Status,
      &Notifiee::onVrfSm, &Notifiee::onL3TunnelIpv4TH3PhpSm, &Notifiee::onL3TunnelIpv6TH3PhpSm,
      &Notifiee::onL3IifTH3PhpSm, &Notifiee::onMyStationTcamTH3PhpSm);
  expectSlots("loader", Destructors(), &TolmarP4RuntimePluginLoader::init);
  expectObjectSlots<PluginCleanupHelper>("helper", &PluginCleanupHelper::handleCleanupRequest);
  expectObjectSlots<VrfSm>("VRF tracker", &VrfSm::quillDoZombieReactors);
  expectReactorSlots<VrfSm::QuillL3IifTH3Config, L3IifTH3Config>("VRF tracker's reactor");
  using IifSm = L3IifTH3PendingHwProgrammingSm;
  expectObjectSlots<IifSm>("tracker", &IifSm::quillDoZombieReactors);
  expectReactorSlots<IifSm::QuillStatus, L3IifTH3Status>("tracker's reactor");
}

}  // namespace
