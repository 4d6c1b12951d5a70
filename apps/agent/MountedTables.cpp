#include "apps/agent/MountedTables.h"

#include "P4RuntimeTolmar/OutputTables.h"
#include "cairn/Exception.h"

namespace Agent {

namespace {

constexpr std::string_view kConfig = "/config";

/// Adds the handles of one table pair; nothing when the entities are of another kind.
template <class Config, class Status>
void addOwed(const Quill::Ptr<Quill::Entity>& configEntity, const Quill::Ptr<Quill::Entity>& statusEntity,
             std::vector<std::uint64_t>& handles) {
  const auto config = Quill::ptrCast<Config>(configEntity);
  const auto status = Quill::ptrCast<Status>(statusEntity);
  if (!config || !status) return;
  typename Config::Map::Row row;
  Vesta::IterHint hint;
  for (bool more = config->table().first(row, hint); more; more = config->table().next(row.key, row, hint)) {
    bool found = false;
    const auto& answer = status->directLookup(row.key, found);
    const bool answered = found && !answer.deleted && answer.entryHandle == row.entry.entryHandle &&
                          answer.genId == row.entry.genId;
    if (!answered) handles.push_back(row.entry.entryHandle);
  }
}

}  // namespace

std::vector<pid_t> MountedTables::writers() const {
  std::vector<pid_t> processes;
  for (const Quill::String& path : entityManager_->mountedPaths()) {
    const auto table = Quill::ptrCast<QuillVesta::TableEntity>(entityManager_->entity(path));
    if (table) processes.push_back(table->writerProcess());
  }
  return processes;
}

bool MountedTables::readable(const std::string& name) const {
  for (const Quill::String& path : entityManager_->mountedPaths()) {
    if (!path.ends_with("/" + name + "Table" + std::string(kConfig))) continue;
    const auto table = Quill::ptrCast<QuillVesta::TableEntity>(entityManager_->entity(path));
    return table && table->attached();
  }
  return false;
}

std::vector<std::uint64_t> MountedTables::owedHandles() const {
  using namespace TolmarHwLib;
  std::vector<std::uint64_t> handles;
  for (const Quill::String& path : entityManager_->mountedPaths()) {
    if (!path.ends_with(kConfig)) continue;
    const auto config = entityManager_->entity(path);
    const auto status = entityManager_->entity(path.substr(0, path.size() - kConfig.size()) + "/status");
    try {
      addOwed<L3TunnelTH3Config, L3TunnelTH3Status>(config, status, handles);
      addOwed<MyStationTcamTH3Config, MyStationTcamTH3Status>(config, status, handles);
      addOwed<L3IifTH3Config, L3IifTH3Status>(config, status, handles);
    } catch (const Cairn::CorruptionDetectedException&) {
      continue;  // whoever reads the table next meets the damage again and reports it
    }
  }
  return handles;
}

}  // namespace Agent
