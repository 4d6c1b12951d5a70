// The built library, loaded with dlopen as the agent loads it, over tables that a hardware agent fills.
#include <dlfcn.h>
#include <elf.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "P4RuntimeTolmar/Entities.h"
#include "PluginFixture.h"
#include "lumen/RowOps.h"
#include "p4runtime/DefaultPluginLoader.h"
#include "p4runtime/P4RuntimePluginBase.h"
#include "p4runtime/PluginLibrary.h"
#include "quill/TypeNode.h"

using P4Runtime::DefaultPluginLoader;
using P4Runtime::PluginLibrary;

namespace {

/// What has been registered in this process when a type comes, and the type.
Log& registered() {
  static Log sequence;
  return sequence;
}

}  // namespace

/// Stands before the platform's own, whoever calls it.
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
  P4Runtime::P4RuntimePluginBase& plugin() const { return *context_->plugins().at(0); }

  static std::string path(const std::string& table) {
    return "p4runtime/outputTables/tolmar/" + table + "Table/status";
  }
  /// What the hardware agent writes: one row of the table, always under the same key.
  template <class Status>
  void answer(const std::string& table, unsigned capacity, std::uint64_t handle) {
    QuillVesta::MountDescription description(QuillVesta::QuillVestaType::writer);
    description.collectionIs("table", capacity);
    auto entity = hardware_->entity(path(table));
    if (!entity) entity = hardware_->mount(path(table), std::string(Status::_quillType.name), description);
    typename Status::Entry row;
    row.entryHandle = handle;
    Quill::ptrCast<Status>(entity)->tableIs(row);
  }
  /// One answer in each table, with handles from `first` on.
  void answerAll(std::uint64_t first) {
    answer<TolmarHwLib::L3TunnelTH3Status>("l3TunnelIpv4TH3", 8192, first);
    answer<TolmarHwLib::L3TunnelTH3Status>("l3TunnelIpv6TH3", 4096, first + 1);
    answer<TolmarHwLib::MyStationTcamTH3Status>("myStationTcamTH3", 512, first + 2);
    answer<TolmarHwLib::L3IifTH3Status>("l3IifTH3", 8192, first + 3);
  }
  /// Everything that the agent's loop delivers, sorted.
  Log delivered() {
    while (loop_.step(std::chrono::milliseconds(50)) != 0) {
    }
    Log log = taken();
    std::sort(log.begin(), log.end());
    return log;
  }
  const std::vector<const Quill::TypeNode*> typesBefore_ = Quill::typeNodes();
  const Quill::Ptr<Orrery::EntityManager> hardware_ =
      Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_);
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
  EXPECT_EQ(registration.caller, DefaultPluginLoader().initCaller(0));
  EXPECT_TRUE(context_->plugins().empty());
}

TEST_F(Load, Init_MakesOnePluginAndASecondDropsTheFirst) {
  PluginLibrary library(PLUGIN);
  library.init(context_);
  const auto first = taken();
  EXPECT_EQ(plugin().name(), Quill::Name("Tolmar"));
  EXPECT_TRUE(plugin().hasNotificationActive());
  EXPECT_EQ(plugin().pluginContext(), context_);
  plugin().pluginCleanupHelperIs(nullptr);
  library.init(context_);
  EXPECT_EQ(taken(), first) << "the second has a start of its own";
  EXPECT_EQ(context_->plugins().size(), 1u);
}

TEST_F(Load, Init_FailureReachesTheAgentAndUnloadingIsStillClean) {
  PluginLibrary library(PLUGIN);
  entityManager_->refused = "mount ~l3IifTH3Table/config TolmarHwLib::L3IifTH3Config 0 table 8192";
  EXPECT_THROW(library.init(context_), Cairn::Exception);
  ASSERT_EQ(context_->plugins().size(), 1u);
  EXPECT_EQ(lumenDb_->tables().size(), 3u) << "what is done stays done";
  EXPECT_FALSE(plugin().pluginCleanupHelper());
  library.unload();
  EXPECT_TRUE(context_->plugins().empty());
  EXPECT_FALSE(loaded());
}

TEST_F(Load, Road_RunsWithADamagedTableTooAndLeavesNothingWhenItIsUnloaded) {
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    PluginLibrary library(PLUGIN);
    library.init(context_);
    const auto config = Quill::ptrCast<TolmarHwLib::L3IifTH3Config>(
        entityManager_->entity("p4runtime/outputTables/tolmar/l3IifTH3Table/config"));
    TolmarHwLib::L3IifTH3ConfigEntry entry;
    entry.vrf = 9;
    config->tableIs(entry);
    EXPECT_EQ(vrfs_->vrfIdRefCount(P4Runtime::VrfId(9)), 1u);
    config->tableDel(entry.key());
    EXPECT_EQ(vrfs_->vrfIds(), 0u);
    answerAll(10);
    taken();
    EXPECT_EQ(delivered(), (Log{"completed 10 0", "completed 11 0", "completed 12 0", "completed 13 0"}));
    EXPECT_TRUE(batch_->notificationTake());
    Quill::ptrCast<TolmarHwLib::MyStationTcamTH3Status>(entityManager_->entity(path("myStationTcamTH3")))
        ->corruptionDetected("row 3: bad checksum");
    answerAll(20);
    taken();
    EXPECT_EQ(delivered(), (Log{"completed 20 0", "completed 21 0", "completed 23 0"}));
    PluginLibrary::requestCleanup(*context_);
    EXPECT_EQ(plugin().pluginStatus()->cleanupsCompleted(), 1u);
    library.unload();
    EXPECT_FALSE(loaded());
    EXPECT_EQ(context_->references(), 1u);
    EXPECT_EQ(Quill::typeNodes(), typesBefore_);
    EXPECT_TRUE(Lumen::rowOpsGeneratorNames().empty());
    EXPECT_TRUE(DefaultPluginLoader().impl().registrations().empty());
    EXPECT_EQ(DefaultPluginLoader().initCallers(), 0u);
    EXPECT_EQ(DefaultPluginLoader().context(), nullptr);
    for (const auto& table : lumenDb_->tables()) EXPECT_EQ(table->implementation(), nullptr) << table->name();
  }
}

TEST_F(Load, TwoLibraries_AreLetGoInAnyOrder) {
  const std::string copy = folder_.path() + "/copy.so";
  std::filesystem::copy_file(PLUGIN, copy);
  PluginLibrary first(PLUGIN);
  PluginLibrary second(copy);
  first.unload();
  EXPECT_FALSE(loaded());
  EXPECT_EQ(second.plugins(), Log{"TolmarP4RuntimePlugin"});
  EXPECT_EQ(Lumen::rowOpsGeneratorNames().size(), 6u);
  second.init(context_);
  EXPECT_EQ(context_->plugins().size(), 1u);
  second.unload();
  EXPECT_TRUE(Lumen::rowOpsGeneratorNames().empty());
  EXPECT_EQ(Quill::typeNodes(), typesBefore_);
}

TEST_F(Load, MissingLibrary_IsNamed) {
  try {
    PluginLibrary library("/nonexistent/plugin.so");
    ADD_FAILURE() << "loaded";
  } catch (const Cairn::Exception& exception) {
    EXPECT_TRUE(exception.message().starts_with("plugin library \"/nonexistent/plugin.so\": "))
        << exception.message();
  }
}

/// The content of the section of that name in an ELF file, and its flags.
std::string section(const char* path, const std::string& name, std::uint64_t& flags) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  Elf64_Ehdr header;
  std::memcpy(&header, bytes.data(), sizeof header);
  std::vector<Elf64_Shdr> all(header.e_shnum);
  std::memcpy(all.data(), bytes.data() + header.e_shoff, all.size() * sizeof all[0]);
  for (const Elf64_Shdr& one : all) {
    if (bytes.data() + all.at(header.e_shstrndx).sh_offset + one.sh_name != name) continue;
    flags = one.sh_flags;
    return bytes.substr(one.sh_offset, one.sh_size);
  }
  return {};
}

TEST(Manifest, HoldsTheSixNamesReadOnly) {
  std::uint64_t flags = 0;
  const std::string content = section(PLUGIN, ".quill.type", flags);
  EXPECT_EQ(flags & (SHF_ALLOC | SHF_WRITE | SHF_EXECINSTR), static_cast<std::uint64_t>(SHF_ALLOC));
  ASSERT_TRUE(content.ends_with('\0'));
  Log listed;
  for (std::size_t from = 0; from < content.size(); from += std::strlen(content.data() + from) + 1) {
    if (content[from] != '\0') listed.emplace_back(content.data() + from);
  }
  EXPECT_EQ(listed,
            (Log{"TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm",
                 "TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm",
                 "TolmarHwLib::L3IifTH3PendingHwProgrammingSm", "P4RuntimeTolmar::PluginCleanupHelper",
                 "P4RuntimeTolmar::TolmarP4RuntimePlugin", "P4RuntimeTolmar::VrfSm"}));
}

}  // namespace
