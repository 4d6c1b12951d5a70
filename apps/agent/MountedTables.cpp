#include "apps/agent/MountedTables.h"

#include "P4RuntimeTolmar/OutputTables.h"
#include "cairn/Exception.h"

namespace Agent {

namespace {

constexpr std::string_view kStatus = "/status";

/// Adds the rows of one status table; nothing when the entity is of another type.
template <class Status>
void addAnswers(const Quill::Ptr<Quill::Entity>& entity, HardwareAnswers& answers) {
  const auto status = Quill::ptrCast<Status>(entity);
  if (!status) return;
  typename Status::Map::Row row;
  Vesta::IterHint hint;
  for (bool more = status->table().first(row, hint); more; more = status->table().next(row.key, row, hint)) {
    answers[row.entry.entryHandle] = {row.entry.genId, row.entry.errorCode, row.entry.deleted};
  }
}

}  // namespace

Quill::Ptr<QuillVesta::TableEntity> MountedTables::table(const std::string& name, const char* side) const {
  const std::string ending = "/" + name + "Table/" + side;
  for (const Quill::String& path : entityManager_->mountedPaths()) {
    if (path.ends_with(ending)) return Quill::ptrCast<QuillVesta::TableEntity>(entityManager_->entity(path));
  }
  return nullptr;
}

pid_t MountedTables::hardwareProcess() const {
  pid_t process = 0;
  for (const Quill::String& path : entityManager_->mountedPaths()) {
    if (!path.ends_with(kStatus)) continue;
    const auto status = Quill::ptrCast<QuillVesta::TableEntity>(entityManager_->entity(path));
    const pid_t writer = status ? status->writerProcess() : 0;
    if (writer == 0 || (process != 0 && process != writer)) return 0;
    process = writer;
  }
  return process;
}

bool MountedTables::hardwareRuns(const std::string& name) const {
  const auto status = table(name, "status");
  return status && status->writerProcess() != 0;
}

std::string MountedTables::fault(const std::string& name) const {
  constexpr const char* kRemedy = "; start the agent again";
  for (const char* const side : {"config", "status"}) {
    const auto mounted = table(name, side);
    if (!mounted) return name + ": the tables were removed by a cleanup" + kRemedy;
    if (!mounted->attached()) return name + ": the " + side + " table is damaged" + kRemedy;
    const std::string file = mounted->displacedFile();
    if (!file.empty()) return name + ": the file " + file + " was removed or replaced" + kRemedy;
  }
  return {};
}

HardwareAnswers MountedTables::hardwareAnswers() const {
  using namespace TolmarHwLib;
  HardwareAnswers answers;
  for (const Quill::String& path : entityManager_->mountedPaths()) {
    if (!path.ends_with(kStatus)) continue;
    const auto entity = entityManager_->entity(path);
    try {
      addAnswers<L3TunnelTH3Status>(entity, answers);
      addAnswers<MyStationTcamTH3Status>(entity, answers);
      addAnswers<L3IifTH3Status>(entity, answers);
    } catch (const Cairn::CorruptionDetectedException&) {
      continue;  // the next reader of the table detects the corruption again and reports it
    }
  }
  return answers;
}

}  // namespace Agent
