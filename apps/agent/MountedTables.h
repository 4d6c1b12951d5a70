#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "orrery/EntityManager.h"

namespace Agent {

/// What the agent asks of the plugin's tables beside its rows: who writes them, whether they are sound, and
/// which answers the hardware still owes.
class MountedTables {
 public:
  explicit MountedTables(Quill::Ptr<const Orrery::EntityManager> entityManager)
      : entityManager_(std::move(entityManager)) {}

  /// The process that writes each of the tables, 0 where none does.
  std::vector<pid_t> writers() const;
  /// False once the config table with this short name was found damaged; it reads as empty then.
  bool readable(const std::string& name) const;
  /// The handles of the config rows that the hardware has not answered as they stand.
  std::vector<std::uint64_t> owedHandles() const;

 private:
  Quill::Ptr<const Orrery::EntityManager> entityManager_;
};

}  // namespace Agent
