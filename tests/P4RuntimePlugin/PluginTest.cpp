// The plugin object over the real platform, as one log of calls.
#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"

#include "PluginFixture.h"
#include "cairn/Assert.h"
#include "tests/AllocationCount.h"

namespace {

using namespace TolmarHwLib;
using P4RuntimeTolmar::TolmarP4RuntimePlugin;
using Op = Quill::GenericOp;
using Values = std::vector<Quill::GenericValue>;

Log operator+(Log a, const Log& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

/// The calls for one table, from its mounts to its registration.
Log tableLog(const std::string& type, const std::string& table, const std::string& capacity) {
  const std::string name = static_cast<char>(std::toupper(table[0])) + table.substr(1);
  return {"mount ~" + table + "Table/config TolmarHwLib::" + type + "Config 0 table " + capacity,
          "mount ~" + table + "Table/status TolmarHwLib::" + type + "Status 1 table " + capacity,
          "entity ~" + table + "Table/config",
          "entity ~" + table + "Table/status",
          "register Lumen" + name + "ConfigTable TolmarHwLib::" + type + "ConfigEntryRow 2 256 256 \"\" 0",
          "serve Lumen" + name + "ConfigTable"};
}

const std::string kTrace = "./P4RuntimePlugin/P4RuntimeTolmarPlugin ";
const std::string kInitTrace = kTrace + "pluginInit: pluginInit at 0";
const std::string kMountsTrace = kTrace + "doMountsComplete: doMountsComplete at 0";
const std::string kCleanupTrace = kTrace + "doCleanup: TolmarP4RuntimePlugin::doCleanup at 4";
const std::string kRequestTrace =
    "./P4RuntimePlugin/PluginCleanupHelper handleCleanupRequest: "
    "TolmarP4RuntimePlugin::handleCleanupRequest at 4";

const Log kInitLog = Log{kInitTrace} + tableLog("L3TunnelTH3", "l3TunnelIpv4TH3", "8192") +
                     tableLog("L3TunnelTH3", "l3TunnelIpv6TH3", "4096") +
                     tableLog("MyStationTcamTH3", "myStationTcamTH3", "512") +
                     tableLog("L3IifTH3", "l3IifTH3", "8192") +
                     Log{"on l3TunnelIpv4TH3PhpSm", "on l3TunnelIpv6TH3PhpSm", "on l3IifTH3PhpSm"} +
                     Log{"on myStationTcamTH3PhpSm", "on vrfSm", "on pluginCleanupHelper"};

const Log kCleanupLog = [] {
  Log log = {kRequestTrace, kCleanupTrace};
  for (const std::string table : {"l3TunnelIpv4TH3", "l3TunnelIpv6TH3", "l3IifTH3", "myStationTcamTH3"}) {
    for (const std::string call : {"cleanup ~", "unmount ~"}) log.push_back(call + table + "Table/config");
  }
  return log;
}();

/// Logs the end of the object and, when that is a plugin status, each completion of a cleanup.
struct Watcher final : Recording, Quill::Counted<Watcher, P4Runtime::PluginStatus::NotifieeConst> {
  Watcher(const Quill::Ptr<const Quill::PtrInterface>& object, std::string watched, Log& all)
      : Recording{all}, Counted(Hold::uncounted), name(std::move(watched)) {
    Watcher::notifierIs(object);
    isRegisteredNotifieeIs(true);
  }
  void onZeroReferences() override { log.push_back("end " + name); }
  void onCleanupsCompleted() override {
    log.push_back("completed " + name);
    if (onCompleted) onCompleted();
  }

  std::string name;
  std::function<void()> onCompleted;
};

class Plugin : public PluginFixture {
 protected:
  Plugin() {
    for (const int level : {0, 4}) traceIs("TolmarP4RuntimePlugin", level);
  }
  ~Plugin() override {
    if (plugin_) plugin_->pluginCleanupHelperIs(nullptr);
  }

  void byName(Op op, std::string_view member, const Values& arguments = {}) const {
    Quill::genericIfAttributeOp(plugin_, op, member, arguments);
  }
  Watcher& watch(const Quill::Ptr<const Quill::PtrInterface>& object, const std::string& name) {
    watchers_.push_back(Quill::allocate<Watcher>(object, name, log_));
    return *watchers_.back();
  }
  /// What the attributes of the plugin point at, in their order.
  std::vector<Quill::Ptr<Quill::PtrInterface>> attributes() const {
    std::vector<Quill::Ptr<Quill::PtrInterface>> all;
    for (const Quill::Member& member : TolmarP4RuntimePlugin::_quillType.members) {
      if (member.kind != Quill::Member::Kind::attribute) continue;
      all.push_back(pointer(genericIfAttributeOp(plugin_, Op::get, member.name)));
    }
    return all;
  }

  Quill::Ptr<TolmarP4RuntimePlugin> plugin_ = Quill::ptrCast<TolmarP4RuntimePlugin>(
      TolmarP4RuntimePlugin::_quillType.newEntityForDir(Quill::Name("Tolmar"), nullptr));
  const Quill::Ptr<P4Runtime::AllPluginConfig> config_ =
      Quill::allocate<P4Runtime::AllPluginConfig>(Quill::Name("allPluginConfig"));
  // Observes every notification of the plugin by its attribute's name.
  const Quill::Ptr<Quill::NotifieeConst> reactor_ =
      TolmarP4RuntimePlugin::_quillType.genericNotifiee(plugin_, [this](std::string_view attribute) {
        log_.push_back("on " + std::string(attribute));
        if (onAttribute_) onAttribute_(attribute);
      });
  std::function<void(std::string_view)> onAttribute_;
  std::vector<Quill::Ptr<Watcher>> watchers_;
};

TEST_F(Plugin, Init_MountsRegistersAndWiresInOrder) {
  context_->allPluginConfigIs(config_);
  plugin_->cliConfigIs(Quill::allocate<P4Runtime::CliCommandConfig>(Quill::Name("cli")));
  byName(Op::call, "init", {genericValue(context_)});
  EXPECT_EQ(taken(), (Log{"on cliConfig", "on pluginContext", "on allPluginConfig", "on pluginCleanupSm",
                          "on defaultPluginCleanupHelper"} +
                      kInitLog));
  const auto expectWired = [this](const auto& tracker, const auto& status) {
    EXPECT_EQ(tracker->status(), status);
    EXPECT_EQ(tracker->batchStatus(), batch_);
    const auto* const reactor = status->notifieeList().front();
    EXPECT_TRUE(reactor->hasNotificationActive());
    EXPECT_EQ(reactor->fwkType()->name, std::string(status->fwkType()->name) + "::NotifieeConst");
  };
  expectWired(plugin_->l3TunnelIpv4TH3PhpSm(), plugin_->l3TunnelIpv4TH3Status());
  expectWired(plugin_->l3TunnelIpv6TH3PhpSm(), plugin_->l3TunnelIpv6TH3Status());
  expectWired(plugin_->l3IifTH3PhpSm(), plugin_->l3IifTH3Status());
  expectWired(plugin_->myStationTcamTH3PhpSm(), plugin_->myStationTcamTH3Status());
  EXPECT_NE(plugin_->l3TunnelIpv4TH3Status(), plugin_->l3TunnelIpv6TH3Status());
  const auto& config = plugin_->l3IifTH3Config();
  EXPECT_EQ(plugin_->vrfSm()->l3IifTH3Config(), config);
  EXPECT_EQ(config->notifieeList().front()->fwkType()->name, "TolmarHwLib::L3IifTH3Config::NotifieeConst");
  EXPECT_EQ(reactor_->fwkType()->name, "P4RuntimeTolmar::TolmarP4RuntimePlugin::NotifieeConst");
  EXPECT_TRUE(plugin_->vrfSm()->hasNotificationActive());
  EXPECT_EQ(plugin_->pluginCleanupHelper()->references(), 1u);
  EXPECT_TRUE(plugin_->pluginCleanupHelper()->hasNotificationActive());
  const Quill::GenericIf helper(plugin_->pluginCleanupHelper());
  EXPECT_EQ(constPointer(helper.get("allPluginConfig")), config_);
  EXPECT_EQ(pointer(helper.get("pluginStatus")), plugin_->pluginStatus());
  EXPECT_EQ(pointer(helper.get("cliConfig")), nullptr) << "never the plugin's own";
  EXPECT_EQ(pointer(helper.get("parent")), plugin_);
  for (int i = 0; i < 2; ++i) loop_.step(std::chrono::milliseconds(0));
  EXPECT_EQ(taken(), Log{kMountsTrace});
}

TEST_F(Plugin, Init_TakesDatabaseFromAttributeAndTheRestFromTheArgument) {
  const auto otherBatch = Quill::allocate<P4Runtime::BatchStatus>();
  plugin_->pluginContextIs(Quill::allocate<P4Runtime::PluginContext>(nullptr, lumenDb_, nullptr, nullptr));
  const auto given = Quill::allocate<P4Runtime::PluginContext>(entityManager_, nullptr, otherBatch, vrfs_);
  byName(Op::call, "pluginInit", {genericValue(given)});
  EXPECT_EQ(lumenDb_->tables().size(), 4u);
  EXPECT_EQ(entityManager_->mountedPaths().size(), 8u);
  EXPECT_EQ(plugin_->l3IifTH3PhpSm()->batchStatus(), otherBatch);
  EXPECT_EQ(plugin_->vrfSm()->pluginContext(), given);
}

TEST_F(Plugin, MissingVrfs_FailTheirTrackerAndKeepWhatIsMade) {
  plugin_->init(context_);
  L3IifTH3ConfigEntry entry;
  entry.vrf = 5;
  plugin_->l3IifTH3Config()->tableIs(entry);
  const auto second = Quill::allocate<TolmarP4RuntimePlugin>(Quill::Name("second"));
  const auto noVrfs = Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batch_, nullptr);
  second->pluginContextIs(noVrfs);
  EXPECT_THROW(second->pluginInit(noVrfs), Cairn::AssertionException);
  EXPECT_TRUE(second->myStationTcamTH3PhpSm());
  EXPECT_FALSE(second->vrfSm());
  EXPECT_FALSE(second->pluginCleanupHelper());
}

TEST_F(Plugin, MissingRowDatabase_StopsTheProcessBeforeAnythingIsMounted) {
  struct Stopped {};
  Cairn::fatalHandlerIs([](const char* text, const char*) {
    EXPECT_STREQ(text, "adb");
    throw Stopped();
  });
  const auto bare = Quill::allocate<P4Runtime::PluginContext>(entityManager_, nullptr, batch_, vrfs_);
  const Quill::Ptr<P4Runtime::PluginContext> none;
  for (const auto& [own, given] : {std::pair{bare, context_}, {none, context_}, {context_, none}}) {
    plugin_->pluginContextIs(own);
    taken();
    EXPECT_THROW(plugin_->pluginInit(given), Stopped);
    EXPECT_EQ(taken(), Log{kInitTrace});
    if (!given) continue;
    EXPECT_THROW(byName(Op::call, "doCleanup"), Stopped);
    EXPECT_EQ(taken(), Log{kCleanupTrace});
  }
  Cairn::fatalHandlerIs(nullptr);
}

/// Makes the i-th allocation of `make` fail, for every i until none is left to fail. Returns how many did.
std::size_t failEach(const std::function<void()>& make) {
  for (std::size_t failed = 0;; ++failed) {
    const NothingLeft nothingLeft;
    allocationFailureIs(failed + 1);
    try {
      make();
      allocationFailureIs(0);
      return failed;
    } catch (const std::bad_alloc&) {
    }
  }
}

TEST_F(Plugin, MissingMemory_LeavesNothingOfWhatWasBeingMade) {
  plugin_->init(context_);
  L3IifTH3ConfigEntry entry;
  for (entry.vrf = 1; entry.vrf < 40; entry.l3Iif = ++entry.vrf) plugin_->l3IifTH3Config()->tableIs(entry);
  const auto& config = plugin_->l3IifTH3Config();
  const auto& status = plugin_->l3IifTH3Status();
  const Quill::Name name("a name too long to be short");
  EXPECT_GE(failEach([&] { P4RuntimeTolmar::tolmarP4RuntimePluginFactory(name); }), 3u);
  EXPECT_GE(failEach([&] { l3IifTH3PendingHwProgrammingSmFactory(batch_, status); }), 2u);
  EXPECT_GE(failEach([&] { P4RuntimeTolmar::vrfSmFactory(config, context_); }), 5u);
  EXPECT_EQ(status->notifieeList().size(), 1u);
}

TEST_F(Plugin, VrfSm_IsReplacedForAnotherTableOrContextOnly) {
  byName(Op::set, "vrfSm", {genericValue(Quill::Ptr<Quill::PtrInterface>()), genericValue(context_)});
  const auto first = plugin_->vrfSm();
  EXPECT_EQ(taken(), Log{"on vrfSm"});
  EXPECT_EQ(plugin_->vrfSmIs(nullptr, context_), first);
  EXPECT_EQ(taken(), Log{});
  const auto other = Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batch_, vrfs_);
  const auto second = plugin_->vrfSmIs(nullptr, other);
  EXPECT_NE(second, first);
  EXPECT_TRUE(first->hasNotificationActive());
  const auto third = plugin_->vrfSmIs(Quill::allocate<L3IifTH3Config>(Quill::Name("table")), other);
  EXPECT_NE(third, second);
  EXPECT_EQ(taken(), (Log{"on vrfSm", "on vrfSm"}));
  onAttribute_ = [&](std::string_view) {
    log_.push_back(plugin_->vrfSm() ? "set" : third->hasNotificationActive() ? "gone, still on" : "off");
  };
  byName(Op::del, "vrfSm");
  EXPECT_FALSE(third->hasNotificationActive());
  EXPECT_FALSE(plugin_->vrfSmDel());
  plugin_->vrfSmIs(nullptr, other);
  EXPECT_EQ(taken(), (Log{"on vrfSm", "gone, still on", "on vrfSm", "set"}));
}

TEST_F(Plugin, Cleanup_UnmountsConfigTablesAndThenCompletes) {
  watch(plugin_->pluginStatus(), "status");
  Quill::allocate<P4RuntimeTolmar::PluginCleanupHelper>(nullptr, plugin_->pluginStatus(), nullptr,
                                                        Quill::Ptr<TolmarP4RuntimePlugin>())
      ->handleCleanupRequest();
  EXPECT_EQ(taken(), (Log{kRequestTrace, "completed status"})) << "one without a plugin";
  plugin_->init(context_);
  taken();
  const auto references = plugin_->references();
  const auto before = attributes();
  byName(Op::call, "doMountsComplete", {Orrery::MountStatus::failed, genericValue(entityManager_)});
  EXPECT_EQ(taken(), Log{kMountsTrace});
  const Quill::GenericIf helper(plugin_->pluginCleanupHelper());
  for (int request = 0; request < 2; ++request) {
    helper.call("handleCleanupRequest");
    EXPECT_EQ(taken(), kCleanupLog + Log{"completed status"});
  }
  entityManager_->refused = kCleanupLog[7];
  EXPECT_THROW(helper.call("handleCleanupRequest"), Cairn::Exception);
  EXPECT_EQ(taken(), Log(kCleanupLog.begin(), kCleanupLog.begin() + 8));
  const auto mounted = entityManager_->mountedPaths();
  EXPECT_EQ(mounted.size(), 4u);
  for (const Quill::String& path : mounted) EXPECT_TRUE(path.ends_with("/status")) << path;
  EXPECT_EQ(lumenDb_->tables().size(), 4u);
  EXPECT_EQ(attributes(), before);
  EXPECT_EQ(plugin_->references(), references);
}

TEST_F(Plugin, Cleanup_AgentMayReleaseHelperAndPluginInTheCompletion) {
  context_->allPluginConfigIs(config_);
  plugin_->init(context_);
  auto* const plugin = plugin_.get();
  watch(plugin->pluginStatus(), "status").onCompleted = [plugin] { plugin->pluginCleanupHelperIs(nullptr); };
  plugin_ = nullptr;
  taken();
  config_->cleanupsRequestedIs(Quill::Name("another"), 1);
  EXPECT_EQ(taken(), Log{});
  config_->cleanupsRequestedIs(Quill::Name("Tolmar"), 1);
  EXPECT_EQ(taken(),
            (kCleanupLog + Log{"completed status", "on pluginCleanupHelper", "on vrfSm", "end status"}));
  EXPECT_TRUE(context_->plugins().empty());
}

TEST_F(Plugin, Attributes_NotifyOfEachChangeAndAreReleasedInOrder) {
  const auto null = genericValue(Quill::Ptr<Quill::PtrInterface>());
  Log notified;
  Values value;
  onAttribute_ = [&](std::string_view attribute) {
    if (attribute == "vrfSm") return;
    EXPECT_EQ(pointer(genericIfAttributeOp(plugin_, Op::get, attribute)), pointer(value[0]));
  };
  for (const Quill::Member& member : TolmarP4RuntimePlugin::_quillType.members) {
    if (member.kind != Quill::Member::Kind::attribute) continue;
    const std::string name(member.name);
    const Quill::TypeNode* const type = Quill::typeNode(member.type);
    for (const std::string which : {"first ", ""}) {
      if (name == "vrfSm") {
        const auto other = Quill::allocate<P4Runtime::PluginContext>(nullptr, nullptr, nullptr, vrfs_);
        value = {null, genericValue(other)};
      } else if (name.ends_with("PhpSm")) {
        value = {genericValue(type->genericIfFromCtorArgs(std::vector{genericValue(batch_), null}).object())};
      } else {
        value = {genericValue(type->newEntityForDir(Quill::Name(name), nullptr))};
      }
      for (int i = 0; i < 2; ++i) byName(Op::set, name, value);
      watch(pointer(genericIfAttributeOp(plugin_, Op::get, name)), which + name);
      notified.push_back("on " + name);
    }
    notified.insert(notified.end() - 1, "end first " + name);
  }
  const auto cli = Quill::allocate<P4Runtime::CliCommandConfig>(Quill::Name("config"));
  const std::pair<std::string, Quill::Ptr<Quill::PtrInterface>> inherited[] = {
      {"cliStatus", Quill::allocate<P4Runtime::CliCommandStatus>(Quill::Name("cli"))},
      {"pluginConfigDir", cli},
      {"pluginStatusDir", cli},
      {"pluginStatus", Quill::allocate<P4Runtime::PluginStatus>(Quill::Name("plugin"))}};
  for (const auto& [name, object] : inherited) {
    value = {genericValue(object)};
    byName(Op::set, name, value);
    notified.push_back("on " + name);
  }
  EXPECT_EQ(taken(), notified);
  plugin_ = nullptr;
  EXPECT_EQ(taken(), (Log{"on vrfSm", "end vrfSm", "end myStationTcamTH3PhpSm", "end l3IifTH3PhpSm",
                          "end l3TunnelIpv6TH3PhpSm", "end l3TunnelIpv4TH3PhpSm", "end l3IifTH3Status",
                          "end l3IifTH3Config", "end myStationTcamTH3Status", "end myStationTcamTH3Config",
                          "end l3TunnelIpv6TH3Status", "end l3TunnelIpv6TH3Config",
                          "end l3TunnelIpv4TH3Status", "end l3TunnelIpv4TH3Config"}));
}

}  // namespace
