// The newest change of every changed key, ordered by change index.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "cairn/Assert.h"

namespace TolmarHwLib {

/// A change index is twice a change number, plus 0 or 1. Numbers are recorded in ascending order, from 1, and
/// without large gaps: the changes are in a ring with a cell for each number from the oldest to the newest,
/// which may be empty. So recording and removing a change costs the same however many there are, and
/// allocates nothing once the ring is large enough. A walk passes over the empty cells.
/// Positions survive removals: one whose change was removed steps to the next higher index.
template <class Key>
class ChangeMap {
 public:
  class Position {
   public:
    std::uint64_t index() const {
      Cairn::require(index_ != kEnd, "no change at the end", "ChangeMap");
      return index_;
    }
    /// The key whose change this is; an assertion failure when the change is not recorded any more.
    const Key& key() const {
      Cairn::require(changes_->recorded(index()), "change is not recorded any more", "ChangeMap");
      return changes_->cell(index_ / 2).key;
    }
    Position& operator++() { return *this = changes_->above(index()); }
    /// Positions at the end are equal, also those of different maps.
    friend bool operator==(const Position& a, const Position& b) noexcept {
      return a.index_ == b.index_ && (a.changes_ == b.changes_ || a.index_ == kEnd);
    }

   private:
    friend class ChangeMap;
    static constexpr std::uint64_t kEnd = std::numeric_limits<std::uint64_t>::max();
    Position(const ChangeMap& changes, std::uint64_t index) : changes_(&changes), index_(index) {}

    const ChangeMap* changes_;  // not owned
    std::uint64_t index_;
  };

  /// Records `index`, above all before it, for `key`; `previous` is the index it has had, 0 for none. Strong
  /// exception guarantee.
  void record(std::uint64_t index, const Key& key, std::uint64_t previous) {
    const std::uint64_t number = index / 2;
    if (begin_ == end_) begin_ = end_ = number;
    if (number - begin_ >= cells_.size()) grow(number - begin_ + 1);
    if (recorded(previous)) cell(previous / 2).index = 0;
    while (end_ != number) cell(end_++).index = 0;
    cell(end_++) = {index, key};
    while (cell(begin_).index == 0) ++begin_;
  }
  /// Removes all changes up to and including `index`, after handing the key of each to `forgotten`.
  template <class Forgotten>
  void trim(std::uint64_t index, const Forgotten& forgotten) {
    for (; begin_ != end_ && cell(begin_).index <= index; ++begin_) {
      if (cell(begin_).index != 0) forgotten(cell(begin_).key);
    }
  }

  /// The first change above `index`, or the end.
  Position above(std::uint64_t index) const {
    std::uint64_t number = index / 2 < begin_ ? begin_ : index / 2;
    while (number < end_ && cell(number).index <= index) ++number;
    return Position(*this, number < end_ ? cell(number).index : Position::kEnd);
  }
  Position end() const { return Position(*this, Position::kEnd); }

 private:
  struct Cell {
    std::uint64_t index = 0;  // 0: the key has changed again since, or the number was never recorded
    Key key{};
  };

  Cell& cell(std::uint64_t number) { return cells_[number & (cells_.size() - 1)]; }
  const Cell& cell(std::uint64_t number) const { return cells_[number & (cells_.size() - 1)]; }
  bool recorded(std::uint64_t index) const {
    return index / 2 >= begin_ && index / 2 < end_ && cell(index / 2).index == index;
  }
  void grow(std::uint64_t least) {
    std::vector<Cell> cells(std::bit_ceil(static_cast<std::size_t>(least)));
    for (std::uint64_t number = begin_; number != end_; ++number) {
      cells[number & (cells.size() - 1)] = cell(number);
    }
    cells_.swap(cells);
  }

  std::vector<Cell> cells_;  // none, or a power of two
  std::uint64_t begin_ = 0;  // numbers in the ring: that of the first change, unless it is empty
  std::uint64_t end_ = 0;    // and one above the last
};

}  // namespace TolmarHwLib
