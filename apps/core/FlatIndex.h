#pragma once

#include <bit>
#include <cstdint>
#include <vector>

namespace Agent {

/// Finds elements of an array by hash: cells of (hash, place) with linear probing and no tombstones. Adding
/// allocates only beyond the largest size that the index has had or has been reserved for.
class FlatIndex {
 public:
  static constexpr std::uint32_t kNone = 0xffffffff;

  std::size_t size() const noexcept { return size_; }

  void reserve(std::size_t elements) {
    if (elements * 2 > cells_.size()) rehash(std::bit_ceil(elements * 2));
  }

  /// Has the memory that a find() with this hash begins with brought near.
  void prefetch(std::uint32_t hash) const noexcept {
    if (size_ != 0) __builtin_prefetch(&cells_[hash & mask()]);
  }
  /// A place that was probably added with `hash`; kNone when there is none.
  std::uint32_t guess(std::uint32_t hash) const noexcept {
    return size_ == 0 ? kNone : cells_[hash & mask()].place;
  }

  /// The place for which `matches(place)` holds, among those added with `hash`; kNone when there is none.
  template <class Matches>
  std::uint32_t find(std::uint32_t hash, const Matches& matches) const {
    if (size_ == 0) return kNone;
    for (std::size_t at = hash & mask(); cells_[at].place != kNone; at = (at + 1) & mask()) {
      if (cells_[at].hash == hash && matches(cells_[at].place)) return cells_[at].place;
    }
    return kNone;
  }

  /// `place` is not in the index.
  void add(std::uint32_t hash, std::uint32_t place) {
    reserve(size_ + 1);
    put({hash, place});
    ++size_;
  }

  /// `place` was added with `hash`. Moves up what stands behind it, so that no probe meets a gap.
  void remove(std::uint32_t hash, std::uint32_t place) noexcept {
    std::size_t gap = hash & mask();
    while (cells_[gap].place != place) gap = (gap + 1) & mask();
    for (std::size_t at = (gap + 1) & mask(); cells_[at].place != kNone; at = (at + 1) & mask()) {
      const std::size_t home = cells_[at].hash & mask();
      if (((at - home) & mask()) < ((at - gap) & mask())) continue;
      cells_[gap] = cells_[at];
      gap = at;
    }
    cells_[gap] = {};
    --size_;
  }

  /// Calls `visit(place)` for each; it may not change the index.
  template <class Visit>
  void forEach(const Visit& visit) const {
    for (const Cell& cell : cells_) {
      if (cell.place != kNone) visit(cell.place);
    }
  }

 private:
  struct Cell {
    std::uint32_t hash = 0;
    std::uint32_t place = kNone;
  };

  std::size_t mask() const noexcept { return cells_.size() - 1; }
  void put(Cell cell) noexcept {
    std::size_t at = cell.hash & mask();
    while (cells_[at].place != kNone) at = (at + 1) & mask();
    cells_[at] = cell;
  }
  void rehash(std::size_t cells) {
    std::vector<Cell> before(cells);
    before.swap(cells_);
    for (const Cell& cell : before) {
      if (cell.place != kNone) put(cell);
    }
  }

  std::vector<Cell> cells_;  // a power of two, or none
  std::size_t size_ = 0;
};

}  // namespace Agent
