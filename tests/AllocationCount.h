// The program's own operator new and allocator of row buffers, which count calls and fail on request.
#pragma once

#include <cstddef>

/// How often this program has allocated with one of the two.
std::size_t allocationCount();
/// Lets the n-th allocation from now, counted from 1, fail; 0 for none.
void allocationFailureIs(std::size_t n);
