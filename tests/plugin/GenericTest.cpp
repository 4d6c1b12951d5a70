// The plugin's types through the generic interface: surfaces in their order, everything reached by name.
#include "quill/Generic.h"

#include <map>

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "PluginFixture.h"

namespace {

using P4RuntimeTolmar::TolmarP4RuntimePlugin;
using P4RuntimeTolmar::VrfSm;
using Quill::GenericIf;
using Quill::GenericIfException;
using Quill::GenericValue;
using Quill::genericValue;
using Quill::Ptr;
using Quill::PtrInterface;
using TolmarHwLib::L3IifTH3Key;

using Values = std::vector<GenericValue>;

Ptr<PtrInterface> pointer(const GenericValue& value) { return std::any_cast<Ptr<PtrInterface>>(value); }

class Generic : public PluginFixture {
 protected:
  ~Generic() override { plugin_->pluginCleanupHelperIs(nullptr); }

  const GenericIf generic_ =
      TolmarP4RuntimePlugin::_quillType.genericIfFromCtorArgs(Values{Quill::Name("Tolmar")});
  const Ptr<TolmarP4RuntimePlugin> plugin_ = Quill::ptrCast<TolmarP4RuntimePlugin>(generic_.object());
  const GenericValue null_ = genericValue(Ptr<PtrInterface>());
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
      {&P4RuntimeTolmar::PluginCleanupHelper::_quillType,
       " allPluginConfig pluginStatus cliConfig parent name handleCleanupRequest"},
      {&VrfSm::_quillType,
       " l3IifTH3Config pluginContext vrfId vrfIdCollection initialized handleL3IifTH3ConfigEntry"
       " handleInitialized"},
      {&TolmarHwLib::L3IifTH3PendingHwProgrammingSm::_quillType, tracker},
      {&TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm::_quillType, tracker},
      {&TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm::_quillType, tracker},
  };
  for (const auto& [type, expected] : cases) {
    std::string members;
    for (const Quill::Member* member : type->allMembers()) members.append(" ").append(member->name);
    EXPECT_EQ(members, expected) << type->name;
  }
}

TEST_F(Generic, Plugin_StartsCleansUpAndIsReadByName) {
  EXPECT_TRUE(plugin_->hasNotificationActive());
  generic_.set("pluginContext", Values{genericValue(context_)});
  generic_.call("pluginInit", Values{genericValue(context_)});
  EXPECT_EQ(taken().size(), 24u);
  generic_.call("doMountsComplete", Values{Orrery::MountStatus::failed, genericValue(entityManager_)});
  EXPECT_EQ(taken(), Log{});
  EXPECT_EQ(std::any_cast<Quill::String>(generic_.get("pluginName")), "Tolmar");
  EXPECT_EQ(plugin_->fwkType()->newEntityForDir(Quill::Name("d"), plugin_)->name(), Quill::Name("d"));
  const GenericIf tracker(pointer(generic_.get("l3IifTH3PhpSm")));
  EXPECT_EQ(pointer(tracker.get("batchStatus")), batch_);
  const auto vrfSm = plugin_->vrfSm();
  generic_.del("vrfSm");
  EXPECT_FALSE(plugin_->vrfSm());
  EXPECT_FALSE(vrfSm->hasNotificationActive());
  generic_.call("doCleanup");
  EXPECT_EQ(taken().size(), 8u);
  const GenericIf helper(pointer(generic_.get("pluginCleanupHelper")));
  EXPECT_EQ(pointer(helper.get("parent")), plugin_);
  EXPECT_EQ(std::any_cast<Quill::Name>(helper.get("name")), Quill::Name("Tolmar"));
  helper.call("handleCleanupRequest");
  EXPECT_EQ(taken().size(), 8u);
  EXPECT_EQ(plugin_->pluginStatus()->cleanupsCompleted(), 1u);
}

TEST_F(Generic, VrfSm_MapByName) {
  GenericIf tracker = VrfSm::_quillType.genericIfFromCtorArgs(Values{null_, genericValue(context_)});
  const auto key = [](std::uint64_t l3Iif) { return Values{L3IifTH3Key{l3Iif}}; };
  for (const auto& [l3Iif, vrf] : std::map<std::uint64_t, unsigned short>{{1, 5}, {2, 6}, {3, 7}}) {
    tracker.set("vrfId", Values{L3IifTH3Key{l3Iif}, vrf});
  }
  EXPECT_EQ(std::any_cast<unsigned short>(tracker.get("vrfId", key(2))), 6);
  tracker.del("vrfId", key(2));
  EXPECT_FALSE(tracker.get("vrfId", key(2)).has_value());
  EXPECT_EQ(tracker.count("vrfId"), 2u);
  std::map<std::uint64_t, unsigned> walked;
  const auto walk = tracker.iterator("vrfId");
  for (; walk->nonNull(); walk->next()) {
    const auto l3Iif = std::any_cast<L3IifTH3Key>(walk->key()).l3Iif;
    walked[l3Iif] = std::any_cast<unsigned short>(walk->value());
    if (l3Iif != 1) continue;
    walk->del();
    EXPECT_THROW(walk->value(), GenericIfException);
    EXPECT_THROW(walk->del(), GenericIfException);
  }
  EXPECT_THROW(walk->key(), GenericIfException);
  EXPECT_EQ(walked, (std::map<std::uint64_t, unsigned>{{1, 5}, {3, 7}}));
  EXPECT_EQ(tracker.count("vrfId"), 1u);
  tracker.set("initialized", Values{false});
  tracker.set("vrfIdCollection", Values{null_});
  tracker.call("handleInitialized");
  EXPECT_TRUE(std::any_cast<bool>(tracker.get("initialized")));
  EXPECT_EQ(pointer(tracker.get("vrfIdCollection")), vrfs_);
  tracker.call("handleL3IifTH3ConfigEntry", key(9));
  const auto last = tracker.iterator("vrfId");
  tracker = GenericIf(nullptr);
  EXPECT_EQ(std::any_cast<unsigned short>(last->value()), 7);
}

TEST_F(Generic, Complaints_SayWhatWasExpectedAndWhatCame) {
  using Op = Quill::GenericOp;
  const std::string plugin = "P4RuntimeTolmar::TolmarP4RuntimePlugin";
  const std::string expected = "l3IifTH3Config: argument 1: expected TolmarHwLib::L3IifTH3Config, got ";
  const std::tuple<Op, const char*, Values, std::string> cases[] = {
      {Op::get, "vrf", {}, plugin + " has no member \"vrf\""},
      {Op::set, "doCleanup", {}, plugin + ": member \"doCleanup\" cannot be set"},
      {Op::call, "pluginInit", {}, "pluginInit: expected 1 arguments, got 0"},
      {Op::set, "l3IifTH3Config", {genericValue(context_)}, expected + "P4Runtime::PluginContext"},
      {Op::set, "l3IifTH3Config", {7}, expected + "int"},
  };
  for (const auto& [op, member, arguments, text] : cases) {
    try {
      Quill::genericIfAttributeOp(plugin_, op, member, arguments);
      ADD_FAILURE() << "no complaint: " << text;
    } catch (const GenericIfException& complaint) {
      EXPECT_EQ(complaint.what(), text);
    }
  }
}

}  // namespace
