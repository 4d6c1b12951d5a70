// The program's own operator new, which counts and can be told to fail.
#pragma once

#include <cstddef>

namespace FailingAllocation {

extern std::size_t allocations;  ///< made so far
extern std::size_t failAt;       ///< the one that fails, counted from 1; 0 for none

}  // namespace FailingAllocation
