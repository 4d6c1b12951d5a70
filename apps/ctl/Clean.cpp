// tolmarctl clean: removes what the programs have left after damage.
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <memory>
#include <optional>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/ctl/Checks.h"
#include "apps/ctl/Commands.h"
#include "cairn/Exception.h"
#include "vesta/EncodedRow.h"
#include "vesta/SegmentView.h"
#include "vesta/files/LockFile.h"

namespace Ctl {

namespace {

/// Cleans the folder of one table.
class TableCleaner {
 public:
  TableCleaner(const Folder& folder, Vesta::SegmentView& segment, bool isDry)
      : folder_(folder), segment_(segment), isDry_(isDry) {}

  void clean() {
    std::vector<std::string> leftovers;
    const std::string prefix = segment_.path().path() + "/" + segment_.path().collection() + ".";
    for (const std::string& file : folder_.files()) {
      const std::string kind = leftoverKind(file);
      if (file.starts_with(prefix) && (kind == "retired" || kind == "report")) leftovers.push_back(file);
    }
    if (leftovers.empty()) return;
    if (const std::string needed = whyNeeded(); !needed.empty()) {
      fmt::print("kept {} files of {}: {}\n", leftovers.size(), segment_.path().path(), needed);
      return;
    }
    for (const std::string& file : leftovers) remove(file);
  }

  std::size_t files = 0;
  std::uint64_t bytes = 0;

 private:
  /// While the table itself is damaged or missing, its rows may have to be looked for in what is left.
  std::string whyNeeded() {
    if (segment_.missing()) return "the table is missing";
    if (segment_.fault()) return "the table is damaged: " + segment_.fault().text;
    try {
      segment_.reads()->validate();
      return {};
    } catch (const Cairn::Exception& damage) {
      return "the table is damaged: " + damage.message();
    }
  }

  /// A writer that replaces the segment links the new one under the name of a retired one first; it holds the
  /// creation lock until the two have exchanged their names.
  void remove(const std::string& file) {
    const std::string path = folder_.file(file);
    const Vesta::RootPath& table = segment_.path();
    const Cairn::Descriptor tableFolder(::open(table.folder().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::optional<Vesta::LockFile> lock;
    if (!isDry_) {
      lock.emplace(tableFolder.get(), table.collection() + ".lock", table.text() + ".lock");
      if (!lock->tryLock(Vesta::LockFile::kCreation)) {
        fmt::print("kept {}: its table is being replaced\n", file);
        return;
      }
    }
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || segment_.reads()->segment().maps(status)) return;
    if (!isDry_ && ::unlink(path.c_str()) != 0) throw Cairn::SystemException("remove " + path, errno);
    fmt::print("{} {}\n", isDry_ ? "would remove" : "removed", file);
    ++files;
    bytes += static_cast<std::uint64_t>(status.st_blocks) * 512;
  }

  const Folder& folder_;
  Vesta::SegmentView& segment_;
  bool isDry_;
};

int clean(const std::string& path, bool isDry) {
  const Folder folder(path);
  std::size_t files = 0;
  std::uint64_t bytes = 0;
  TolmarHwLib::forEachOutputTable([&]<std::size_t, class Kind>(const TolmarHwLib::OutputTable<Kind>& table) {
    const auto cleanSide = [&]<class Entry>(const std::string& side) {
      const auto shape = Vesta::shapeOf<typename Kind::Key, Entry>(table.capacity);
      Vesta::SegmentView segment(Vesta::RootPath(folder.path(), side, "table"), shape);
      TableCleaner cleaner(folder, segment, isDry);
      cleaner.clean();
      files += cleaner.files;
      bytes += cleaner.bytes;
    };
    const std::string_view prefix = TolmarHwLib::kOutputTablePrefix;
    cleanSide.template operator()<typename Kind::ConfigEntry>(TolmarHwLib::configPath(prefix, table.name));
    cleanSide.template operator()<typename Kind::StatusEntry>(TolmarHwLib::statusPath(prefix, table.name));
  });
  fmt::print("{} {} files, {} KiB\n", isDry ? "would remove" : "removed", files, bytes / 1024);
  return kFine;
}

}  // namespace

void addClean(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("clean", "removes retired segments and damage reports");
  const auto isDry = std::make_shared<bool>(false);
  command.add_flag("--dry-run", *isDry, "only print what would be removed");
  command.footer(
      "Retired segments and reports of a table are removed when the table itself is\n"
      "intact; otherwise they are kept, since they may hold its rows. Nothing that a\n"
      "program uses is removed. Run report before, if a developer is to see them.\n"
      "Exit code: 0, or 2 on error.");
  runsAs(command, line, [isDry](const std::string& folder) { return clean(folder, *isDry); });
}

}  // namespace Ctl
