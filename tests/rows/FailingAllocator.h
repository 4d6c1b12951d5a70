#pragma once

#include <cstdlib>

#include "rows/LmRowBuf.h"

namespace Lumen {

/// Row buffers' allocator for the scope of a test: counts allocations, and refuses all from the one that was
/// asked for on.
class FailingAllocator {
 public:
  FailingAllocator() { allocations_ = 0; }
  ~FailingAllocator() {
    rowAllocatorIs(before_);
    allowed_ = ~0u;
  }
  FailingAllocator(const FailingAllocator&) = delete;
  FailingAllocator& operator=(const FailingAllocator&) = delete;

  /// Lets `count` more allocations succeed.
  void allow(unsigned count) { allowed_ = allocations_ + count; }
  unsigned allocations() const { return allocations_; }

 private:
  static void* allocate(std::size_t size) { return allocations_++ < allowed_ ? std::malloc(size) : nullptr; }

  static inline unsigned allocations_ = 0;
  static inline unsigned allowed_ = ~0u;
  RowAllocator before_ = rowAllocatorIs(&allocate);
};

}  // namespace Lumen
