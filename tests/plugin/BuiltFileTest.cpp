// What can be read off the built library: its type manifest and the slots of its virtual tables.
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "PluginLibraryFixture.h"

namespace {

using Names = std::vector<std::string>;

std::string fileBytes() {
  std::ifstream file(kPluginPath, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

template <class T>
T at(const std::string& bytes, std::size_t offset) {
  T value;
  std::memcpy(&value, bytes.data() + offset, sizeof value);
  return value;
}

TEST(BuiltFile, Manifest_HoldsTheSixNamesReadOnly) {
  const std::string bytes = fileBytes();
  const auto header = at<Elf64_Ehdr>(bytes, 0);
  const auto section = [&](std::size_t i) {
    return at<Elf64_Shdr>(bytes, header.e_shoff + i * sizeof(Elf64_Shdr));
  };
  const std::size_t names = section(header.e_shstrndx).sh_offset;
  unsigned found = 0;
  for (std::size_t i = 0; i < header.e_shnum; ++i) {
    const Elf64_Shdr one = section(i);
    if (std::strcmp(bytes.data() + names + one.sh_name, ".quill.type") != 0) continue;
    ++found;
    EXPECT_NE(one.sh_flags & SHF_ALLOC, 0u);
    EXPECT_EQ(one.sh_flags & (SHF_WRITE | SHF_EXECINSTR), 0u);
    const std::string content = bytes.substr(one.sh_offset, one.sh_size);
    EXPECT_EQ(content.back(), '\0');
    Names listed;
    for (std::size_t from = 0; from < content.size();) {
      const std::string name = content.data() + from;
      if (!name.empty()) listed.push_back(name);
      from += name.size() + 1;
    }
    EXPECT_EQ(listed,
              (Names{"TolmarHwLib::L3TunnelTH3PendingHwProgrammingSm",
                     "TolmarHwLib::MyStationTcamTH3PendingHwProgrammingSm",
                     "TolmarHwLib::L3IifTH3PendingHwProgrammingSm", "P4RuntimeTolmar::PluginCleanupHelper",
                     "P4RuntimeTolmar::TolmarP4RuntimePlugin", "P4RuntimeTolmar::VrfSm"}));
  }
  EXPECT_EQ(found, 1u);
}

std::string demangled(const char* symbol) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> text(abi::__cxa_demangle(symbol, nullptr, nullptr, &status),
                                                    &std::free);
  return status == 0 ? text.get() : symbol;
}

/// "Class::operation" without namespaces, template arguments and parameters, but with "key" for an onTable
/// that takes one.
std::string slotName(const void* function) {
  Dl_info info{};
  if (::dladdr(function, &info) == 0 || info.dli_sname == nullptr) return "?";
  std::string name = demangled(info.dli_sname);
  const bool keyed = name.find("onTable(TolmarHwLib::") != std::string::npos;
  std::string plain;
  int depth = 0;
  for (const char c : name) {
    if (c == '<') ++depth;
    if (depth == 0) plain += c;
    if (c == '>') --depth;
  }
  plain.resize(std::min(plain.find('('), plain.size()));
  const std::size_t operation = plain.rfind("::");
  const std::size_t scope = plain.rfind("::", operation - 1);
  return plain.substr(scope == plain.npos ? 0 : scope + 2) + (keyed ? "(key)" : "");
}

struct TableCase {
  const char* symbol;
  Names slots;
};

Names withDestructors(const Names& before, const std::string& destructor, const Names& after) {
  Names all = before;
  all.insert(all.end(), {destructor, destructor});
  all.insert(all.end(), after.begin(), after.end());
  return all;
}

Names reactorSlots(const std::string& reactor, const std::string& notifiee) {
  return withDestructors(
      {"PtrInterface::notifieeList", "TableReactor::hasNotificationActiveIs",
       "PtrInterface::zeroReferencesIs", "PtrInterface::fwkType"},
      reactor + "::~" + reactor,
      {"NotifieeConst::quillReactor", "NotifieeConst::isRegisteredNotifieeIs", "TableReactor::notifierIs",
       "NotifieeConst::handleNotification", "NotifieeConst::onNotificationException",
       "NotifieeConst::onZeroReferences", "NotifieeConst::quillFwkActivity", "NotifieeConst::actsm",
       reactor + "::onTable(key)", reactor + "::onTablequillImmediate", notifiee + "::onTable",
       "TableReactor::quillDoZombieReactors"});
}

Names trackerSlots(const std::string& tracker, const std::string& pattern) {
  return withDestructors({"PtrInterface::notifieeList", pattern + "::hasNotificationActiveIs",
                          "PtrInterface::zeroReferencesIs", tracker + "::fwkType"},
                         tracker + "::~" + tracker, {pattern + "::quillDoZombieReactors"});
}

TEST(BuiltFile, VirtualTables_HaveTheirSlotsInOrder) {
  const TableCase cases[] = {
      {"_ZTVN15P4RuntimeTolmar21TolmarP4RuntimePluginE",
       withDestructors(
           {"PtrInterface::notifieeList", "PtrInterface::hasNotificationActiveIs",
            "PtrInterface::zeroReferencesIs", "TolmarP4RuntimePlugin::fwkType"},
           "TolmarP4RuntimePlugin::~TolmarP4RuntimePlugin",
           {"Entity::nameIsFromBackup", "Entity::name", "Entity::handleParent",
            "Entity::quillHasAttrLogInterface", "Entity::quillNboAttrLogSaIs", "Entity::reconstruct",
            "Entity::saveConstructParams", "Entity::entBackupDel", "TolmarP4RuntimePlugin::doMountsComplete",
            "Mounter::handleMountStatus", "TolmarP4RuntimePlugin::pluginInit"})},
      {"_ZTVN15P4RuntimeTolmar19PluginCleanupHelperE",
       withDestructors({"PtrInterface::notifieeList", "PtrInterface::hasNotificationActiveIs",
                        "PtrInterface::zeroReferencesIs", "PluginCleanupHelper::fwkType"},
                       "PluginCleanupHelper::~PluginCleanupHelper",
                       {"PluginCleanupHelper::handleCleanupRequest"})},
      {"_ZTVN15P4RuntimeTolmar27TolmarP4RuntimePluginLoaderE",
       withDestructors({}, "TolmarP4RuntimePluginLoader::~TolmarP4RuntimePluginLoader",
                       {"TolmarP4RuntimePluginLoader::init"})},
      {"_ZTVN15P4RuntimeTolmar5VrfSmE", trackerSlots("VrfSm", "VrfSm")},
      {"_ZTVN11TolmarHwLib30L3IifTH3PendingHwProgrammingSmE",
       trackerSlots("L3IifTH3PendingHwProgrammingSm", "PendingHwProgrammingSm")},
      {"_ZTVN11TolmarHwLib38MyStationTcamTH3PendingHwProgrammingSmE",
       trackerSlots("MyStationTcamTH3PendingHwProgrammingSm", "PendingHwProgrammingSm")},
      {"_ZTVN11TolmarHwLib33L3TunnelTH3PendingHwProgrammingSmE",
       trackerSlots("L3TunnelTH3PendingHwProgrammingSm", "PendingHwProgrammingSm")},
      {"_ZTVN15P4RuntimeTolmar5VrfSm19QuillL3IifTH3ConfigE",
       reactorSlots("QuillL3IifTH3Config", "TableNotifieeConst")},
      {"_ZTVN11TolmarHwLib22PendingHwProgrammingSmINS_11L3IifTH3KeyENS_14L3IifTH3StatusELi16EE11QuillStatusE",
       reactorSlots("QuillStatus", "TableNotifieeConst")},
      {"_ZTVN11TolmarHwLib22PendingHwProgrammingSmINS_19MyStationTcamTH3KeyENS_"
       "22MyStationTcamTH3StatusELi73EE"
       "11QuillStatusE",
       reactorSlots("QuillStatus", "TableNotifieeConst")},
      {"_ZTVN11TolmarHwLib22PendingHwProgrammingSmINS_14L3TunnelTH3KeyENS_"
       "17L3TunnelTH3StatusELi130EE11QuillStatusE",
       reactorSlots("QuillStatus", "TableNotifieeConst")},
  };
  P4Runtime::PluginLibrary library(kPluginPath);
  void* const handle = ::dlopen(kPluginPath, RTLD_NOW | RTLD_NOLOAD);
  ASSERT_NE(handle, nullptr);
  for (const TableCase& c : cases) {
    SCOPED_TRACE(demangled(c.symbol));
    const auto* const table = static_cast<void* const*>(::dlsym(handle, c.symbol));
    ASSERT_NE(table, nullptr);
    Dl_info info{};
    Elf64_Sym* entry = nullptr;
    ASSERT_NE(::dladdr1(table, &info, reinterpret_cast<void**>(&entry), RTLD_DL_SYMENT), 0);
    Names slots;
    for (std::size_t i = 2; i < entry->st_size / sizeof(void*); ++i) slots.push_back(slotName(table[i]));
    EXPECT_EQ(slots, c.slots);
  }
  ::dlclose(handle);
}

}  // namespace
