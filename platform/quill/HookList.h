#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>
#include <vector>

namespace Quill {

/// Callbacks in order of addition. A callback may add and remove callbacks, itself included: who is added
/// during a visit is not part of it, who is removed is not called any more. A visit allocates nothing.
template <class Function>
class HookList {
 public:
  void add(std::uint64_t id, Function function) {
    (visits_ == 0 ? hooks_ : added_).push_back({id, std::move(function)});
  }

  /// An id that is not in the list is no error.
  void remove(std::uint64_t id) noexcept {
    const auto hasId = [id](const Hook& hook) { return hook.id == id; };
    std::erase_if(added_, hasId);
    const auto found = std::find_if(hooks_.begin(), hooks_.end(), hasId);
    if (found == hooks_.end()) return;
    if (visits_ == 0) {
      hooks_.erase(found);
    } else {
      found->id = kRemoved;  // it may be running: it stays until the outermost visit ends
    }
  }

  /// Calls `call` with each callback.
  template <class Call>
  void visit(const Call& call) {
    const Visit visiting(*this);
    for (Hook& hook : hooks_) {
      if (hook.id != kRemoved) call(hook.function);
    }
  }

 private:
  static constexpr std::uint64_t kRemoved = 0;

  struct Hook {
    std::uint64_t id;
    Function function;
  };

  struct Visit {
    explicit Visit(HookList& visited) : list(visited) { ++list.visits_; }
    ~Visit() {
      if (--list.visits_ != 0) return;
      std::erase_if(list.hooks_, [](const Hook& hook) { return hook.id == kRemoved; });
      std::move(list.added_.begin(), list.added_.end(), std::back_inserter(list.hooks_));
      list.added_.clear();
    }
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
    HookList& list;
  };

  std::vector<Hook> hooks_;  // never grows during a visit, so that a running callback stays where it is
  std::vector<Hook> added_;
  std::size_t visits_ = 0;
};

}  // namespace Quill
