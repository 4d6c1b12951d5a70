#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

/// Expects the virtual operations `members` in consecutive slots after the destructor's two: other libraries
/// call them by slot.
template <class... Members>
void expectSlotsInOrder(Members... members) {
  std::size_t slot = 2;
  const auto expectNext = [&slot](auto member) {
    std::size_t word = 0;  // a pointer to a virtual member holds one plus the offset in the virtual table
    static_assert(sizeof member >= sizeof word);
    std::memcpy(&word, &member, sizeof word);
    EXPECT_EQ(word, 1 + slot * sizeof(void*)) << "slot " << slot;
    ++slot;
  };
  (expectNext(members), ...);
}
