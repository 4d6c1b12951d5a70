// The plugin's types through the generic interface: surfaces in their order, everything reached by name.
#include "quill/Generic.h"

#include "LoggingReactor.h"
#include "RecordingPlatform.h"
#include "ScriptedTable.h"

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

Log memberNames(const Quill::TypeNode& type) {
  Log names;
  for (const Quill::Member* member : type.allMembers()) names.emplace_back(member->name);
  return names;
}

Ptr<PtrInterface> pointer(const GenericValue& value) { return std::any_cast<Ptr<PtrInterface>>(value); }

class Generic : public RecordingPlatform {
 protected:
  Ptr<TolmarP4RuntimePlugin> plugin_ = Quill::allocate<TolmarP4RuntimePlugin>(Quill::Name("Tolmar"));
  GenericIf generic_{plugin_};

  void TearDown() override {
    plugin_->pluginCleanupHelperIs(nullptr);
    plugin_ = nullptr;
    generic_ = GenericIf(nullptr);
    RecordingPlatform::TearDown();
  }
};

TEST_F(Generic, Surface_MembersInOrderInheritedOnesFirst) {
  struct Case {
    const Quill::TypeNode& type;
    Log members;
  };
  const Log tracker = {"batchStatus", "status", "onStatusRow", "onStatusRows"};
  const Case cases[] = {
      {TolmarP4RuntimePlugin::_quillType,
       {"name",
        "parent",
        "fullName",
        "parentAttrName",
        "entity",
        "handleMountStatus",
        "pluginName",
        "cliConfig",
        "cliStatus",
        "pluginContext",
        "pluginConfigDir",
        "pluginStatusDir",
        "allPluginConfig",
        "pluginStatus",
        "pluginCleanupSm",
        "init",
        "pluginCleanupHelper",
        "defaultPluginCleanupHelper",
        "doMountsComplete",
        "pluginInit",
        "l3TunnelIpv4TH3Config",
        "l3TunnelIpv4TH3Status",
        "l3TunnelIpv6TH3Config",
        "l3TunnelIpv6TH3Status",
        "myStationTcamTH3Config",
        "myStationTcamTH3Status",
        "l3IifTH3Config",
        "l3IifTH3Status",
        "vrfSm",
        "l3TunnelIpv4TH3PhpSm",
        "l3TunnelIpv6TH3PhpSm",
        "l3IifTH3PhpSm",
        "myStationTcamTH3PhpSm",
        "doCleanup"}},
      {P4RuntimeTolmar::PluginCleanupHelper::_quillType,
       {"allPluginConfig", "pluginStatus", "cliConfig", "parent", "name", "handleCleanupRequest"}},
      {VrfSm::_quillType,
       {"l3IifTH3Config", "pluginContext", "vrfId", "vrfIdCollection", "initialized",
        "handleL3IifTH3ConfigEntry", "handleInitialized"}},
      {TolmarHwLib::L3IifTH3PendingHwProgrammingSm::_quillType, tracker},
      {TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm::_quillType, tracker},
      {TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm::_quillType, tracker},
  };
  for (const Case& c : cases) EXPECT_EQ(memberNames(c.type), c.members) << c.type.name;
}

TEST_F(Generic, Plugin_StartsCleansUpAndIsReadByName) {
  const GenericValue context[] = {genericValue(context_)};
  generic_.call("init", context);
  EXPECT_EQ(std::any_cast<Quill::String>(generic_.get("pluginName")), "Tolmar");
  EXPECT_EQ(pointer(generic_.get("pluginContext")), context_);
  EXPECT_EQ(pointer(generic_.get("l3IifTH3Status")), plugin_->l3IifTH3Status());
  const GenericIf tracker(pointer(generic_.get("l3IifTH3PhpSm")));
  EXPECT_EQ(pointer(tracker.get("batchStatus")), batch_);
  taken();
  generic_.call("doCleanup");
  EXPECT_EQ(taken().size(), 8u);
  const GenericIf helper(pointer(generic_.get("pluginCleanupHelper")));
  EXPECT_EQ(pointer(helper.get("parent")), plugin_);
  EXPECT_EQ(std::any_cast<Quill::Name>(helper.get("name")), Quill::Name("Tolmar"));
  helper.call("handleCleanupRequest");
  EXPECT_EQ(taken().size(), 8u);
  EXPECT_EQ(plugin_->pluginStatus()->cleanupsCompleted(), 1u);
}

TEST_F(Generic, Plugin_AttributesSetByNameNotify) {
  Log log;
  const auto reactor = LoggingReactor::on(plugin_, log);
  const Ptr<PtrInterface> null;
  Log expected;
  for (const Quill::Member& member : TolmarP4RuntimePlugin::_quillType.members) {
    if (member.kind != Quill::Member::Kind::attribute || member.name == "vrfSm") continue;
    const std::string name(member.name);
    const Quill::TypeNode* const type = Quill::typeNode(member.type);
    ASSERT_NE(type, nullptr) << name;
    const GenericValue arguments[] = {genericValue(batch_), genericValue(null)};
    const Ptr<PtrInterface> made =
        name.ends_with("PhpSm") ? type->genericIfFromCtorArgs(Quill::GenericArguments(arguments)).object()
                                : Ptr<PtrInterface>(type->newEntityForDir(Quill::Name(name), nullptr));
    const GenericValue value[] = {genericValue(made)};
    generic_.set(name, value);
    generic_.set(name, value);  // unchanged
    EXPECT_EQ(pointer(generic_.get(name)), made) << name;
    const GenericValue none[] = {genericValue(null)};
    generic_.set(name, none);
    const std::string on = "on" + std::string(1, static_cast<char>(std::toupper(name[0]))) + name.substr(1);
    expected.insert(expected.end(), {on, on});
  }
  EXPECT_EQ(log, expected);
  EXPECT_EQ(expected.size(), 24u);
  reactor->notifierIs(nullptr);
}

TEST_F(Generic, Plugin_VrfSmSetAndRemovedByName) {
  const Ptr<PtrInterface> null;
  const GenericValue arguments[] = {genericValue(null), genericValue(context_)};
  generic_.set("vrfSm", arguments);
  const auto tracker = plugin_->vrfSm();
  ASSERT_TRUE(tracker);
  EXPECT_EQ(tracker->pluginContext(), context_);
  generic_.del("vrfSm");
  EXPECT_FALSE(plugin_->vrfSm());
  EXPECT_FALSE(tracker->hasNotificationActive());
}

TEST_F(Generic, Plugin_ObserversHearOwnAndInheritedAttributes) {
  Log heard;
  const auto observer = TolmarP4RuntimePlugin::_quillType.genericNotifiee(
      plugin_, [&heard](std::string_view attribute) { heard.emplace_back(attribute); });
  plugin_->init(context_);
  EXPECT_EQ(heard, (Log{"pluginContext", "defaultPluginCleanupHelper", "l3TunnelIpv4TH3PhpSm",
                        "l3TunnelIpv6TH3PhpSm", "l3IifTH3PhpSm", "myStationTcamTH3PhpSm", "vrfSm",
                        "pluginCleanupHelper"}));
}

TEST_F(Generic, Plugin_IsMadeByNameAndForADirectory) {
  const GenericValue arguments[] = {Quill::Name("made")};
  const GenericIf made =
      TolmarP4RuntimePlugin::_quillType.genericIfFromCtorArgs(Quill::GenericArguments(arguments));
  EXPECT_EQ(made.object()->fwkType(), &TolmarP4RuntimePlugin::_quillType);
  EXPECT_EQ(std::any_cast<Quill::Name>(made.get("name")), Quill::Name("made"));
  EXPECT_TRUE(made.object()->hasNotificationActive());
  const auto inDirectory = TolmarP4RuntimePlugin::_quillType.newEntityForDir(Quill::Name("d"), plugin_);
  EXPECT_EQ(inDirectory->name(), Quill::Name("d"));
}

TEST_F(Generic, VrfSm_MapByName) {
  const GenericValue arguments[] = {genericValue(Ptr<PtrInterface>()), genericValue(context_)};
  const GenericIf tracker = VrfSm::_quillType.genericIfFromCtorArgs(Quill::GenericArguments(arguments));
  const auto set = [&tracker](std::uint64_t key, unsigned short vrf) {
    const GenericValue line[] = {L3IifTH3Key{key}, vrf};
    tracker.set("vrfId", line);
  };
  set(1, 5);
  set(2, 6);
  set(1, 7);
  EXPECT_EQ(tracker.count("vrfId"), 2u);
  const GenericValue one[] = {L3IifTH3Key{1}};
  const GenericValue three[] = {L3IifTH3Key{3}};
  EXPECT_EQ(std::any_cast<unsigned short>(tracker.get("vrfId", one)), 7);
  EXPECT_FALSE(tracker.get("vrfId", three).has_value());
  std::vector<std::pair<std::uint64_t, unsigned short>> walked;
  for (const auto at = tracker.iterator("vrfId"); at->nonNull(); at->next()) {
    walked.emplace_back(std::any_cast<L3IifTH3Key>(at->key()).l3Iif,
                        std::any_cast<unsigned short>(at->value()));
    if (walked.back().first == 1) at->del();
  }
  EXPECT_EQ(walked, (std::vector<std::pair<std::uint64_t, unsigned short>>{{1, 7}, {2, 6}}));
  EXPECT_EQ(tracker.count("vrfId"), 1u);
  const GenericValue two[] = {L3IifTH3Key{2}};
  tracker.del("vrfId", two);
  EXPECT_EQ(tracker.count("vrfId"), 0u);
  EXPECT_TRUE(std::any_cast<bool>(tracker.get("initialized")));
  const GenericValue off[] = {false};
  tracker.set("initialized", off);
  tracker.call("handleInitialized");
  EXPECT_TRUE(std::any_cast<bool>(tracker.get("initialized")));
  EXPECT_EQ(pointer(tracker.get("vrfIdCollection")), vrfs_);
}

TEST_F(Generic, Tracker_MadeAndRunByName) {
  using Tracker = TolmarHwLib::L3IifTH3PendingHwProgrammingSm;
  ScriptedEntity<TolmarHwLib::L3IifTH3Status> status(folder_.path());
  const GenericValue arguments[] = {genericValue(batch_), genericValue(status.entity)};
  const GenericIf tracker = Tracker::_quillType.genericIfFromCtorArgs(Quill::GenericArguments(arguments));
  EXPECT_EQ(std::any_cast<Ptr<const PtrInterface>>(tracker.get("status")), status.entity);
  status.entity->tableIs({});
  EXPECT_EQ(taken(), Log{"completed 0 0"});
  const GenericValue key[] = {L3IifTH3Key{0}};
  tracker.call("onStatusRow", key);
  EXPECT_EQ(taken(), Log{"completed 0 0"});
  tracker.call("onStatusRows");
  EXPECT_EQ(taken(), Log{});
}

struct ComplaintCase {
  const char* name;
  void (*act)(const GenericIf& generic, const GenericValue& context);
  const char* text;
};

TEST_F(Generic, Complaints_SayWhatWasExpectedAndWhatCame) {
  static const ComplaintCase kCases[] = {
      {"no such member", [](const GenericIf& g, const GenericValue&) { g.get("vrf"); },
       "P4RuntimeTolmar::TolmarP4RuntimePlugin has no member \"vrf\""},
      {"not settable",
       [](const GenericIf& g, const GenericValue& c) {
         g.set("doCleanup", {&c, 1});
       },
       "P4RuntimeTolmar::TolmarP4RuntimePlugin: member \"doCleanup\" cannot be set"},
      {"too few", [](const GenericIf& g, const GenericValue&) { g.call("pluginInit"); },
       "pluginInit: expected 1 arguments, got 0"},
      {"another object",
       [](const GenericIf& g, const GenericValue& c) {
         g.set("l3IifTH3Config", {&c, 1});
       },
       "l3IifTH3Config: argument 1: expected TolmarHwLib::L3IifTH3Config, got P4Runtime::PluginContext"},
      {"no object",
       [](const GenericIf& g, const GenericValue&) {
         const GenericValue number = 7;
         g.set("l3IifTH3Config", {&number, 1});
       },
       "l3IifTH3Config: argument 1: expected TolmarHwLib::L3IifTH3Config, got int"},
  };
  for (const ComplaintCase& c : kCases) {
    SCOPED_TRACE(c.name);
    try {
      c.act(generic_, genericValue(context_));
      ADD_FAILURE() << "no complaint";
    } catch (const GenericIfException& complaint) {
      EXPECT_STREQ(complaint.what(), c.text);
    }
  }
}

}  // namespace
