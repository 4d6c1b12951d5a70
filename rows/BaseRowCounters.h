#pragma once

#include <cstdint>

namespace Lumen {

/// Rows made by this thread, one count per kind of construction.
struct BaseRowCounters {
  std::uint64_t defaulted = 0;
  std::uint64_t sized = 0;
  std::uint64_t sizedWithBuffer = 0;
  std::uint64_t copied = 0;
  std::uint64_t moved = 0;
  std::uint64_t cloned = 0;
  std::uint64_t fromBytes = 0;
  std::uint64_t subRows = 0;
};

// The library that holds it is always loaded with the program, so the fixed place in the thread's block is
// safe and saves a call per row.
[[gnu::tls_model("initial-exec")]] extern thread_local constinit BaseRowCounters baseRowCounters;

}  // namespace Lumen
