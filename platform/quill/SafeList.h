#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace Quill {

/// Pointers in order of addition. Elements may be added and removed while the list is visited, also by nested
/// visits: an element added during a visit is not part of it, a removed one is not visited any more. Visits
/// and removals allocate nothing. `Pointer` is a plain pointer (not owned) or a shared pointer.
template <class Pointer>
class SafeList {
 public:
  bool empty() const noexcept { return live_ == 0; }
  std::size_t size() const noexcept { return live_; }
  /// Adds an element that is not in the list yet. The list is unchanged if there is no memory.
  void add(Pointer element) {
    elements_.push_back(std::move(element));
    ++live_;
  }
  /// Removes the first element for which `matches` is true; nothing happens if there is none.
  template <class Matches>
  void removeIf(const Matches& matches) noexcept {
    const auto found = std::ranges::find_if(
        elements_, [&](const Pointer& element) { return element != nullptr && matches(element); });
    if (found == elements_.end()) return;
    --live_;
    if (visits_ == 0) {
      elements_.erase(found);
    } else {
      *found = nullptr;  // positions stay until the outermost visit ends
    }
  }
  /// Removes an element; nothing happens if it is not in the list.
  void remove(const Pointer& element) noexcept {
    removeIf([&](const Pointer& one) { return one == element; });
  }
  /// The first element, or null.
  Pointer front() const noexcept {
    const auto found = std::ranges::find_if(elements_, [](const Pointer& one) { return one != nullptr; });
    return found == elements_.end() ? Pointer() : *found;
  }

  class Visit {
   public:
    explicit Visit(SafeList& list) noexcept : list_(list), end_(list.elements_.size()) { ++list_.visits_; }
    ~Visit() {
      if (--list_.visits_ == 0 && list_.live_ != list_.elements_.size()) std::erase(list_.elements_, nullptr);
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
    /// The next element still in the list, or null at the end.
    Pointer next() noexcept {
      while (at_ < end_) {
        if (Pointer element = list_.elements_[at_++]) return element;
      }
      return Pointer();
    }

   private:
    SafeList& list_;
    std::size_t at_ = 0;
    std::size_t end_;
  };

 private:
  std::vector<Pointer> elements_;  // null where one was removed during a visit
  std::size_t live_ = 0;
  std::size_t visits_ = 0;
};

/// The reactors registered with one object; not owned.
using NotifieeList = SafeList<class NotifieeConst*>;

}  // namespace Quill
