// What a write costs in memory. Every allocation of this program is counted while a test asks for it.
#include <cstdlib>
#include <new>

#include "tests/rows/FailingAllocator.h"
#include "tests/wrappers/RowTable.h"

namespace {

std::size_t allocations = 0;
std::size_t refused = ~std::size_t{0};  // the number of the one allocation that fails

void* counted(std::size_t size) {
  if (allocations++ == refused) throw std::bad_alloc();
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

// Holds the records it is given, so that the next change needs a fresh scratch row too.
template <class Sample>
struct Holder : Lumen::LmTableObserver {
  using Rows = RowTable<Sample>;
  void onReset() override { entries.clear(); }
  void onChange(const Lumen::BasicLmTableChange& change) override {
    held.push_back(change.row);
    entries.push_back(Rows::entryOf(change.row));
  }
  void onException(const std::exception&) override {}
  std::vector<typename Sample::Kind::Entry> entries;
  std::vector<Lumen::BaseRow> held;
};

TYPED_TEST(AllocationsOf, Failure_OfAnyOneLosesNoChange) {
  auto& rows = this->rowTable;
  const auto observer = std::make_shared<Holder<TypeParam>>();
  rows.table->observerIs(observer);
  testing::internal::CaptureStderr();  // what the reactor says of each failure
  std::uint32_t n = 0;
  const auto writeAndLook = [&] {
    const auto entry = rows.entry(n++, 1);
    rows.config->tableIs(entry);  // as a foreign writer would: nobody learns of the failure
    const bool failed = allocations > refused;
    refused = ~std::size_t{0};
    this->rowAllocator.allow(1u << 20);
    observer->consume();
    EXPECT_THAT(observer->entries, testing::Contains(entry)) << "write " << n;
    EXPECT_EQ(observer->entries.size(), n);
    return failed;
  };
  do {
    refused = allocations + n;
  } while (writeAndLook());
  for (unsigned buffers = 0; buffers < 3; ++buffers) {
    this->rowAllocator.allow(buffers);
    writeAndLook();
  }
  testing::internal::GetCapturedStderr();
  EXPECT_GT(n, 6u);
}

}  // namespace
}  // namespace WrapperTest
