#include "apps/core/HeldEntries.h"

#include <algorithm>
#include <utility>

namespace Agent {

std::size_t HeldEntries::overdue() const noexcept {
  using State = HeldEntry::State;
  return static_cast<std::size_t>(std::count_if(entries_.begin(), entries_.end(), [](const Placed& entry) {
    return entry.table != nullptr && entry.state != State::untouched && entry.state != State::writing &&
           entry.state != State::written;
  }));
}

HeldEntry* HeldEntries::find(const ConfigTable& table, std::uint32_t hash, const Lumen::BaseRow& row) {
  const std::uint32_t place = byKey_.find(hash, [&](std::uint32_t candidate) {
    const HeldEntry& entry = entries_[candidate];
    return entry.table == &table && table.keyEquals(entry.row, row);
  });
  return place == FlatIndex::kNone ? nullptr : &entries_[place];
}

HeldEntry* HeldEntries::find(std::uint64_t handle) {
  const std::uint32_t place = byHandle_.find(
      hashOf(handle), [&](std::uint32_t candidate) { return entries_[candidate].handle == handle; });
  return place == FlatIndex::kNone ? nullptr : &entries_[place];
}

HeldEntry& HeldEntries::add(ConfigTable& table, std::uint32_t hash, Lumen::BaseRow row) {
  if (free_.empty()) {
    const std::size_t place = entries_.size();
    if (free_.capacity() <= place) free_.reserve(2 * place + 16);  // so that del() never allocates
    entries_.emplace_back().place = static_cast<std::uint32_t>(place);
    free_.push_back(entries_.back().place);
  }
  Placed& entry = entries_[free_.back()];
  byKey_.add(hash, entry.place);
  free_.pop_back();
  entry.table = &table;
  entry.hash = hash;
  entry.row = std::move(row);
  return entry;
}

void HeldEntries::del(HeldEntry& entry) noexcept {
  auto& placed = static_cast<Placed&>(entry);
  handleDel(entry);
  byKey_.remove(entry.hash, placed.place);
  free_.push_back(placed.place);
  entry = HeldEntry();
}

void HeldEntries::handleIs(HeldEntry& entry, std::uint64_t handle) {
  if (entry.handle == handle) return;
  handleDel(entry);
  byHandle_.add(hashOf(handle), static_cast<Placed&>(entry).place);
  entry.handle = handle;
}

void HeldEntries::handleDel(HeldEntry& entry) noexcept {
  if (entry.handle == 0) return;
  byHandle_.remove(hashOf(entry.handle), static_cast<Placed&>(entry).place);
  entry.handle = 0;
}

}  // namespace Agent
