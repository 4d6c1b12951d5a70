#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace Counters {

/// One word of a counter file. One thread changes it, with a plain load and store; any number of processes
/// read it.
class Counter {
 public:
  // Relaxed: a counter orders nothing, and words that are read together need not be of one instant.
  std::uint64_t value() const noexcept { return word_.load(std::memory_order_relaxed); }
  void set(std::uint64_t value) noexcept { word_.store(value, std::memory_order_relaxed); }
  void add(std::uint64_t count = 1) noexcept { set(value() + count); }
  void raise(std::uint64_t value) noexcept {
    if (value > this->value()) set(value);
  }

 private:
  std::atomic<std::uint64_t> word_{0};
};
static_assert(sizeof(Counter) == 8 && std::atomic<std::uint64_t>::is_always_lock_free);

/// Adds to a counter by what a count that is kept elsewhere has grown. That count begins again at 0 when its
/// owner does.
class CopiedCount {
 public:
  void to(Counter& counter, std::uint64_t count) noexcept {
    counter.add(count >= last_ ? count - last_ : count);
    last_ = count;
  }

 private:
  std::uint64_t last_ = 0;
};

}  // namespace Counters
