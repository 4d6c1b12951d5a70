#include "rows/LmRowBuf.h"

#include <type_traits>

#include "cairn/Exception.h"

namespace Lumen {

static_assert(std::is_trivially_destructible_v<std::atomic<std::uint32_t>>,
              "buffers are freed without a destructor call");

constinit RowAllocator detail::rowAllocator = &std::malloc;

RowAllocator rowAllocatorIs(RowAllocator allocator) noexcept {
  return std::exchange(detail::rowAllocator, allocator);
}

void detail::throwRefused(const char* call, len_t length) {
  throw Cairn::MemoryResourceException(call, length);
}

}  // namespace Lumen
