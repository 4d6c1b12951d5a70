#pragma once

#include <array>

#include "apps/agent/MountedTables.h"
#include "apps/counters/SegmentTally.h"
#include "p4runtime/VrfIdCollection.h"

namespace Agent {

/// Copies to the counter file what is counted elsewhere in the agent.
class PeriodicCounters {
 public:
  /// `counters` and `tables` are not owned.
  PeriodicCounters(Counters::AgentCounters& counters, const MountedTables& tables,
                   Quill::Ptr<P4Runtime::VrfIdCollection> vrfs)
      : counters_(counters), tables_(tables), vrfs_(std::move(vrfs)) {}

  void copy();

 private:
  void copyReferences();

  Counters::AgentCounters& counters_;  // not owned, like
  const MountedTables& tables_;        // this
  Quill::Ptr<P4Runtime::VrfIdCollection> vrfs_;
  std::array<Counters::SegmentTally, TolmarHwLib::kOutputTableCount> tallies_;
};

}  // namespace Agent
