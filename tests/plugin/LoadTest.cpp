// The built library, loaded with dlopen as the agent loads it.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "P4RuntimeTolmar/Entities.h"
#include "PluginLibraryFixture.h"
#include "RecordingPlatform.h"
#include "lumen/RowOps.h"
#include "p4runtime/DefaultPluginLoader.h"
#include "p4runtime/P4RuntimePluginBase.h"

namespace {

using P4Runtime::DefaultPluginLoader;
using P4Runtime::PluginLibrary;

Log typeNames() {
  Log names;
  for (const Quill::TypeNode* type : Quill::typeNodes()) names.emplace_back(type->name);
  return names;
}

class Load : public RecordingPlatform {
 protected:
  const Log typesBefore_ = typeNames();

  static bool loaded() {
    void* const handle = ::dlopen(kPluginPath, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) ::dlclose(handle);
    return handle != nullptr;
  }
  P4Runtime::P4RuntimePluginBase& plugin() const { return *context_->plugins().at(0); }
};

TEST_F(Load, Registers_InTheOrderOfStartUp) {
  PluginLibrary library(kPluginPath);
  EXPECT_EQ(Lumen::rowOpsGeneratorNames(),
            (Log{"TolmarHwLib::L3TunnelTH3ConfigEntryRow", "TolmarHwLib::L3TunnelTH3StatusEntryRow",
                 "TolmarHwLib::MyStationTcamTH3ConfigEntryRow", "TolmarHwLib::MyStationTcamTH3StatusEntryRow",
                 "TolmarHwLib::L3IifTH3ConfigEntryRow", "TolmarHwLib::L3IifTH3StatusEntryRow"}));
  Log types = typeNames();
  types.erase(types.begin(), types.begin() + static_cast<std::ptrdiff_t>(typesBefore_.size()));
  EXPECT_EQ(types,
            (Log{"TolmarHwLib::L3IifTH3PendingHwProgrammingSm",
                 "TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm",
                 "TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm", "P4RuntimeTolmar::TolmarP4RuntimePlugin",
                 "P4RuntimeTolmar::PluginCleanupHelper", "P4RuntimeTolmar::VrfSm"}));
  const auto& registrations = DefaultPluginLoader().impl().registrations();
  ASSERT_EQ(registrations.size(), 1u);
  EXPECT_EQ(registrations[0].plugin, "TolmarP4RuntimePlugin");
  EXPECT_EQ(registrations[0].loader, DefaultPluginLoader().name());
  EXPECT_EQ(registrations[0].version, "");
  EXPECT_EQ(registrations[0].description, "");
  EXPECT_EQ(registrations[0].caller, DefaultPluginLoader().initCaller(0));
  EXPECT_EQ(library.plugins(), Log{"TolmarP4RuntimePlugin"});
  EXPECT_TRUE(context_->plugins().empty());
}

TEST_F(Load, Init_MakesOnePluginAndASecondDropsTheFirst) {
  PluginLibrary library(kPluginPath);
  library.init(context_);
  ASSERT_EQ(context_->plugins().size(), 1u);
  EXPECT_EQ(plugin().name(), Quill::Name("Tolmar"));
  EXPECT_TRUE(plugin().hasNotificationActive());
  EXPECT_EQ(plugin().pluginContext(), context_);
  auto* const first = &plugin();
  first->pluginCleanupHelperIs(nullptr);
  library.init(context_);
  ASSERT_EQ(context_->plugins().size(), 1u);
  EXPECT_EQ(lumenDb_->tables().size(), 4u);
}

TEST_F(Load, Init_FailureReachesTheAgentAndUnloadingIsStillClean) {
  PluginLibrary library(kPluginPath);
  entityManager_->refused = "mount ~l3IifTH3Table/config TolmarHwLib::L3IifTH3Config 0 table 8192";
  EXPECT_THROW(library.init(context_), Cairn::Exception);
  ASSERT_EQ(context_->plugins().size(), 1u);
  library.unload();
  EXPECT_TRUE(context_->plugins().empty());
  EXPECT_FALSE(loaded());
}

TEST_F(Load, Road_WriteAnswerAndDamageThroughTheLibrary) {
  PluginLibrary library(kPluginPath);
  library.init(context_);
  const auto entity = [this](const char* name) {
    return entityManager_->entity(kPrefix + std::string(name));
  };
  const auto config = Quill::ptrCast<TolmarHwLib::L3IifTH3Config>(entity("l3IifTH3Table/config"));
  ASSERT_TRUE(config);
  TolmarHwLib::L3IifTH3ConfigEntry entry;
  entry.l3Iif = 3;
  entry.vrf = 9;
  config->tableIs(entry);
  EXPECT_EQ(vrfs_->vrfIdRefCount(P4Runtime::VrfId(9)), 1u);
  config->tableDel(entry.key());
  EXPECT_EQ(vrfs_->vrfIds(), 0u);
  library.unload();
  EXPECT_EQ(entityManager_->mountedPaths().size(), 8u);
}

TEST_F(Load, Reload_LeavesNothingBehind) {
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    PluginLibrary library(kPluginPath);
    library.init(context_);
    PluginLibrary::requestCleanup(*context_);
    EXPECT_EQ(plugin().pluginStatus()->cleanupsCompleted(), 1u);
    library.unload();
    EXPECT_FALSE(loaded());
    EXPECT_TRUE(context_->plugins().empty());
    EXPECT_EQ(context_->references(), 1u);
    EXPECT_EQ(typeNames(), typesBefore_);
    EXPECT_TRUE(Lumen::rowOpsGeneratorNames().empty());
    EXPECT_TRUE(DefaultPluginLoader().impl().registrations().empty());
    EXPECT_EQ(DefaultPluginLoader().initCallers(), 0u);
    EXPECT_EQ(DefaultPluginLoader().context(), nullptr);
    for (const auto& table : lumenDb_->tables()) EXPECT_EQ(table->implementation(), nullptr) << table->name();
  }
}

TEST_F(Load, MissingLibrary_IsNamed) {
  try {
    PluginLibrary library("/nonexistent/plugin.so");
    ADD_FAILURE() << "loaded";
  } catch (const Cairn::Exception& exception) {
    EXPECT_NE(exception.message().find("plugin library \"/nonexistent/plugin.so\": "), std::string::npos)
        << exception.message();
  }
}

}  // namespace
