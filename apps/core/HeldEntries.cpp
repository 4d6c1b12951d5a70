#include "apps/core/HeldEntries.h"

#include <utility>

namespace Agent {

std::size_t HeldEntries::overdue() const noexcept {
  using State = HeldEntry::State;
  std::size_t overdue = 0;
  for (std::uint32_t place = 0; place < count_; ++place) {
    const HeldEntry& entry = at(place);
    if (entry.table != nullptr && entry.state != State::untouched && entry.state != State::writing &&
        entry.state != State::written) {
      ++overdue;
    }
  }
  return overdue;
}

HeldEntry* HeldEntries::find(const ConfigTable& table, std::uint32_t hash, const Lumen::BaseRow& row) {
  const std::uint32_t place = byKey_.find(hash, [&](std::uint32_t candidate) {
    const HeldEntry& entry = at(candidate);
    return entry.table == &table && table.keyEquals(entry.row, row);
  });
  return place == FlatIndex::kNone ? nullptr : &at(place);
}

HeldEntry* HeldEntries::find(std::uint64_t handle) {
  const std::uint32_t place =
      byHandle_.find(hashOf(handle), [&](std::uint32_t candidate) { return at(candidate).handle == handle; });
  return place == FlatIndex::kNone ? nullptr : &at(place);
}

void HeldEntries::prefetchEntry(std::uint64_t handle) const noexcept {
  const std::uint32_t place = byHandle_.guess(hashOf(handle));
  if (place != FlatIndex::kNone) prefetch(at(place));
}

void HeldEntries::grow() {
  free_.reserve(count_ + kChunk);  // so that del() never allocates
  chunks_.push_back(std::make_unique<Placed[]>(kChunk));
  count_ += kChunk;
  for (std::uint32_t place = count_; place-- > count_ - kChunk;) {
    at(place).place = place;
    free_.push_back(place);
  }
}

HeldEntry& HeldEntries::add(ConfigTable& table, std::uint32_t hash, Lumen::BaseRow row) {
  if (free_.empty()) grow();
  Placed& entry = at(free_.back());
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
