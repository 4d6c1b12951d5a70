// A source of its own: inlined into their callers, these would look like mismatched pairs to the compiler.
#include "FailingAllocation.h"

#include <cstdlib>
#include <new>

namespace FailingAllocation {

std::size_t allocations = 0;
std::size_t failAt = 0;

}  // namespace FailingAllocation

void* operator new(std::size_t size) {
  if (++FailingAllocation::allocations == FailingAllocation::failAt) throw std::bad_alloc();
  if (void* const memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
