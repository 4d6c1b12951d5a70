#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cairn/Assert.h"
#include "lumen/LmErrors.h"
#include "tests/lumen/MemoryTable.h"

namespace {

using Lumen::DefaultLmTableImplementation;
using LumenTest::pairRow;
using testing::ThrowsMessage;

struct Plain : DefaultLmTableImplementation {
  explicit Plain(const Lumen::LmTableOps* tableOps = nullptr)
      : DefaultLmTableImplementation("Plain", "LumenTest::Pair", 7, /*unique=*/true, /*ordered=*/false,
                                     /*bounded=*/true, /*readerSupported=*/true, tableOps, {}) {}
  using DefaultLmTableImplementation::notifyObservers;
  using DefaultLmTableImplementation::preWrite;
  using DefaultLmTableImplementation::preWriteActive;
  std::uint64_t oldestChangeIdx() const override { return 3; }
};

TEST(DefaultImplementationTest, OtherIndices_AreOutOfRange) {
  Plain table;
  const std::function<void()> calls[] = {[&] { table.isUnique(3); }, [&] { table.isOrdered(3); },
                                         [&] { table.activateIndex(3); }, [&] { table.deactivateIndex(3); }};
  for (const auto& call : calls) {
    EXPECT_THAT(call, ThrowsMessage<Lumen::LmOutOfRange>("Multiple indices not supported. idx:3"));
  }
  EXPECT_FALSE(table.indexActive(3));
}

TEST(DefaultImplementationTest, PreWriteHook_ComesFromTheTableOperationsOrIsSet) {
  EXPECT_FALSE(Plain().preWriteActive());
  int seen = 0;
  const Lumen::LmTableOps ops{
      [&](const auto& row, const auto& previous) { seen += row.isNull() + previous.isNull(); }};
  Plain table(&ops);
  ASSERT_TRUE(table.preWriteActive());
  table.preWrite(pairRow(1), {});
  EXPECT_EQ(seen, 1);
  table.preWriteHookIs({});
  EXPECT_FALSE(table.preWriteActive());
}

// Stands in for a table that reports how far its observers are.
struct Bound : Lumen::LmTableInterface {
  std::optional<std::uint64_t> notifyObservers(std::uint64_t, std::uint64_t, bool,
                                               const Lumen::BaseRow&) override {
    return consumed;
  }
  void implementationIs(const std::shared_ptr<Lumen::LmTableImplementation>& implementation) override {
    served = implementation;
  }
  std::optional<std::uint64_t> consumed;
  std::shared_ptr<Lumen::LmTableImplementation> served;
};

TEST(DefaultImplementationTest, Interface_TellsWhatIsNoLongerNeeded) {
  Plain table;
  Bound bound, other;
  table.addInterface(bound);
  bound.consumed = 4;
  EXPECT_EQ(table.notifyObservers(8, 10, false, pairRow(1)), 4u);
  bound.consumed.reset();
  EXPECT_EQ(table.notifyObservers(10, 12, false, pairRow(1)), 3u) << "all changes are kept";
  EXPECT_THROW(table.addInterface(other), Cairn::AssertionException);
  table.removeInterface(other);
  EXPECT_EQ(table.boundInterfacesCount(), 1u);
}

TEST(DefaultImplementationTest, Replacement_TakesTheInterfaceAlong) {
  Lumen::LumenDB db;
  const auto from = std::make_shared<Plain>();
  const auto to = std::make_shared<Plain>();
  Bound bound;
  from->addInterface(bound);
  from->replaceImplementation(to, db);
  EXPECT_EQ(from->boundInterfacesCount(), 0u);
  EXPECT_EQ(to->boundInterfacesCount(), 1u);
  EXPECT_EQ(bound.served, to);
}

}  // namespace
