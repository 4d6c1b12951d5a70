// Order of virtual slots and of a handle's fields: what code compiled against these classes relies on.
#include <gtest/gtest.h>

#include <cstring>

#include "lumen/RowOps.h"
#include "rows/BaseRow.h"

namespace Lumen {
namespace {

/// Number of a virtual function in its table, as pointers to members tell it.
template <class Function>
std::size_t slotOf(Function function) {
  std::ptrdiff_t word;
  std::memcpy(&word, &function, sizeof word);
  return static_cast<std::size_t>(word - 1) / sizeof(void*);
}

TEST(ObjectLayout, BaseRow_HasItsSlotsInOrder) {
  // The destructor takes slots 1 and 2.
  const std::size_t slots[] = {slotOf(&BaseRow::shareContents),  slotOf(&BaseRow::vcd),
                               slotOf(&BaseRow::toString),       slotOf(&BaseRow::toJson),
                               slotOf(&BaseRow::rowEqual),       slotOf(&BaseRow::rowLess),
                               slotOf(&BaseRow::rowHash),        slotOf(&BaseRow::baseRowLength),
                               slotOf(&BaseRow::isFullyDefined), slotOf(&BaseRow::clearRow)};
  const std::size_t expected[] = {0, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  EXPECT_TRUE(std::equal(std::begin(slots), std::end(slots), std::begin(expected)));
}

TEST(ObjectLayout, RowOperations_HaveTheirSlotsInOrder) {
  using Append = void (RowOpsGenerator::*)(std::vector<std::shared_ptr<RowOpsBase>>&);
  using One = std::shared_ptr<RowOpsBase> (RowOpsGenerator::*)(unsigned char);
  // The destructor takes slots 0 and 1; the generator has none.
  const std::size_t slots[] = {
      slotOf(&RowOpsBase::keyHash),   slotOf(&RowOpsBase::rowHash),
      slotOf(&RowOpsBase::keyEquals), slotOf(&RowOpsBase::rowEquals),
      slotOf(&RowOpsBase::keyLess),   slotOf(&RowOpsBase::rowLess),
      slotOf(&RowOpsBase::unique),    slotOf(&RowOpsBase::ordered),
      slotOf(&RowOpsBase::index),     slotOf(&RowOpsBase::getTotalInstructionsExecuted)};
  const std::size_t expected[] = {2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  EXPECT_TRUE(std::equal(std::begin(slots), std::end(slots), std::begin(expected)));
  EXPECT_EQ(slotOf(static_cast<Append>(&RowOpsGenerator::operator())), 0u);
  EXPECT_EQ(slotOf(static_cast<One>(&RowOpsGenerator::operator())), 1u);
}

TEST(ObjectLayout, Handle_HoldsBufferOffsetAndFlagsInOrder) {
  BaseRow parent(40);
  parent.setColumn<len_t>(16, 24, 40);
  parent.readOnlyIs(true);
  const SubRow row(parent, {16, 24});
  const auto* const object = reinterpret_cast<const std::byte*>(&row);
  EXPECT_EQ(sizeof row, 24u);
  EXPECT_EQ(loadBytes<const std::byte*>(object + 8), parent.bytes().data - sizeof(LmRowBuf));
  EXPECT_EQ(loadBytes<len_t>(object + 16), 16);
  parent.readOnlyIs(false);
  const SubRow writable(parent, {16, 24});
  const auto* const other = reinterpret_cast<const std::byte*>(&writable);
  EXPECT_EQ(object[18], std::byte{1});
  EXPECT_EQ(object[19], std::byte{1});
  EXPECT_EQ(other[18], std::byte{1});
  EXPECT_EQ(other[19], std::byte{0});
}

}  // namespace
}  // namespace Lumen
