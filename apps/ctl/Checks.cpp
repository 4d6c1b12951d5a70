// tolmarctl check: every file of a runtime folder, and what to do about what is wrong.
#include "apps/ctl/Checks.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/core/Metadata.h"
#include "apps/ctl/Commands.h"
#include "apps/ctl/Programs.h"
#include "apps/ctl/Text.h"
#include "apps/ctl/Traces.h"
#include "apps/server/StateFile.h"
#include "cairn/Exception.h"
#include "vesta/EncodedRow.h"
#include "vesta/SegmentView.h"

namespace Ctl {

namespace {

using Findings = std::vector<Finding>;
using Kind = Finding::Kind;

// Folder and files.

void checkModes(const Folder& folder, Findings& findings) {
  struct stat root {};
  ::stat(folder.path().c_str(), &root);
  if ((root.st_mode & 07777u) != 0700u) {
    findings.push_back({Kind::fault, ".",
                        fmt::format("mode: expected 0700, found {:04o}", root.st_mode & 07777u),
                        "chmod 700 the folder; the programs refuse it"});
  }
  for (const std::string& file : folder.files()) {
    struct stat status {};
    if (::lstat(folder.file(file).c_str(), &status) != 0) continue;  // removed meanwhile
    if ((status.st_mode & 07777u) != 0600u) {
      findings.push_back({Kind::fault, file,
                          fmt::format("mode: expected 0600, found {:04o}", status.st_mode & 07777u),
                          "chmod 600 the file; the programs refuse it"});
    }
    if (status.st_uid != root.st_uid) {
      findings.push_back({Kind::fault, file,
                          fmt::format("owner: expected user {}, found {}", root.st_uid, status.st_uid),
                          "chown the file; the programs refuse it"});
    }
  }
}

// Segments.

/// `living`: the program runs, whether or not it writes the table.
std::string adviceFor(const Writer& writer, std::string_view program, bool living) {
  const bool isStopped = writer.state == Writer::State::stopped;
  if (!living && !isStopped && writer.state != Writer::State::running) {
    return fmt::format("start {}: it replaces the segment and keeps the intact rows", program);
  }
  const std::string first = isStopped ? fmt::format("kill -CONT {}; ", writer.process) : "";
  return first + (program == kAgent
                      ? "restart p4rt-agent: it replaces the segment and keeps the intact rows"
                      : "hw-agent replaces the segment when it next reads the damage, or at its start");
}

Finding segmentFinding(Vesta::SegmentView& segment, std::string_view program, bool living) {
  const std::string file = segment.path().path() + "/" + segment.path().collection();
  const Vesta::SegmentView::Writer process = segment.writer();
  const Writer writer = writerOf(process.process, process.living);
  if (segment.missing()) {
    return {Kind::fault, file, "missing", fmt::format("start {}, which creates it", program)};
  }
  if (const Vesta::SegmentFault& fault = segment.fault()) {
    const bool other = fault.kind == Vesta::SegmentFault::Kind::incompatible;
    return {
        Kind::fault, file, fault.text,
        other ? fmt::format("start the {} of this version: it replaces the segment by an empty one", program)
              : adviceFor(writer, program, living)};
  }
  try {
    segment.reads()->validate();
    const std::string rows =
        fmt::format("{} of {} rows", segment.reads()->segment().members(), segment.layout().shape.capacity);
    std::string advice;
    if (writer.state == Writer::State::stopped)
      advice = fmt::format("kill -CONT {} continues it", writer.process);
    if (writer.state == Writer::State::gone) advice = fmt::format("start {}", program);
    if (writer.state == Writer::State::none && living)
      advice = fmt::format("restart {}: it has detached from the table", program);
    return {advice.empty() ? Kind::fine : Kind::note, file, rows + ", " + textOf(writer, program), advice};
  } catch (const Cairn::CorruptionDetectedException& damage) {
    return {Kind::fault, file, damage.message(), adviceFor(writer, program, living)};
  } catch (const Cairn::Exception& problem) {
    return {Kind::note, file, problem.message(), "check again: its writer was changing it"};
  }
}

template <class Words>
bool isLiving(const Folder& folder, std::string_view name) {
  Program<Words> program{std::string(name), {}, {}};
  program.read(folder.path());
  return program.view && program.view->program().living;
}

void checkSegments(const Folder& folder, Findings& findings) {
  const bool agentLives = isLiving<Counters::AgentCounts>(folder, kAgent);
  const bool hardwareLives = isLiving<Counters::HardwareCounts>(folder, kHardwareAgent);
  TolmarHwLib::forEachOutputTable([&]<std::size_t, class T>(const TolmarHwLib::OutputTable<T>& table) {
    const auto check = [&]<class Entry>(const std::string& path, std::string_view program) {
      const auto shape = Vesta::shapeOf<typename T::Key, Entry>(table.capacity);
      try {
        Vesta::SegmentView segment(Vesta::RootPath(folder.path(), path, "table"), shape);
        findings.push_back(segmentFinding(segment, program, program == kAgent ? agentLives : hardwareLives));
      } catch (const Cairn::Exception& problem) {
        findings.push_back(
            {Kind::fault, path + "/table", problem.message(), fmt::format("start {} again", program)});
      }
    };
    const std::string_view prefix = TolmarHwLib::kOutputTablePrefix;
    check.template operator()<typename T::ConfigEntry>(TolmarHwLib::configPath(prefix, table.name), kAgent);
    check.template operator()<typename T::StatusEntry>(TolmarHwLib::statusPath(prefix, table.name),
                                                       kHardwareAgent);
  });
}

// The agent's other files. `read` returns a text, throws what is wrong.

template <class Read>
void checkFile(const Folder& folder, const std::string& name, const std::string& advice, Findings& findings,
               const Read& read) {
  struct stat status {};
  if (::lstat(folder.file(name).c_str(), &status) != 0) return;
  try {
    findings.push_back({Kind::fine, name, read()});
  } catch (const Cairn::Exception& problem) {
    findings.push_back({Kind::fault, name, problem.message(), advice});
  }
}

void checkAgentFiles(const Folder& folder, Findings& findings) {
  checkFile(folder, "p4rt-agent.undo", "restart the agent: what it cannot undo stays as it is in the tables",
            findings, [&] {
              const auto contents = folder.beforeImages();
              if (contents.damaged != 0) {
                throw Cairn::CorruptionDetectedException(
                    fmt::format("{} undecided updates have a damaged record", contents.damaged));
              }
              return fmt::format("{} undecided updates", contents.undecided.size());
            });
  checkFile(
      folder, "p4rt-agent.metadata", "restart the agent: it begins without the entries' metadata", findings,
      [&] { return fmt::format("{} records", Agent::Metadata::count(folder.file("p4rt-agent.metadata"))); });
  struct stat owner {};
  ::stat(folder.path().c_str(), &owner);
  if (owner.st_uid != ::geteuid()) {
    findings.push_back(
        {Kind::note, "p4rt-agent.election, p4rt-agent.pipeline", "another user's: not checked"});
    return;
  }
  for (const Server::StateFileKind& kind : {Server::kElectionIdsFile, Server::kPipelineConfigFile}) {
    checkFile(folder, kind.name, "", findings, [&] {
      const auto contents = Server::StateFile(folder.path(), kind).read();
      return fmt::format("{} bytes", contents.value_or("").size());
    });
  }
}

// Counter files, and by them whether the programs do their work.

template <class Words>
void checkCounters(const Folder& folder, std::string_view name, Findings& findings) {
  Program<Words> program{std::string(name), {}, {}};
  program.read(folder.path());
  const std::string file = program.name + ".counters";
  struct stat status {};
  if (::lstat(folder.file(file).c_str(), &status) != 0) {
    findings.push_back({Kind::note, file, "missing", fmt::format("restart {}, which creates it", name)});
  } else if (!program.view) {
    findings.push_back(
        {Kind::fault, file, program.problem, fmt::format("restart {}, which re-creates it", name)});
  } else if (program.fault().empty()) {
    findings.push_back({Kind::fine, file, program.stateText()});
  } else {
    const Counters::ProgramState& state = program.view->program();
    findings.push_back({Kind::note, file, program.fault(),
                        state.living ? fmt::format("kill -CONT {0} if it was stopped, otherwise kill {0} and "
                                                   "start {1} again",
                                                   state.process, name)
                                     : fmt::format("start {}", name)});
  }
}

void checkAllCounters(const Folder& folder, Findings& findings) {
  checkCounters<Counters::AgentCounts>(folder, kAgent, findings);
  checkCounters<Counters::HardwareCounts>(folder, kHardwareAgent, findings);
}

// Traces.

void checkTraces(const Folder& folder, Findings& findings) {
  for (const std::string& path : folder.traces()) {
    const std::string name = std::filesystem::path(path).filename().string();
    checkFile(folder, name, "remove it, or restart the program, which begins another", findings, [&] {
      const auto records = Skein::readTrace(path);
      const auto unreadable = std::count_if(records.begin(), records.end(), isUnreadable);
      if (unreadable != 0) {
        throw Cairn::CorruptionDetectedException(fmt::format("{} messages cannot be read", unreadable));
      }
      return records.empty()
                 ? std::string("no messages")
                 : fmt::format("{} messages since {}", records.size(), timeText(records.front().wall));
    });
  }
}

// What the programs have left after damage.

void checkLeftovers(const Folder& folder, Findings& findings) {
  for (const std::string& file : folder.files()) {
    const std::string kind = leftoverKind(file);
    if (kind == "damaged") {
      findings.push_back(
          {Kind::note, file, "was damaged and is kept aside", "tolmarctl report, then remove it"});
    } else if (!kind.empty()) {
      findings.push_back({Kind::note, file, kind == "retired" ? "a retired segment" : "a report of damage",
                          "tolmarctl report, then tolmarctl clean"});
    }
  }
}

// A sort of files that is added gets its function here.
constexpr void (*kChecks[])(const Folder&, Findings&) = {
    checkModes, checkSegments, checkAgentFiles, checkAllCounters, checkTraces, checkLeftovers, checkVrfs};

std::string_view textOf(Kind kind) {
  return kind == Kind::fine ? "ok   " : kind == Kind::note ? "note " : "FAULT";
}

int check(const std::string& path) {
  const Folder folder(path);
  const Findings findings = checkAll(folder);
  const auto faults = std::count_if(findings.begin(), findings.end(),
                                    [](const Finding& finding) { return finding.kind == Kind::fault; });
  fmt::print("{}{} faults\n", textOf(findings), faults);
  return faults == 0 ? kFine : kFound;
}

}  // namespace

std::vector<Finding> checkAll(const Folder& folder) {
  Findings findings;
  for (const auto each : kChecks) each(folder, findings);
  return findings;
}

std::string textOf(const Findings& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += fmt::format("{} {}: {}\n", textOf(finding.kind), finding.name, finding.text);
    if (!finding.advice.empty()) text += fmt::format("      {}\n", finding.advice);
  }
  return text;
}

std::string leftoverKind(const std::string& file) {
  const std::string name = std::filesystem::path(file).filename().string();
  if (name.ends_with(".damaged")) return "damaged";
  for (const char* const kind : {"retired", "report"}) {
    const std::string middle = fmt::format(".{}.", kind);
    const std::size_t at = name.rfind(middle);
    if (at == std::string::npos || at == 0) continue;
    const std::string number = name.substr(at + middle.size());
    if (!number.empty() && number.find_first_not_of("0123456789") == std::string::npos) return kind;
  }
  return {};
}

void addCheck(CLI::App& app, CommandLine& line) {
  CLI::App& command = *app.add_subcommand("check", "every file of the folder, and what to do");
  command.footer(
      "Checks segments, files of the agent, counter files, traces, and what is left\n"
      "of damage; a FAULT or a note has a second line that says what to do. Compares\n"
      "the references to each VRF by rows with the agent's own count, which may be\n"
      "higher after modifications, but not lower.\n"
      "Exit code: 0 without a fault, 1 with one, 2 on error.");
  runsAs(command, line, check);
}

}  // namespace Ctl
