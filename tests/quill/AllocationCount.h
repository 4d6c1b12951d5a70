#pragma once

#include <cstddef>

/// How often this program has allocated with operator new.
std::size_t allocationCount();
