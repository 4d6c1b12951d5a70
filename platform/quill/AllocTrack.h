#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <typeinfo>

namespace Quill {

/// Live objects of one class. Every class of the framework has one static record, `quillAllocTrackTypeInfo_`.
/// The counter behind it is made at the first allocation, shared by the records of one type name and never
/// freed, so that records need no destructor and may belong to a library that is unloaded.
class AllocTrackTypeInfo {
 public:
  constexpr AllocTrackTypeInfo() = default;
  AllocTrackTypeInfo(const AllocTrackTypeInfo&) = delete;
  AllocTrackTypeInfo& operator=(const AllocTrackTypeInfo&) = delete;

  static void trackAllocation(AllocTrackTypeInfo& record, const std::type_info& type, std::size_t size);
  static void trackDeallocation(AllocTrackTypeInfo& record) noexcept;

  /// Live objects of all classes; tests check at their end that it has its earlier value.
  static std::int64_t liveTotal();

  std::int64_t live() const noexcept;

 private:
  struct Counter;

  std::atomic<Counter*> counter_{nullptr};  // null until the first allocation
};

}  // namespace Quill
