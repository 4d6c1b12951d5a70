// A source of its own: inlined into their callers, these would look like mismatched pairs to the compiler.
#include "AllocationCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> allocations{0};
std::atomic<std::size_t> failing{0};

}  // namespace

std::size_t allocationCount() { return allocations; }
void allocationFailureIs(std::size_t n) { failing = n == 0 ? 0 : allocations + n; }

void* operator new(std::size_t size) {
  if (++allocations == failing) throw std::bad_alloc();
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
