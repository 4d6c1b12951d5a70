// The plugin's types through the generic interface: surfaces in their order, everything reached by name.
#include "quill/Generic.h"

#include <gmock/gmock.h>

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

TEST_F(Generic, VrfSm_MapByName) {
  const auto config = Quill::allocate<TolmarHwLib::L3IifTH3Config>(Quill::Name("table"));
  const Values arguments{genericValue(config), genericValue(context_)};
  GenericIf tracker = VrfSm::_quillType.genericIfFromCtorArgs(arguments);
  EXPECT_EQ(constPointer(tracker.get("l3IifTH3Config")), config);
  EXPECT_EQ(pointer(tracker.get("pluginContext")), context_);
  const auto key = [](std::uint64_t l3Iif) { return Values{L3IifTH3Key{l3Iif}}; };
  const auto vrfOf = [](const GenericValue& value) { return std::any_cast<unsigned short>(value); };
  for (std::uint16_t i = 1; i <= 3; ++i) {
    tracker.set("vrfId", Values{L3IifTH3Key{i}, static_cast<unsigned short>(i + 4)});
  }
  EXPECT_EQ(vrfOf(tracker.get("vrfId", key(2))), 6);
  tracker.del("vrfId", key(2));
  EXPECT_FALSE(tracker.get("vrfId", key(2)).has_value());
  EXPECT_EQ(tracker.count("vrfId"), 2u);
  std::map<std::uint64_t, unsigned> walked;
  const auto walk = tracker.iterator("vrfId");
  for (; walk->nonNull(); walk->next()) {
    walked[std::any_cast<L3IifTH3Key>(walk->key()).l3Iif] = vrfOf(walk->value());
    if (walked.size() == 2) walk->del();
  }
  EXPECT_EQ(walked, (std::map<std::uint64_t, unsigned>{{1, 5}, {3, 7}}));
  EXPECT_THROW(walk->key(), GenericIfException);
  EXPECT_EQ(tracker.count("vrfId"), 1u);
  const auto last = tracker.iterator("vrfId");
  tracker.set("initialized", Values{false});
  const auto other = Quill::allocate<P4Runtime::VrfIdCollection>();
  tracker.set("vrfIdCollection", Values{genericValue(other)});
  EXPECT_EQ(pointer(tracker.get("vrfIdCollection")), other);
  tracker.call("handleInitialized");
  EXPECT_TRUE(std::any_cast<bool>(tracker.get("initialized")));
  EXPECT_EQ(pointer(tracker.get("vrfIdCollection")), vrfs_);
  tracker.call("handleL3IifTH3ConfigEntry", key(9));
  tracker = GenericIf(nullptr);
  EXPECT_NO_THROW(last->value()) << "a walk holds its object";
}

TEST_F(Generic, Types_ReactorsInheritThoseOfTheirNotifiees) {
  const auto context = Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batch_, vrfs_);
  context->allPluginConfigIs(Quill::allocate<P4Runtime::AllPluginConfig>(Quill::Name("config")));
  const auto plugin = Quill::ptrCast<TolmarP4RuntimePlugin>(plugin_.object());
  plugin->init(context);
  const auto own = TolmarP4RuntimePlugin::_quillType.genericNotifiee(plugin, [](std::string_view) {});
  const std::string tables = "TolmarHwLib::";
  const std::pair<const PtrInterface*, std::string> cases[] = {
      {plugin->myStationTcamTH3Status()->notifieeList().front(), tables + "MyStationTcamTH3Status"},
      {plugin->l3TunnelIpv6TH3Status()->notifieeList().front(), tables + "L3TunnelTH3Status"},
      {plugin->l3TunnelIpv6TH3Config()->notifieeList().front(), tables + "L3TunnelTH3Config"},
      {plugin->l3IifTH3Status()->notifieeList().front(), tables + "L3IifTH3Status"},
      {plugin->vrfSm()->l3IifTH3Config()->notifieeList().front(), tables + "L3IifTH3Config"},
      {own.get(), "P4RuntimeTolmar::TolmarP4RuntimePlugin"},
  };
  for (const auto& [reactor, notifier] : cases) {
    EXPECT_EQ(reactor->fwkType()->name, notifier + "::NotifieeConst");
  }
  plugin->pluginCleanupHelperIs(nullptr);
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
    const auto ask = [&] {
      Quill::genericIfAttributeOp(plugin_.object(), one.op, one.member, one.arguments);
    };
    EXPECT_THAT(ask, testing::ThrowsMessage<GenericIfException>(one.text));
  }
}

}  // namespace
