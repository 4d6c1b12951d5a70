#include "quill/AllocTrack.h"

#include <algorithm>
#include <deque>
#include <mutex>
#include <string>

#include "quill/TypeNode.h"

namespace Quill {

struct AllocTrackTypeInfo::Counter {
  explicit Counter(std::string typeName) : type(std::move(typeName)) {}
  std::string type;  // a copy: the type may belong to a library that is unloaded
  std::atomic<std::int64_t> live{0};

  struct List {
    std::mutex mutex;
    std::deque<Counter> counters;  // elements keep their place
  };
  /// Never destroyed: static objects of other libraries may end after this one's.
  static List& list() {
    static auto* const all = new List;
    return *all;
  }
  static Counter& of(const std::type_info& type);
};

AllocTrackTypeInfo::Counter& AllocTrackTypeInfo::Counter::of(const std::type_info& type) {
  const std::string name = typeName(type);
  const std::lock_guard lock(list().mutex);
  auto& counters = list().counters;
  const auto found = std::find_if(counters.begin(), counters.end(),
                                  [&name](const Counter& counter) { return counter.type == name; });
  return found != counters.end() ? *found : counters.emplace_back(name);
}

void AllocTrackTypeInfo::trackAllocation(AllocTrackTypeInfo& record, const std::type_info& type,
                                         std::size_t) {
  Counter* counter = record.counter_.load(std::memory_order_acquire);
  if (counter == nullptr) {
    counter = &Counter::of(type);
    record.counter_.store(counter, std::memory_order_release);
  }
  counter->live.fetch_add(1, std::memory_order_relaxed);
}

void AllocTrackTypeInfo::trackDeallocation(AllocTrackTypeInfo& record) noexcept {
  record.counter_.load(std::memory_order_acquire)->live.fetch_sub(1, std::memory_order_relaxed);
}

std::int64_t AllocTrackTypeInfo::liveTotal() {
  const std::lock_guard lock(Counter::list().mutex);
  std::int64_t total = 0;
  for (const Counter& counter : Counter::list().counters)
    total += counter.live.load(std::memory_order_relaxed);
  return total;
}

std::int64_t AllocTrackTypeInfo::live() const noexcept {
  const Counter* const counter = counter_.load(std::memory_order_acquire);
  return counter == nullptr ? 0 : counter->live.load(std::memory_order_relaxed);
}

}  // namespace Quill
