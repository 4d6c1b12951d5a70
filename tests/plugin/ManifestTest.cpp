// What can be read off the built library: its type manifest and the slots of its virtual tables.
#include <cxxabi.h>
#include <dlfcn.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "PluginLibraryFixture.h"

namespace {

using Names = std::vector<std::string>;

/// The sections of an ELF file.
class ElfFile {
 public:
  explicit ElfFile(const char* path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.resize(std::filesystem::file_size(path));
    file.read(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
    const auto header = at<Elf64_Ehdr>(0);
    for (std::size_t i = 0; i < header.e_shnum; ++i) {
      sections_.push_back(at<Elf64_Shdr>(header.e_shoff + i * sizeof(Elf64_Shdr)));
    }
    names_ = sections_.at(header.e_shstrndx).sh_offset;
  }

  const std::vector<Elf64_Shdr>& sections() const { return sections_; }
  std::string name(const Elf64_Shdr& section) const { return bytes_.data() + names_ + section.sh_name; }
  std::string content(const Elf64_Shdr& section) const {
    return bytes_.substr(section.sh_offset, section.sh_size);
  }

  /// Calls visit(name, symbol) for every symbol that the file offers or asks for.
  template <class Visit>
  void forEachSymbol(const Visit& visit) const {
    for (const Elf64_Shdr& section : sections_) {
      if (section.sh_type != SHT_DYNSYM) continue;
      const std::size_t strings = sections_.at(section.sh_link).sh_offset;
      for (std::size_t offset = 0; offset < section.sh_size; offset += sizeof(Elf64_Sym)) {
        const auto symbol = at<Elf64_Sym>(section.sh_offset + offset);
        visit(bytes_.data() + strings + symbol.st_name, symbol);
      }
    }
  }

 private:
  template <class T>
  T at(std::size_t offset) const {
    T value;
    std::memcpy(&value, bytes_.data() + offset, sizeof value);
    return value;
  }

  std::string bytes_;
  std::vector<Elf64_Shdr> sections_;
  std::size_t names_ = 0;
};

TEST(BuiltFile, Manifest_HoldsTheSixNamesReadOnly) {
  const ElfFile file(kPluginPath);
  unsigned found = 0;
  for (const Elf64_Shdr& section : file.sections()) {
    if (file.name(section) != ".quill.type") continue;
    ++found;
    EXPECT_NE(section.sh_flags & SHF_ALLOC, 0u);
    EXPECT_EQ(section.sh_flags & (SHF_WRITE | SHF_EXECINSTR), 0u);
    const std::string content = file.content(section);
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

/// "Class::operation" without namespaces, template arguments and parameters, but with "(key)" for an onTable
/// that takes one.
std::string shortName(const char* symbol) {
  const std::string name = demangled(symbol);
  std::string plain;
  int depth = 0;
  for (const char c : name) {
    depth += c == '<' ? 1 : 0;
    if (depth == 0) plain += c;
    depth -= c == '>' ? 1 : 0;
  }
  plain.resize(std::min(plain.find('('), plain.size()));
  const std::size_t operation = plain.rfind("::");
  if (operation == plain.npos) return plain;
  const std::size_t scope = plain.rfind("::", operation - 1);
  const bool keyed = name.find("onTable(TolmarHwLib::") != std::string::npos;
  return plain.substr(scope == plain.npos ? 0 : scope + 2) + (keyed ? "(key)" : "");
}

/// The functions of loaded libraries by address. Functions with the same code may have been made one, so that
/// an address has several names.
class LoadedFunctions {
 public:
  /// Adds the library that holds `address`.
  void add(const void* address) {
    Dl_info info{};
    ASSERT_NE(::dladdr(address, &info), 0);
    const auto* const base = static_cast<const char*>(info.dli_fbase);
    ElfFile(info.dli_fname).forEachSymbol([&](const char* name, const Elf64_Sym& symbol) {
      if (ELF64_ST_TYPE(symbol.st_info) != STT_FUNC || symbol.st_shndx == SHN_UNDEF) return;
      names_[base + symbol.st_value].insert(shortName(name));
    });
  }

  /// The name `expected` if the function has it, else one that it has.
  std::string name(const void* function, const std::string& expected) const {
    const auto found = names_.find(function);
    if (found == names_.end()) return "unknown";
    return found->second.contains(expected) ? expected : *found->second.begin();
  }

 private:
  std::map<const void*, std::set<std::string>> names_;
};

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
  LoadedFunctions functions;
  functions.add(::dlsym(handle, cases[0].symbol));
  functions.add(::dlsym(handle, "_ZTVN5Quill6EntityE"));
  for (const TableCase& c : cases) {
    SCOPED_TRACE(demangled(c.symbol));
    const auto* const table = static_cast<void* const*>(::dlsym(handle, c.symbol));
    ASSERT_NE(table, nullptr);
    Dl_info info{};
    Elf64_Sym* symbol = nullptr;
    ASSERT_NE(::dladdr1(table, &info, reinterpret_cast<void**>(&symbol), RTLD_DL_SYMENT), 0);
    const std::size_t first = 2;  // behind the offset to the top and the type's description
    ASSERT_EQ(symbol->st_size / sizeof(void*), first + c.slots.size());
    for (std::size_t i = 0; i < c.slots.size(); ++i) {
      EXPECT_EQ(functions.name(table[first + i], c.slots[i]), c.slots[i]) << "slot " << i;
    }
  }
  ::dlclose(handle);
}

}  // namespace
