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

  /// To be called every 400 ms: sets the heartbeat, too.
  void copy();

 private:
  void copyReferences();

  Counters::AgentCounters& counters_;  // not owned
  const MountedTables& tables_;        // not owned
  Quill::Ptr<P4Runtime::VrfIdCollection> vrfs_;
  std::array<Counters::SegmentTally, TolmarHwLib::kOutputTableCount> tallies_;
};

}  // namespace Agent
