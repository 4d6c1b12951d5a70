// The order of the forty virtual operations is part of the table's contract: other libraries call them by
// slot.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

// A pointer to a virtual member holds one plus the offset in the virtual table; the destructor has two slots.
template <class Member>
std::size_t slotOf(Member member) {
  std::ptrdiff_t word = 0;
  static_assert(sizeof member >= sizeof word);
  std::memcpy(&word, &member, sizeof word);
  return static_cast<std::size_t>(word - 1) / sizeof(void*) - 1;
}

template <class Table>
struct SlotsOf : testing::Test {};
using Wrappers = testing::Types<L3Tunnel::Wrapper, MyStation::Wrapper, L3Iif::Wrapper>;
TYPED_TEST_SUITE(SlotsOf, Wrappers);

TYPED_TEST(SlotsOf, AllForty) {
  using T = TypeParam;
  using Lumen::BaseRow;
  const std::pair<const char*, std::size_t> order[] = {
      {"tableTypeName", slotOf(&T::tableTypeName)},
      {"rowTypeName", slotOf(&T::rowTypeName)},
      {"rowTypeId", slotOf(&T::rowTypeId)},
      {"isOrdered", slotOf(&T::isOrdered)},
      {"isUnique", slotOf(&T::isUnique)},
      {"ready", slotOf(&T::ready)},
      {"size", slotOf(&T::size)},
      {"materialized", slotOf(&T::materialized)},
      {"bounded", slotOf(&T::bounded)},
      {"readerSupported", slotOf(&T::readerSupported)},
      {"modifierSupported", slotOf(&T::modifierSupported)},
      {"observerSupported", slotOf(&T::observerSupported)},
      {"activateIndex", slotOf(&T::activateIndex)},
      {"deactivateIndex", slotOf(&T::deactivateIndex)},
      {"indexActive", slotOf(&T::indexActive)},
      {"indexes", slotOf(&T::indexes)},
      {"row", slotOf(&T::row)},
      {"begin", slotOf(&T::begin)},
      {"find", slotOf(&T::find)},
      {"lower_bound", slotOf(&T::lower_bound)},
      {"upper_bound", slotOf(&T::upper_bound)},
      {"end", slotOf(&T::end)},
      {"rangeBegin", slotOf(&T::rangeBegin)},
      {"rangeRows", slotOf(&T::rangeRows)},
      {"rowIs", slotOf(&T::rowIs)},
      {"rowDel(row)", slotOf(static_cast<void (T::*)(const BaseRow&)>(&T::rowDel))},
      {"rowDel(iterator)", slotOf(static_cast<void (T::*)(const Lumen::LmRowIteratorImpl&)>(&T::rowDel))},
      {"rowDelAll", slotOf(&T::rowDelAll)},
      {"oldestChangeIdx", slotOf(&T::oldestChangeIdx)},
      {"latestChangeIdx", slotOf(&T::latestChangeIdx)},
      {"nextChange", slotOf(&T::nextChange)},
      {"endChange", slotOf(&T::endChange)},
      {"reportProgress", slotOf(&T::reportProgress)},
      {"addInterface", slotOf(&T::addInterface)},
      {"removeInterface", slotOf(&T::removeInterface)},
      {"boundInterfacesCount", slotOf(&T::boundInterfacesCount)},
      {"replaceImplementation", slotOf(&T::replaceImplementation)},
      {"cleanup", slotOf(&T::cleanup)},
      {"cleanChangeMap", slotOf(&T::cleanChangeMap)},
      {"quillTableModified", slotOf(&T::quillTableModified)},
  };
  ASSERT_EQ(std::size(order), 40u);
  for (std::size_t i = 0; i < std::size(order); ++i) EXPECT_EQ(order[i].second, i + 1) << order[i].first;
}

TEST(IteratorSlots, InOrder) {
  using RowIterator = L3IifTH3ConfigLumenWrappers::TableLumenWrapperIterator;
  using ChangeIterator = L3IifTH3ConfigLumenWrappers::TableLumenWrapperChangeIterator;
  const std::size_t rowSlots[] = {slotOf(&RowIterator::operator==),    slotOf(&RowIterator::operator!=),
                                  slotOf(&RowIterator::operator bool), slotOf(&RowIterator::operator*),
                                  slotOf(&RowIterator::operator++),    slotOf(&RowIterator::clone)};
  EXPECT_THAT(rowSlots, testing::ElementsAre(1, 2, 3, 4, 5, 6));
  const std::size_t changeSlots[] = {slotOf(&ChangeIterator::operator==), slotOf(&ChangeIterator::operator!=),
                                     slotOf(&ChangeIterator::operator*), slotOf(&ChangeIterator::operator++),
                                     slotOf(&ChangeIterator::clone)};
  EXPECT_THAT(changeSlots, testing::ElementsAre(1, 2, 3, 4, 5));
}

}  // namespace
}  // namespace WrapperTest
