// The plugin object over the real platform: start-up, wiring, cleanup and end, as one log of calls.
#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"

#include "LoggingReactor.h"
#include "RecordingPlatform.h"
#include "cairn/Assert.h"

namespace {

using P4RuntimeTolmar::TolmarP4RuntimePlugin;
using P4RuntimeTolmar::VrfSm;
using TolmarHwLib::L3IifTH3Config;

class Plugin : public RecordingPlatform {
 protected:
  void TearDown() override {
    reactor_ = nullptr;
    if (plugin_) plugin_->pluginCleanupHelperIs(nullptr);
    plugin_ = nullptr;
    RecordingPlatform::TearDown();
  }

  void follow() { reactor_ = LoggingReactor::on(plugin_, log_); }
  /// Everything that pluginInit logs, with nobody told of what comes before it.
  Log init() {
    plugin_->pluginContextIs(context_);
    follow();
    taken();
    plugin_->pluginInit(context_);
    return taken();
  }

  Quill::Ptr<TolmarP4RuntimePlugin> plugin_ = Quill::allocate<TolmarP4RuntimePlugin>(Quill::Name("Tolmar"));
  Quill::Ptr<LoggingReactor> reactor_;
};

const Log kInitLog = {
    "mount ~l3TunnelIpv4TH3Table/config TolmarHwLib::L3TunnelTH3Config 0 table 8192",
    "mount ~l3TunnelIpv4TH3Table/status TolmarHwLib::L3TunnelTH3Status 1 table 8192",
    "entity ~l3TunnelIpv4TH3Table/config",
    "entity ~l3TunnelIpv4TH3Table/status",
    "register LumenL3TunnelIpv4TH3ConfigTable TolmarHwLib::L3TunnelTH3ConfigEntryRow 2 256 256 \"\" 0",
    "serve LumenL3TunnelIpv4TH3ConfigTable",
    "mount ~l3TunnelIpv6TH3Table/config TolmarHwLib::L3TunnelTH3Config 0 table 4096",
    "mount ~l3TunnelIpv6TH3Table/status TolmarHwLib::L3TunnelTH3Status 1 table 4096",
    "entity ~l3TunnelIpv6TH3Table/config",
    "entity ~l3TunnelIpv6TH3Table/status",
    "register LumenL3TunnelIpv6TH3ConfigTable TolmarHwLib::L3TunnelTH3ConfigEntryRow 2 256 256 \"\" 0",
    "serve LumenL3TunnelIpv6TH3ConfigTable",
    "mount ~myStationTcamTH3Table/config TolmarHwLib::MyStationTcamTH3Config 0 table 512",
    "mount ~myStationTcamTH3Table/status TolmarHwLib::MyStationTcamTH3Status 1 table 512",
    "entity ~myStationTcamTH3Table/config",
    "entity ~myStationTcamTH3Table/status",
    "register LumenMyStationTcamTH3ConfigTable TolmarHwLib::MyStationTcamTH3ConfigEntryRow 2 256 256 \"\" 0",
    "serve LumenMyStationTcamTH3ConfigTable",
    "mount ~l3IifTH3Table/config TolmarHwLib::L3IifTH3Config 0 table 8192",
    "mount ~l3IifTH3Table/status TolmarHwLib::L3IifTH3Status 1 table 8192",
    "entity ~l3IifTH3Table/config",
    "entity ~l3IifTH3Table/status",
    "register LumenL3IifTH3ConfigTable TolmarHwLib::L3IifTH3ConfigEntryRow 2 256 256 \"\" 0",
    "serve LumenL3IifTH3ConfigTable",
    "onL3TunnelIpv4TH3PhpSm",
    "onL3TunnelIpv6TH3PhpSm",
    "onL3IifTH3PhpSm",
    "onMyStationTcamTH3PhpSm",
    "onVrfSm",
    "onPluginCleanupHelper",
};

TEST_F(Plugin, Init_MountsRegistersAndWiresInOrder) {
  EXPECT_EQ(init(), kInitLog);
  EXPECT_EQ(entityManager_->mountedPaths().size(), 8u);
  const auto& plugin = *plugin_;
  EXPECT_EQ(plugin.l3TunnelIpv4TH3PhpSm()->status(), plugin.l3TunnelIpv4TH3Status());
  EXPECT_EQ(plugin.l3TunnelIpv6TH3PhpSm()->status(), plugin.l3TunnelIpv6TH3Status());
  EXPECT_EQ(plugin.l3IifTH3PhpSm()->status(), plugin.l3IifTH3Status());
  EXPECT_EQ(plugin.myStationTcamTH3PhpSm()->status(), plugin.myStationTcamTH3Status());
  EXPECT_EQ(plugin.vrfSm()->l3IifTH3Config(), plugin.l3IifTH3Config());
  EXPECT_NE(plugin.l3TunnelIpv4TH3Status(), plugin.l3TunnelIpv6TH3Status());
  for (const P4Runtime::BatchStatus* batch :
       {plugin.l3TunnelIpv4TH3PhpSm()->batchStatus().get(), plugin.l3IifTH3PhpSm()->batchStatus().get()}) {
    EXPECT_EQ(batch, batch_.get());
  }
  EXPECT_TRUE(plugin.vrfSm()->hasNotificationActive());
  EXPECT_TRUE(plugin.pluginCleanupHelper()->hasNotificationActive());
}

TEST_F(Plugin, Init_ThroughTheBaseStoresTheContextFirst) {
  context_->allPluginConfigIs(config_);
  follow();
  plugin_->init(context_);
  Log expected = {"onPluginContext", "onAllPluginConfig", "onPluginCleanupSm",
                  "onDefaultPluginCleanupHelper"};
  expected.insert(expected.end(), kInitLog.begin(), kInitLog.end());
  EXPECT_EQ(log_, expected);
  EXPECT_EQ(context_->plugins(), std::vector<P4Runtime::P4RuntimePluginBase*>{plugin_.get()});
}

TEST_F(Plugin, Init_HelperGetsNoCommandLineConfig) {
  plugin_->cliConfigIs(Quill::allocate<P4Runtime::CliCommandConfig>(Quill::Name("cli")));
  plugin_->allPluginConfigIs(config_);
  init();
  const auto& helper =
      dynamic_cast<const P4RuntimeTolmar::PluginCleanupHelper&>(*plugin_->pluginCleanupHelper());
  EXPECT_FALSE(helper.cliConfig());
  EXPECT_EQ(helper.allPluginConfig(), config_);
  EXPECT_EQ(helper.pluginStatus(), plugin_->pluginStatus());
  EXPECT_EQ(helper.parent(), plugin_);
  EXPECT_EQ(helper.references(), 1u);
}

TEST_F(Plugin, Init_TakesDatabaseFromAttributeAndTheRestFromTheArgument) {
  const auto otherBatch = Quill::allocate<P4Runtime::BatchStatus>();
  const auto own = Quill::allocate<P4Runtime::PluginContext>(nullptr, lumenDb_, nullptr, nullptr);
  const auto given = Quill::allocate<P4Runtime::PluginContext>(entityManager_, nullptr, otherBatch, vrfs_);
  plugin_->pluginContextIs(own);
  plugin_->pluginInit(given);
  EXPECT_EQ(lumenDb_->tables().size(), 4u);
  EXPECT_EQ(entityManager_->mountedPaths().size(), 8u);
  EXPECT_EQ(plugin_->l3IifTH3PhpSm()->batchStatus(), otherBatch);
  EXPECT_EQ(plugin_->vrfSm()->pluginContext(), given);
}

TEST_F(Plugin, Init_WithoutRowDatabaseStopsTheProcessBeforeAnythingIsMounted) {
  struct Stopped {
    std::string text;
  };
  Cairn::fatalHandlerIs([](const char* text, const char*) { throw Stopped{text}; });
  const auto bare = Quill::allocate<P4Runtime::PluginContext>(entityManager_, nullptr, batch_, vrfs_);
  const Quill::Ptr<P4Runtime::PluginContext> none;
  const std::vector<std::pair<Quill::Ptr<P4Runtime::PluginContext>, Quill::Ptr<P4Runtime::PluginContext>>>
      cases = {{bare, bare}, {bare, context_}, {none, context_}, {none, none}, {context_, none}};
  for (const auto& [own, given] : cases) {
    plugin_->pluginContextIs(own);
    HandleLines traced("TolmarP4RuntimePlugin", 0);
    try {
      plugin_->pluginInit(given);
      ADD_FAILURE() << "not stopped";
    } catch (const Stopped& stopped) {
      EXPECT_EQ(stopped.text, "adb");
    }
    EXPECT_EQ(traced.texts(), Log{"pluginInit"});
  }
  plugin_->pluginContextIs(nullptr);
  EXPECT_THROW(plugin_->doCleanup(), Stopped);
  Cairn::fatalHandlerIs(nullptr);
  EXPECT_EQ(log_, Log{});
}

TEST_F(Plugin, Init_FailureOnTheWayKeepsWhatIsDone) {
  entityManager_->refused =
      "mount ~myStationTcamTH3Table/status TolmarHwLib::MyStationTcamTH3Status 1 table 512";
  EXPECT_THROW(init(), Cairn::Exception);
  EXPECT_TRUE(plugin_->l3TunnelIpv6TH3Status());
  EXPECT_FALSE(plugin_->myStationTcamTH3Config());
  EXPECT_FALSE(plugin_->l3TunnelIpv4TH3PhpSm());
  EXPECT_EQ(lumenDb_->tables().size(), 2u);
}

TEST_F(Plugin, Init_FailureOfOneComponentKeepsThoseBeforeIt) {
  init();
  TolmarHwLib::L3IifTH3ConfigEntry entry;
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

TEST_F(Plugin, MountsComplete_OnlyTraces) {
  init();
  const auto references = plugin_->references();
  for (const auto status : {Orrery::MountStatus::success, Orrery::MountStatus::failed}) {
    HandleLines traced("TolmarP4RuntimePlugin", 0);
    plugin_->doMountsComplete(status, entityManager_);
    EXPECT_EQ(traced.texts(), Log{"doMountsComplete"});
  }
  EXPECT_EQ(log_, Log{});
  EXPECT_EQ(plugin_->references(), references);
}

TEST_F(Plugin, VrfSm_IsMadeAnewForAnotherTableOrContextOnly) {
  init();
  const auto first = plugin_->vrfSm();
  EXPECT_EQ(plugin_->vrfSmIs(plugin_->l3IifTH3Config(), context_), first);
  EXPECT_EQ(taken(), Log{});
  const auto other = Quill::allocate<P4Runtime::PluginContext>(entityManager_, lumenDb_, batch_, vrfs_);
  const auto second = plugin_->vrfSmIs(plugin_->l3IifTH3Config(), other);
  EXPECT_NE(second, first);
  EXPECT_EQ(plugin_->vrfSm(), second);
  EXPECT_TRUE(first->hasNotificationActive());
  const auto third = plugin_->vrfSmIs(nullptr, other);
  EXPECT_NE(third, second);
  EXPECT_EQ(taken(), (Log{"onVrfSm", "onVrfSm"}));
  EXPECT_EQ(plugin_->vrfSmDel(), third);
  EXPECT_FALSE(third->hasNotificationActive());
  EXPECT_FALSE(plugin_->vrfSmDel());
  EXPECT_EQ(taken(), Log{"onVrfSm"});
}

const Log kCleanupLog = {
    "cleanup ~l3TunnelIpv4TH3Table/config",  "unmount ~l3TunnelIpv4TH3Table/config",
    "cleanup ~l3TunnelIpv6TH3Table/config",  "unmount ~l3TunnelIpv6TH3Table/config",
    "cleanup ~l3IifTH3Table/config",         "unmount ~l3IifTH3Table/config",
    "cleanup ~myStationTcamTH3Table/config", "unmount ~myStationTcamTH3Table/config",
};

TEST_F(Plugin, Cleanup_UnmountsConfigTablesAndThenCompletes) {
  init();
  const auto status = StatusReactor::on(plugin_->pluginStatus(), log_);
  const auto vrfSm = plugin_->vrfSm();
  HandleLines traced("TolmarP4RuntimePlugin", 4);
  Log expected = kCleanupLog;
  expected.push_back("onCleanupsCompleted");
  for (int request = 0; request < 2; ++request) {
    plugin_->pluginCleanupHelper()->handleCleanupRequest();
    EXPECT_EQ(taken(), expected);
  }
  EXPECT_EQ(traced.texts(),
            (Log{"TolmarP4RuntimePlugin::handleCleanupRequest", "TolmarP4RuntimePlugin::doCleanup",
                 "TolmarP4RuntimePlugin::handleCleanupRequest", "TolmarP4RuntimePlugin::doCleanup"}));
  for (const Quill::String& path : entityManager_->mountedPaths())
    EXPECT_TRUE(path.ends_with("/status")) << path;
  EXPECT_EQ(entityManager_->mountedPaths().size(), 4u);
  EXPECT_EQ(lumenDb_->tables().size(), 4u);
  EXPECT_EQ(plugin_->vrfSm(), vrfSm);
  EXPECT_TRUE(plugin_->l3IifTH3Config());
}

TEST_F(Plugin, Cleanup_IsNotCompletedWhenAnUnmountFails) {
  init();
  const auto status = StatusReactor::on(plugin_->pluginStatus(), log_);
  entityManager_->refused = "unmount ~l3IifTH3Table/config";
  EXPECT_THROW(plugin_->pluginCleanupHelper()->handleCleanupRequest(), Cairn::Exception);
  EXPECT_EQ(taken(), Log(kCleanupLog.begin(), kCleanupLog.begin() + 6));
}

TEST_F(Plugin, Cleanup_WithoutParentOnlyCompletes) {
  const auto status = Quill::allocate<P4Runtime::PluginStatus>(Quill::Name("status"));
  const auto helper = Quill::allocate<P4RuntimeTolmar::PluginCleanupHelper>(
      Quill::Ptr<const P4Runtime::AllPluginConfig>(), status, Quill::Ptr<P4Runtime::CliCommandConfig>(),
      Quill::Ptr<TolmarP4RuntimePlugin>());
  helper->handleCleanupRequest();
  EXPECT_EQ(status->cleanupsCompleted(), 1u);
  EXPECT_EQ(log_, Log{});
}

TEST_F(Plugin, Cleanup_AgentMayLetHelperAndPluginGoInTheCompletion) {
  context_->allPluginConfigIs(config_);
  plugin_->init(context_);
  const auto pluginStatus = plugin_->pluginStatus();
  auto* const plugin = plugin_.get();
  const auto status =
      StatusReactor::on(pluginStatus, log_, [plugin] { plugin->pluginCleanupHelperIs(nullptr); });
  plugin_ = nullptr;
  config_->cleanupsRequestedIs(Quill::Name("another"), 1);
  EXPECT_EQ(context_->plugins().size(), 1u);
  config_->cleanupsRequestedIs(Quill::Name("Tolmar"), 1);
  EXPECT_TRUE(context_->plugins().empty());
  EXPECT_EQ(TolmarP4RuntimePlugin::quillAllocTrackTypeInfo_.live(), 0);
  EXPECT_EQ(pluginStatus->cleanupsCompleted(), 1u);
}

TEST_F(Plugin, End_TellsVrfSmToReactorsStillThereAndReleasesInOrder) {
  using namespace TolmarHwLib;
  Log order;
  std::vector<Quill::Ptr<Quill::NotifieeConst>> watchers;
  const auto watched = [&]<class T>(const char* name, const Quill::Ptr<T>& object) {
    watchers.push_back(ReleaseWatcher::on(object, name, order));
    return object;
  };
  const auto name = Quill::Name("table");
  plugin_->l3TunnelIpv4TH3ConfigIs(watched("config4", Quill::allocate<L3TunnelTH3Config>(name)));
  plugin_->l3TunnelIpv4TH3StatusIs(watched("status4", Quill::allocate<L3TunnelTH3Status>(name)));
  plugin_->l3TunnelIpv6TH3ConfigIs(watched("config6", Quill::allocate<L3TunnelTH3Config>(name)));
  plugin_->l3TunnelIpv6TH3StatusIs(watched("status6", Quill::allocate<L3TunnelTH3Status>(name)));
  plugin_->myStationTcamTH3ConfigIs(watched("configTcam", Quill::allocate<MyStationTcamTH3Config>(name)));
  plugin_->myStationTcamTH3StatusIs(watched("statusTcam", Quill::allocate<MyStationTcamTH3Status>(name)));
  plugin_->l3IifTH3ConfigIs(watched("configIif", Quill::allocate<L3IifTH3Config>(name)));
  plugin_->l3IifTH3StatusIs(watched("statusIif", Quill::allocate<L3IifTH3Status>(name)));
  watched("vrfSm", plugin_->vrfSmIs(nullptr, context_));
  plugin_->l3TunnelIpv4TH3PhpSmIs(watched("sm4", l3TunnelTH3PendingHwProgrammingSmFactory(batch_, nullptr)));
  plugin_->l3TunnelIpv6TH3PhpSmIs(watched("sm6", l3TunnelTH3PendingHwProgrammingSmFactory(batch_, nullptr)));
  plugin_->l3IifTH3PhpSmIs(watched("smIif", l3IifTH3PendingHwProgrammingSmFactory(batch_, nullptr)));
  plugin_->myStationTcamTH3PhpSmIs(
      watched("smTcam", myStationTcamTH3PendingHwProgrammingSmFactory(batch_, nullptr)));
  reactor_ = LoggingReactor::on(plugin_, order, Quill::NotifieeConst::Hold::uncounted);
  plugin_ = nullptr;
  EXPECT_EQ(order, (Log{"onVrfSm", "vrfSm", "smTcam", "smIif", "sm6", "sm4", "statusIif", "configIif",
                        "statusTcam", "configTcam", "status6", "config6", "status4", "config4"}));
}

}  // namespace
