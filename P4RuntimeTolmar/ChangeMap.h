// The newest change of every changed key, ordered by change index.
#pragma once

#include <cstdint>
#include <limits>
#include <map>

#include "cairn/Assert.h"

namespace TolmarHwLib {

/// Indices are recorded in ascending order and are never 0. A key that changes again reuses its element, so
/// that it costs no allocation. Positions survive removals: one whose element was removed steps to the next
/// higher index.
template <class Key>
class ChangeMap {
  using Map = std::map<std::uint64_t, Key>;

 public:
  class Position {
   public:
    std::uint64_t index() const {
      Cairn::require(index_ != kEnd, "no change at the end", "ChangeMap");
      return index_;
    }
    /// The key whose change this is; an assertion failure when the change is not recorded any more.
    const Key& key() const {
      const auto at = removals_ == changes_->removals_ ? at_ : changes_->map_.find(index());
      Cairn::require(at != changes_->map_.end(), "change is not recorded any more", "ChangeMap");
      return at->second;
    }
    Position& operator++() {
      const std::uint64_t from = index();
      if (removals_ == changes_->removals_) {
        standAt(std::next(at_));
      } else {
        *this = changes_->above(from);
      }
      return *this;
    }
    /// Positions at the end are equal, also those of different maps.
    friend bool operator==(const Position& a, const Position& b) noexcept {
      return a.index_ == b.index_ && (a.changes_ == b.changes_ || a.index_ == kEnd);
    }

   private:
    friend class ChangeMap;
    static constexpr std::uint64_t kEnd = std::numeric_limits<std::uint64_t>::max();
    Position(const ChangeMap& changes, typename Map::const_iterator at)
        : changes_(&changes), removals_(changes.removals_) {
      standAt(at);
    }
    void standAt(typename Map::const_iterator at) {
      at_ = at;
      index_ = at == changes_->map_.end() ? kEnd : at->first;
    }

    const ChangeMap* changes_;  // not owned
    typename Map::const_iterator at_;
    std::uint64_t index_;
    std::uint64_t removals_;  // while this is the map's own number, at_ is valid
  };

  /// Records `index`, above all before it, for `key`; `previous` is the index it has had, 0 for none.
  void record(std::uint64_t index, const Key& key, std::uint64_t previous) {
    if (auto node = previous == 0 ? typename Map::node_type() : map_.extract(previous)) {
      node.key() = index;
      map_.insert(map_.end(), std::move(node));
      ++removals_;
    } else {
      map_.emplace_hint(map_.end(), index, key);
    }
  }
  /// Removes all changes up to and including `index`, after handing the key of each to `forgotten`.
  template <class Forgotten>
  void trim(std::uint64_t index, const Forgotten& forgotten) {
    while (!map_.empty() && map_.begin()->first <= index) {
      forgotten(map_.begin()->second);
      map_.erase(map_.begin());
      ++removals_;
    }
  }

  /// The first change above `index`, or the end.
  Position above(std::uint64_t index) const { return Position(*this, map_.upper_bound(index)); }
  Position end() const { return Position(*this, map_.end()); }

 private:
  Map map_;
  std::uint64_t removals_ = 0;
};

}  // namespace TolmarHwLib
