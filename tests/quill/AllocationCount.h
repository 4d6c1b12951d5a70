// The program's own operator new, which counts and can be told to fail.
#pragma once

#include <cstddef>

/// How often this program has allocated with operator new.
std::size_t allocationCount();
/// Lets the n-th allocation from now, counted from 1, fail with std::bad_alloc; 0 for none.
void allocationFailureIs(std::size_t n);
