#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <typeinfo>
#include <vector>

namespace Quill {

/// Live objects of one class. Every class of the framework has one static record, `quillAllocTrackTypeInfo_`,
/// which outlives its objects and is listed from the first allocation until the record's own end.
class AllocTrackTypeInfo {
 public:
  constexpr AllocTrackTypeInfo() = default;
  AllocTrackTypeInfo(const AllocTrackTypeInfo&) = delete;
  AllocTrackTypeInfo& operator=(const AllocTrackTypeInfo&) = delete;
  ~AllocTrackTypeInfo();

  static void trackAllocation(AllocTrackTypeInfo& record, const std::type_info& type, std::size_t size);
  static void trackDeallocation(AllocTrackTypeInfo& record) noexcept;

  std::int64_t live() const noexcept { return live_.load(std::memory_order_relaxed); }
  std::int64_t allocated() const noexcept { return allocated_.load(std::memory_order_relaxed); }

  struct Count {
    std::string type;
    std::size_t size;
    std::int64_t live;
  };
  /// One line for each class that has ever allocated, in order of first allocation.
  static std::vector<Count> counts();
  /// Live objects over all classes; tests end by checking that it is back where it was.
  static std::int64_t liveTotal();

 private:
  std::atomic<std::int64_t> live_{0};
  std::atomic<std::int64_t> allocated_{0};
  std::atomic<bool> listed_{false};
};

}  // namespace Quill
