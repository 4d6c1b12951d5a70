#pragma once

#include <cstddef>
#include <vector>

namespace Quill {

class NotifieeConst;

/// The reactors registered with one object, in order of registration. A reactor may register and unregister
/// itself and others while the list is visited: who registers during a visit is not part of it, who
/// unregisters is not visited any more.
class NotifieeList {
 public:
  bool empty() const noexcept { return live_ == 0; }
  std::size_t size() const noexcept { return live_; }
  /// Adds a reactor that is not in the list yet; it is not owned. The list is as it was when there is no
  /// memory.
  void add(NotifieeConst* reactor);
  /// Removes a reactor; one that is not in the list is no error.
  void remove(const NotifieeConst* reactor) noexcept;
  /// The first reactor in the list, or null.
  NotifieeConst* front() const noexcept;

  class Visit {
   public:
    explicit Visit(NotifieeList& list) noexcept : list_(list), end_(list.reactors_.size()) {
      ++list_.visits_;
    }
    ~Visit();
    Visit(const Visit&) = delete;
    Visit& operator=(const Visit&) = delete;
    /// The next reactor still registered, or null at the end.
    NotifieeConst* next() noexcept;

   private:
    NotifieeList& list_;
    std::size_t at_ = 0;
    std::size_t end_;
  };

 private:
  std::vector<NotifieeConst*> reactors_;  // not owned; null where one left during a visit
  std::size_t live_ = 0;
  std::size_t visits_ = 0;
};

}  // namespace Quill
