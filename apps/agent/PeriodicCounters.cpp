#include "apps/agent/PeriodicCounters.h"

#include "apps/counters/TickScale.h"

namespace Agent {

void PeriodicCounters::copy() {
  counters_.heartbeat.set(Counters::monotonicNanoseconds());
  counters_.hardwareProcess.set(static_cast<std::uint64_t>(tables_.hardwareProcess()));
  TolmarHwLib::forEachOutputTable(
      [&]<std::size_t number, class Kind>(const TolmarHwLib::OutputTable<Kind>& table) {
        const auto [config, status] = tables_.sides<Kind>(table);
        if (config && status) tallies_[number].copy(*config, *status, counters_.tables[number].segments);
      });
  copyReferences();
}

void PeriodicCounters::copyReferences() {
  std::size_t place = 0;
  vrfs_->forEachVrfId([&](P4Runtime::VrfId vrf, std::uint32_t references) {
    if (place < Counters::kVrfs) {
      counters_.vrfReferences[place].set(std::uint64_t{vrf.value()} << 32 | references);
    }
    ++place;
  });
  counters_.vrfs.set(place);
}

}  // namespace Agent
