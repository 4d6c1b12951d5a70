#include "rows/LmRowBuf.h"

#include <cstring>
#include <new>
#include <type_traits>

#include "cairn/Exception.h"

namespace Lumen {

namespace {

// Clearing by hand instead of std::calloc: the C library serves small blocks from its per-thread cache for
// malloc only.
void* allocateCleared(std::size_t size) {
  void* const memory = std::malloc(size);
  if (memory != nullptr) std::memset(memory, 0, size);
  return memory;
}

constinit RowAllocator rowAllocator{&std::malloc, &allocateCleared};

}  // namespace

static_assert(std::is_trivially_destructible_v<std::atomic<std::uint32_t>>, "a buffer is freed as it stands");

RowAllocator rowAllocatorIs(RowAllocator allocator) noexcept {
  return std::exchange(rowAllocator, allocator);
}

LmRowBufPtr LmRowBuf::zeroed(len_t length) {
  return place(rowAllocator.allocateZeroed(sizeof(LmRowBuf) + length), "calloc()", length);
}

LmRowBufPtr LmRowBuf::uninitialized(len_t length) {
  return place(rowAllocator.allocate(sizeof(LmRowBuf) + length), "malloc()", length);
}

LmRowBufPtr LmRowBuf::place(void* memory, const char* call, len_t length) {
  if (memory == nullptr) throw Cairn::MemoryResourceException(call, length);
  return LmRowBufPtr(::new (memory) LmRowBuf(length));
}

}  // namespace Lumen
