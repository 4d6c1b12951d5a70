#pragma once

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

/// Stands for the two slots of a destructor.
struct DestructorSlots {};

/// Expects the virtual operations `members` in consecutive slots from the first on: other libraries call them
/// by slot.
template <class... Members>
void expectSlots(Members... members) {
  std::size_t slot = 0;
  const auto expectNext = [&slot](auto member) {
    if constexpr (std::is_same_v<decltype(member), DestructorSlots>) {
      slot += 2;
    } else {
      std::size_t word = 0;  // a pointer to a virtual member holds one plus the offset in the virtual table
      static_assert(sizeof member >= sizeof word);
      std::memcpy(&word, &member, sizeof word);
      EXPECT_EQ(word, 1 + slot * sizeof(void*)) << "slot " << slot;
      ++slot;
    }
  };
  (expectNext(members), ...);
}

/// The same for a class whose destructor comes first.
template <class... Members>
void expectSlotsInOrder(Members... members) {
  expectSlots(DestructorSlots(), members...);
}
