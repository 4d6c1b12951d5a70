// tolmarctl report: one archive for a developer.
#include <fmt/format.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <set>

#include "apps/ctl/Archive.h"
#include "apps/ctl/Checks.h"
#include "apps/ctl/Commands.h"
#include "apps/ctl/Metrics.h"
#include "apps/ctl/Tables.h"
#include "apps/ctl/Traces.h"
#include "cairn/Exception.h"
#include "skein/RingFormat.h"
#include "vesta/segment/Layout.h"

namespace Ctl {

namespace {

namespace fs = std::filesystem;

std::string commandLineOf(pid_t process) {
  std::ifstream file(fmt::format("/proc/{}/cmdline", process), std::ios::binary);
  std::string text{std::istreambuf_iterator<char>(file), {}};
  for (char& c : text) c = c == '\0' ? ' ' : c;
  return text;
}

/// `tables` may be empty.
std::string versionsText(const std::vector<Table>& tables) {
  utsname system{};
  ::uname(&system);
  std::string text = fmt::format(
      "tolmarctl {}\nsegment layout {}\ntrace layout {}\ncounter layout {}\n{} {} {} {}\ntime {}\n", kVersion,
      Vesta::kLayoutVersion, Braid::kLayoutVersion, Counters::kLayoutVersion, system.sysname, system.release,
      system.version, system.machine, timeText(now()));
  std::set<std::string> processes;
  for (const Table& table : tables) {
    for (const auto& [side, program] : {std::pair(&table.config, kAgent), {&table.status, kHardwareAgent}}) {
      std::error_code error;
      const pid_t process = side->writer.process;
      const std::string file = fs::read_symlink(fmt::format("/proc/{}/exe", process), error).string();
      processes.insert(
          fmt::format("{}: {} {}\n", textOf(side->writer, program), file, commandLineOf(process)));
    }
  }
  for (const std::string& process : processes) text += process;
  return text;
}

std::string traceText(const Folder& folder) {
  Skein::TraceProgress progress;
  std::vector<std::string> problems;
  std::string text;
  for (const auto& record : readTraces(folder, {}, progress, problems)) text += textOf(record) + "\n";
  for (const std::string& problem : problems) text += problem + "\n";
  return text;
}

std::string countersText(const Folder& folder) {
  try {
    return metricsText(Programs(folder.path()));
  } catch (const Cairn::Exception& problem) {
    return problem.message() + "\n";
  }
}

int report(const std::string& path, const std::string& to) {
  const Folder folder(path);
  std::string name = timeText(now()).substr(0, 19);
  std::erase_if(name, [](char c) { return c == '-' || c == ':'; });
  name = "tolmar-report-" + name;
  const std::string file = to.empty() ? name + ".tar.gz" : to;
  Archive archive(file);
  std::vector<Table> tables;
  try {
    tables = readTables(folder);
    addTimes(folder, tables);
  } catch (const Cairn::Exception& problem) {
    warn(problem.message());
  }
  archive.add(name + "/versions.txt", versionsText(tables));
  archive.add(name + "/check.txt", textOf(checkAll(folder)));
  archive.add(name + "/metrics.txt", countersText(folder));
  archive.add(name + "/tables.json", jsonText(folder.path(), tables, now()) + "\n");
  archive.add(name + "/trace.txt", traceText(folder));
  for (const std::string& each : folder.files()) {
    if (!archive.addCopy(fmt::format("{}/files/{}", name, each), folder.file(each))) {
      warn(each + " could not be read");
    }
  }
  archive.finish();
  fmt::print("{}\n", file);
  return kFine;
}

}  // namespace

void addReport(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("report", "one archive with everything, for a developer");
  const auto to = std::make_shared<std::string>();
  command.add_option("-o,--output", *to, "default: tolmar-report-TIME.tar.gz")->type_name("FILE");
  command.footer(
      "The archive has what check, show --json, trace and metrics print, versions of\n"
      "programs and layouts, and a copy of every file in the runtime folder: entries\n"
      "and what controllers store with them included.\n"
      "Prints the name of the archive. Exit code: 0, or 2 on error.");
  runsAs(command, line, [to](const std::string& folder) { return report(folder, *to); });
}

}  // namespace Ctl
