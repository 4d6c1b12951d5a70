#include "apps/core/EntriesInFlight.h"

#include <utility>

namespace Agent {

std::optional<EntriesInFlight::Handle> EntriesInFlight::removed(const EntryKey& key) const {
  if (removals_.empty()) return std::nullopt;
  const Handle* const handle = removals_.find(key);
  return handle == nullptr ? std::nullopt : std::optional(*handle);
}

void EntriesInFlight::add(Handle handle, Operation& operation, std::uint64_t genId) {
  byHandle_.set(handle, {EntryInFlight::State::awaited, &operation, genId, {}, {}});
}

void EntriesInFlight::addRemoval(Handle handle, Operation& operation, EntryKey key) {
  removals_.set(key, handle);
  try {
    byHandle_.set(handle, {EntryInFlight::State::awaited, &operation, 0, key, {}});
  } catch (...) {
    removals_.del(key);
    throw;
  }
}

void EntriesInFlight::addOverdue(Handle handle) {
  byHandle_.set(handle, {EntryInFlight::State::overdue, nullptr, 0, {}, {}});
  ++overdue_;
}

void EntriesInFlight::overdueIs(EntryInFlight& entry) noexcept {
  entry.state = EntryInFlight::State::overdue;
  ++overdue_;
}

std::vector<Operation*> EntriesInFlight::del(Handle handle) {
  EntryInFlight& entry = *byHandle_.find(handle);
  if (entry.state == EntryInFlight::State::overdue) --overdue_;
  if (entry.removal) removals_.del(*entry.removal);
  std::vector<Operation*> waiting = std::move(entry.waiting);
  byHandle_.del(handle);
  return waiting;
}

}  // namespace Agent
