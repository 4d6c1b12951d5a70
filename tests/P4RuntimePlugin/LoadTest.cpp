// The built library, loaded with dlopen as the agent loads it.
#include <dlfcn.h>
#include <elf.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "PluginFixture.h"
#include "lumen/LmErrors.h"
#include "lumen/RowOps.h"
#include "p4runtime/Loader.h"
#include "p4runtime/P4RuntimePluginBase.h"
#include "p4runtime/PluginLibrary.h"
#include "quill/TypeNode.h"

using P4Runtime::DefaultPluginLoader, P4Runtime::PluginLibrary, testing::ThrowsMessage;

/// What has been registered in this process when a type comes, and the type.
static Log& registered() {
  static Log sequence;
  return sequence;
}

/// Interposes the platform's own for every caller.
void Quill::typeNodeIs(const TypeNode* node) {
  registered().push_back(std::to_string(Lumen::rowOpsGeneratorNames().size()) + " generators " +
                         std::to_string(DefaultPluginLoader().impl().registrations().size()) + " plugins " +
                         std::string(node->name));
  void* const own = ::dlsym(RTLD_NEXT, "_ZN5Quill10typeNodeIsEPKNS_8TypeNodeE");
  reinterpret_cast<void (*)(const TypeNode*)>(own)(node);
}

namespace {

class Load : public PluginFixture {
 protected:
  static bool loaded() {
    void* const handle = ::dlopen(PLUGIN, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) ::dlclose(handle);
    return handle != nullptr;
  }
  void expectNothingLeft() const {
    EXPECT_FALSE(loaded());
    EXPECT_EQ(Quill::typeNodes(), typesBefore_);
    EXPECT_TRUE(Lumen::rowOpsGeneratorNames().empty());
    EXPECT_TRUE(DefaultPluginLoader().impl().registrations().empty());
    EXPECT_EQ(DefaultPluginLoader().context(), nullptr);
    EXPECT_TRUE(context_->plugins().empty());
    for (const auto& table : lumenDb_->tables()) EXPECT_EQ(table->implementation(), nullptr) << table->name();
  }
  P4Runtime::P4RuntimePluginBase& plugin() const { return *context_->plugins().at(0); }
  auto reactorThat(const Quill::GenericObserver& observer) const {
    return plugin().fwkType()->genericNotifiee(Quill::Ptr<P4Runtime::P4RuntimePluginBase>(&plugin()),
                                               observer);
  }

  const std::vector<const Quill::TypeNode*> typesBefore_ = Quill::typeNodes();
};

TEST_F(Load, Registers_InTheOrderOfStartUp) {
  registered().clear();
  const PluginLibrary library(PLUGIN);
  EXPECT_EQ(registered(), (Log{"6 generators 0 plugins TolmarHwLib::L3IifTH3PendingHwProgrammingSm",
                               "6 generators 0 plugins TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm",
                               "6 generators 0 plugins TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm",
                               "6 generators 0 plugins P4RuntimeTolmar::TolmarP4RuntimePlugin",
                               "6 generators 0 plugins P4RuntimeTolmar::PluginCleanupHelper",
                               "6 generators 1 plugins P4RuntimeTolmar::VrfSm"}));
  EXPECT_EQ(Lumen::rowOpsGeneratorNames(),
            (Log{"TolmarHwLib::L3TunnelTH3ConfigEntryRow", "TolmarHwLib::L3TunnelTH3StatusEntryRow",
                 "TolmarHwLib::MyStationTcamTH3ConfigEntryRow", "TolmarHwLib::MyStationTcamTH3StatusEntryRow",
                 "TolmarHwLib::L3IifTH3ConfigEntryRow", "TolmarHwLib::L3IifTH3StatusEntryRow"}));
  const auto& registration = DefaultPluginLoader().impl().registrations().at(0);
  EXPECT_EQ(registration.plugin, "TolmarP4RuntimePlugin");
  EXPECT_EQ(registration.loader, DefaultPluginLoader().name());
  EXPECT_EQ(registration.version + registration.description, "");
  EXPECT_TRUE(context_->plugins().empty());
}

TEST_F(Load, Init_MakesOnePluginAndUnloadingLeavesNothingOfIt) {
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    PluginLibrary library(PLUGIN);
    taken();
    library.init(context_);
    const Log first = taken();
    EXPECT_EQ(plugin().name(), Quill::Name("Tolmar"));
    EXPECT_TRUE(plugin().hasNotificationActive());
    EXPECT_EQ(plugin().pluginContext(), context_);
    plugin().pluginCleanupHelperIs(nullptr);
    auto reactor = reactorThat(
        [this](std::string_view attribute) { log_.push_back("first: " + std::string(attribute)); });
    library.init(context_);
    Log second = {"first: vrfSm"};
    second.insert(second.end(), first.begin(), first.end());
    EXPECT_EQ(taken(), second) << "the first ends before the second starts";
    reactor = nullptr;
    EXPECT_EQ(context_->plugins().size(), 1u);
    library.unload();
    expectNothingLeft();
    EXPECT_EQ(context_->references(), 1u);
  }
}

TEST_F(Load, Unloading_LetsReactorsTraceUntilThePluginHasEnded) {
  std::vector<std::string> handles;
  Quill::TraceHandle::sinkIs([&handles](const auto& line) { handles.emplace_back(line.handle); });
  traceIs("TolmarP4RuntimePlugin", 0);
  PluginLibrary library(PLUGIN);
  library.init(context_);
  Quill::Ptr<Quill::NotifieeConst> reactor = reactorThat([&](std::string_view attribute) {
    if (attribute != "vrfSm") return;  // from the plugin's destructor
    plugin().doMountsComplete(Orrery::MountStatus::success, entityManager_);
    reactor = nullptr;
  });
  library.unload();
  EXPECT_FALSE(reactor);
  EXPECT_EQ(handles, Log(2, "TolmarP4RuntimePlugin")) << "one from the start, one from the end";
}

TEST_F(Load, Misuse_IsRefusedWithItsReason) {
  const std::string link = folder_.path() + "/link.so";
  std::filesystem::create_symlink(PLUGIN, link);
  PluginLibrary library(PLUGIN);
  for (const std::string& path : {std::string(PLUGIN), link}) {
    EXPECT_THAT([&] { PluginLibrary{path}; },
                ThrowsMessage<Cairn::Exception>("plugin library \"" + path + "\": loaded already"));
  }
  library.init(context_);
  const std::string prefix = "plugin library \"" PLUGIN "\": ";
  EXPECT_THAT(
      [&] { library.init(Quill::allocate<P4Runtime::PluginContext>(nullptr, lumenDb_, nullptr, vrfs_)); },
      ThrowsMessage<Cairn::Exception>(prefix + "started already, with another context"));
  library.unload();
  EXPECT_THAT([&] { library.init(context_); }, ThrowsMessage<Cairn::Exception>(prefix + "unloaded already"));
  EXPECT_TRUE(library.plugins().empty());
}

TEST_F(Load, TwoLibraries_OneServesTheTablesOfAContextAndTheyUnloadInAnyOrder) {
  PluginLibrary first(PLUGIN);
  const std::string copy = folder_.path() + "/copy.so";
  std::filesystem::copy_file(PLUGIN, copy);
  PluginLibrary second(copy);
  first.init(context_);
  const auto* const served = lumenDb_->tables().at(0)->implementation().get();
  EXPECT_THAT([&] { second.init(context_); },
              ThrowsMessage<Lumen::LmTableError>(
                  "table LumenL3TunnelIpv4TH3ConfigTable is served by another plugin library"))
      << "a failure reaches the agent";
  EXPECT_EQ(lumenDb_->tables().at(0)->implementation().get(), served);
  first.unload();
  EXPECT_FALSE(loaded());
  EXPECT_EQ(second.plugins(), Log{"TolmarP4RuntimePlugin"});
  second.init(context_);
  EXPECT_EQ(context_->plugins().size(), 1u);
  second.unload();
  expectNothingLeft();
}

TEST(Manifest, HoldsTheSixNamesReadOnly) {
  std::ifstream file(PLUGIN, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  Elf64_Ehdr header;
  std::memcpy(&header, bytes.data(), sizeof header);
  std::vector<Elf64_Shdr> sections(header.e_shnum);
  std::memcpy(sections.data(), bytes.data() + header.e_shoff, sections.size() * sizeof sections[0]);
  const char* const sectionNames = bytes.data() + sections.at(header.e_shstrndx).sh_offset;
  const auto section = std::find_if(sections.begin(), sections.end(), [&](const Elf64_Shdr& one) {
    return std::string_view(sectionNames + one.sh_name) == ".quill.type";
  });
  ASSERT_NE(section, sections.end());
  EXPECT_EQ(section->sh_flags & (SHF_ALLOC | SHF_WRITE | SHF_EXECINSTR), std::uint64_t{SHF_ALLOC});
  std::string content = bytes.substr(section->sh_offset, section->sh_size);
  const auto padding = [](char a, char b) { return a == '\0' && b == '\0'; };
  content.erase(std::unique(content.begin(), content.end(), padding), content.end());
  std::replace(content.begin(), content.end(), '\0', ' ');
  EXPECT_EQ(
      content,
      "TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm "
      "TolmarHwLib::L3IifTH3PendingHwProgrammingSm P4RuntimeTolmar::PluginCleanupHelper "
      "P4RuntimeTolmar::TolmarP4RuntimePlugin P4RuntimeTolmar::VrfSm ");
}

}  // namespace
