// A source of its own: inlined into their callers, these would look like mismatched pairs to the compiler.
#include "tests/AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

#include "rows/LmRowBuf.h"

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> failing{0};

/// Null when this is the one to fail.
void* allocate(std::size_t size) { return ++allocations == failing ? nullptr : std::malloc(size); }

[[maybe_unused]] const auto rowAllocator = Lumen::rowAllocatorIs(&allocate);

}  // namespace

std::size_t allocationCount() { return allocations; }
void allocationFailureIs(std::size_t n) { failing = n == 0 ? 0 : allocations + n; }

void* operator new(std::size_t size) {
  if (void* const memory = allocate(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size == 0 ? 1 : size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
