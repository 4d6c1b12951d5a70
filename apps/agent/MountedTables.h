#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <utility>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/core/AgentCore.h"
#include "orrery/EntityManager.h"

namespace Agent {

/// What the agent asks of the plugin's tables beside the rows of the config tables.
class MountedTables {
 public:
  explicit MountedTables(Quill::Ptr<const Orrery::EntityManager> entityManager)
      : entityManager_(std::move(entityManager)) {}

  /// The process that writes all status tables; 0 when there is none.
  pid_t hardwareProcess() const;
  /// Whether some process writes the status table of that short name.
  bool hardwareRuns(const std::string& name) const;
  /// Why the tables of that short name cannot be used until the agent is started again; empty when they can.
  std::string fault(const std::string& name) const;
  /// Every status row. A table found damaged on the way is left out from there on.
  HardwareAnswers hardwareAnswers() const;

  /// Config and status side of `table`; null for one that is not mounted.
  template <class Kind>
  std::pair<Quill::Ptr<typename Kind::Config>, Quill::Ptr<typename Kind::Status>> sides(
      const TolmarHwLib::OutputTable<Kind>& table) const {
    return {Quill::ptrCast<typename Kind::Config>(configTable(table.name)),
            Quill::ptrCast<typename Kind::Status>(statusTable(table.name))};
  }

 private:
  /// A mounted side of the output table with this short name; null if it is not mounted.
  Quill::Ptr<QuillVesta::TableEntity> configTable(std::string_view name) const;
  Quill::Ptr<QuillVesta::TableEntity> statusTable(std::string_view name) const;

  Quill::Ptr<const Orrery::EntityManager> entityManager_;
};

}  // namespace Agent
