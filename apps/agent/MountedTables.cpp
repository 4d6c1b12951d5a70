#include "apps/agent/MountedTables.h"

#include <set>
#include <utility>

#include "P4RuntimeTolmar/OutputTables.h"
#include "cairn/Exception.h"
#include "table-service/TableRead.h"

namespace Agent {

namespace {

using TolmarHwLib::forEachOutputTable;
using TolmarHwLib::kOutputTablePrefix;

}  // namespace

Quill::Ptr<QuillVesta::TableEntity> MountedTables::configTable(std::string_view name) const {
  return Quill::ptrCast<QuillVesta::TableEntity>(
      entityManager_->entity(TolmarHwLib::configPath(kOutputTablePrefix, name)));
}

Quill::Ptr<QuillVesta::TableEntity> MountedTables::statusTable(std::string_view name) const {
  return Quill::ptrCast<QuillVesta::TableEntity>(
      entityManager_->entity(TolmarHwLib::statusPath(kOutputTablePrefix, name)));
}

pid_t MountedTables::hardwareProcess() const {
  std::set<pid_t> processes;
  forEachOutputTable([&]<std::size_t>(const auto& table) {
    const auto status = statusTable(table.name);
    processes.insert(status ? status->writerProcess() : 0);
  });
  return processes.size() == 1 ? *processes.begin() : 0;
}

bool MountedTables::hardwareRuns(const std::string& name) const {
  const auto status = statusTable(name);
  return status && status->writerProcess() != 0;
}

std::string MountedTables::fault(const std::string& name) const {
  const auto text = [&name](const std::string& fault) {
    return std::string(name).append(": ").append(fault).append("; start the agent again");
  };
  for (const auto& [side, mounted] :
       {std::pair("config", configTable(name)), {"status", statusTable(name)}}) {
    if (!mounted) return text("the tables were removed by a cleanup");
    if (!mounted->attached()) return text(std::string("the ").append(side).append(" table is damaged"));
    const std::string file = mounted->displacedFile();
    if (!file.empty()) return text("the file " + file + " was removed or replaced");
  }
  return {};
}

HardwareAnswers MountedTables::hardwareAnswers() const {
  HardwareAnswers answers;
  forEachOutputTable([&]<std::size_t, class Kind>(const TolmarHwLib::OutputTable<Kind>& table) {
    const auto status = Quill::ptrCast<typename Kind::Status>(statusTable(table.name));
    if (!status) return;
    const auto collect = [&answers](const auto& row) {
      answers[row.entry.entryHandle] = {row.entry.genId, row.entry.errorCode, row.entry.deleted};
    };
    try {
      Vesta::forEachRow(status->table(), collect);
    } catch (const Cairn::CorruptionDetectedException&) {
      // The next reader of the table detects the corruption again and reports it.
    }
  });
  return answers;
}

}  // namespace Agent
