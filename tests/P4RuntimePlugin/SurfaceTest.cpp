// What others reach the plugin's types by: the generic interface, with members in their order, and the slots
// of virtual operations.
#include "quill/Generic.h"

#include <gmock/gmock.h>

#include <map>

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "PluginFixture.h"
#include "tests/SlotOf.h"

namespace {

using namespace P4RuntimeTolmar;
using namespace TolmarHwLib;
using Quill::GenericIf, Quill::GenericIfException, Quill::GenericValue, Quill::genericValue;

using Values = std::vector<GenericValue>;

class Generic : public PluginFixture {
 protected:
  const GenericIf plugin_ =
      TolmarP4RuntimePlugin::_quillType.genericIfFromCtorArgs(Values{Quill::Name("Tolmar")});
};

TEST_F(Generic, Surface_MembersInOrderInheritedOnesFirst) {
  const std::string tracker = " batchStatus status onStatusRow onStatusRows";
  const std::pair<const Quill::TypeNode*, std::string> cases[] = {
      {&TolmarP4RuntimePlugin::_quillType,
       " name parent fullName parentAttrName entity handleMountStatus pluginName cliConfig cliStatus"
       " pluginContext pluginConfigDir pluginStatusDir allPluginConfig pluginStatus pluginCleanupSm init"
       " pluginCleanupHelper defaultPluginCleanupHelper doMountsComplete pluginInit"
       " l3TunnelIpv4TH3Config l3TunnelIpv4TH3Status l3TunnelIpv6TH3Config l3TunnelIpv6TH3Status"
       " myStationTcamTH3Config myStationTcamTH3Status l3IifTH3Config l3IifTH3Status vrfSm"
       " l3TunnelIpv4TH3PhpSm l3TunnelIpv6TH3PhpSm l3IifTH3PhpSm myStationTcamTH3PhpSm doCleanup"},
      {&PluginCleanupHelper::_quillType,
       " allPluginConfig pluginStatus cliConfig parent name handleCleanupRequest"},
      {&VrfSm::_quillType,
       " l3IifTH3Config pluginContext vrfId vrfIdCollection initialized handleL3IifTH3ConfigEntry"
       " handleInitialized"},
      {&L3IifTH3PendingHwProgrammingSm::_quillType, tracker},
      {&MyStationTcamTH3PendingHwProgrammingSm::_quillType, tracker},
      {&L3TunnelTH3PendingHwProgrammingSm::_quillType, tracker},
  };
  for (const auto& [type, expected] : cases) {
    std::string members;
    for (const Quill::Member* member : type->allMembers()) members.append(" ").append(member->name);
    EXPECT_EQ(members, expected) << type->name;
  }
}

TEST_F(Generic, VrfSm_MapByName) {
  const auto config = Quill::allocate<L3IifTH3Config>(Quill::Name("table"));
  GenericIf tracker =
      VrfSm::_quillType.genericIfFromCtorArgs(Values{genericValue(config), genericValue(context_)});
  EXPECT_EQ(constPointer(tracker.get("l3IifTH3Config")), config);
  EXPECT_EQ(pointer(tracker.get("pluginContext")), context_);
  const auto key = [](std::uint64_t l3Iif) { return Values{L3IifTH3Key{l3Iif}}; };
  const auto vrfOf = [](const GenericValue& value) { return std::any_cast<unsigned short>(value); };
  for (unsigned short i = 1; i <= 3; ++i) tracker.set("vrfId", Values{L3IifTH3Key{i}, i});
  EXPECT_EQ(vrfOf(tracker.get("vrfId", key(2))), 2);
  tracker.del("vrfId", key(2));
  EXPECT_FALSE(tracker.get("vrfId", key(2)).has_value());
  EXPECT_EQ(tracker.count("vrfId"), 2u);
  std::map<std::uint64_t, unsigned> walked;
  const auto walk = tracker.iterator("vrfId");
  for (; walk->nonNull(); walk->next()) {
    walked[std::any_cast<L3IifTH3Key>(walk->key()).l3Iif] = vrfOf(walk->value());
    if (walked.size() == 2) walk->del();
  }
  EXPECT_EQ(walked, (std::map<std::uint64_t, unsigned>{{1, 1}, {3, 3}}));
  EXPECT_THROW(walk->key(), GenericIfException);
  EXPECT_EQ(tracker.count("vrfId"), 1u);
  tracker.set("initialized", Values{false});
  const auto other = Quill::allocate<P4Runtime::VrfIdCollection>();
  tracker.set("vrfIdCollection", Values{genericValue(other)});
  EXPECT_EQ(pointer(tracker.get("vrfIdCollection")), other);
  tracker.call("handleInitialized");
  EXPECT_TRUE(std::any_cast<bool>(tracker.get("initialized")));
  EXPECT_EQ(pointer(tracker.get("vrfIdCollection")), vrfs_);
  tracker.call("handleL3IifTH3ConfigEntry", key(9));
  const auto last = tracker.iterator("vrfId");
  tracker = GenericIf(nullptr);
  EXPECT_NO_THROW(last->value()) << "a walk holds its object";
}

TEST_F(Generic, Complaints_SayWhatWasExpectedAndWhatCame) {
  using Op = Quill::GenericOp;
  const std::string plugin = "P4RuntimeTolmar::TolmarP4RuntimePlugin";
  const std::string expected = "l3IifTH3Config: argument 1: expected TolmarHwLib::L3IifTH3Config, got ";
  const struct {
    Op op;
    const char* member;
    Values arguments;
    std::string text;
  } cases[] = {
      {Op::get, "vrf", {}, plugin + " has no member \"vrf\""},
      {Op::set, "doCleanup", {}, plugin + ": member \"doCleanup\" cannot be set"},
      {Op::call, "pluginInit", {}, "pluginInit: expected 1 arguments, got 0"},
      {Op::set, "l3IifTH3Config", {genericValue(context_)}, expected + "P4Runtime::PluginContext"},
      {Op::set, "l3IifTH3Config", {7}, expected + "int"},
  };
  for (const auto& one : cases) {
    EXPECT_THAT([&] { genericIfAttributeOp(plugin_.object(), one.op, one.member, one.arguments); },
                testing::ThrowsMessage<GenericIfException>(one.text));
  }
}

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
