// What a write costs in memory. Every allocation of this program is counted while a test asks for it.
#include <cstdlib>
#include <new>

#include "tests/rows/FailingAllocator.h"
#include "tests/wrappers/RowTable.h"

namespace {

std::size_t allocations = 0;

void* counted(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return counted(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace WrapperTest {
namespace {

template <class Sample>
struct AllocationsOf : RowTableTest<Sample> {
  template <class Act>
  std::size_t allocationsIn(const Act& act) {
    const std::size_t before = allocations + rowAllocator.allocations();
    act();
    return allocations + rowAllocator.allocations() - before;
  }

  Lumen::FailingAllocator rowAllocator;  // refuses nothing; counts row buffers
};
TYPED_TEST_SUITE(AllocationsOf, AllKinds);

TYPED_TEST(AllocationsOf, Writes_TakeTwoNodesForANewKeyAndNothingAfterwards) {
  auto& rows = this->rowTable;
  for (std::uint32_t n = 0; n < 6; ++n) rows.table->rowIs(rows.row(n, 1));  // scratch rows find their size
  std::vector<typename TypeParam::Kind::EntryRow> fresh, again;
  for (std::uint32_t n = 6; n < 12; ++n) fresh.push_back(rows.row(n, 1));
  for (std::uint32_t n = 0; n < 12; ++n) again.push_back(rows.row(n, 2));
  EXPECT_EQ(this->allocationsIn([&] {
    for (const auto& row : fresh) rows.table->rowIs(row);
  }),
            2 * fresh.size());
  EXPECT_EQ(this->allocationsIn([&] {
    for (const auto& row : again) rows.table->rowIs(row);
    for (const auto& row : again) rows.table->rowDel(row);
    for (const auto& row : again) rows.table->rowIs(row);
  }),
            0u);
}

}  // namespace
}  // namespace WrapperTest
