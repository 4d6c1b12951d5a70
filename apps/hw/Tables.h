// The four tables of the plugin as this process mounts them: config tables to read, status tables to write.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/hw/FaultOption.h"
#include "orrery/Mount.h"

namespace HwAgent {

struct Settings {
  std::vector<FailOption> fails;
  FailEveryOption failEvery;
  std::chrono::milliseconds delay{0};
};

/// Follows one table pair for as long as it lives.
class TableFollower {
 public:
  virtual ~TableFollower();
  /// Answers given so far.
  virtual std::uint64_t answers() const = 0;
};

/// Short names of the tables, in mount order.
std::vector<std::string> tableNames();

/// Mounts all tables in `entityManager`, whose runtime folder they lie in, answers what is open and follows
/// them. Throws what mounting throws, and Cairn::Exception for faults that name no table or field.
std::vector<std::unique_ptr<TableFollower>> followTables(
    const Quill::Ptr<const Orrery::EntityManager>& entityManager, const Settings& settings);

}  // namespace HwAgent
