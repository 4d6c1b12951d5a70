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

TEST(DefaultImplementationTest, Interfaces_TheSlowestDecides) {
  Plain table;
  Bound slow, unobserved, quick;
  slow.consumed = 4;
  quick.consumed = 8;
  for (Bound* const one : {&quick, &slow, &unobserved}) table.addInterface(*one);
  EXPECT_EQ(table.notifyObservers(8, 10, false, pairRow(1)), 4u);
  table.removeInterface(slow);
  EXPECT_EQ(table.notifyObservers(10, 12, false, pairRow(1)), 8u);
  table.removeInterface(quick);
  EXPECT_EQ(table.notifyObservers(12, 14, false, pairRow(1)), 3u) << "all changes are kept";
  EXPECT_THROW(table.addInterface(unobserved), Cairn::AssertionException);
}

TEST(DefaultImplementationTest, Replacement_TakesEveryInterfaceAlong) {
  Lumen::LumenDB db;
  const auto from = std::make_shared<Plain>();
  const auto to = std::make_shared<Plain>();
  Bound one, two;
  from->addInterface(one);
  from->addInterface(two);
  from->replaceImplementation(to, db);
  EXPECT_EQ(from->boundInterfacesCount(), 0u);
  EXPECT_EQ(to->boundInterfacesCount(), 2u);
  EXPECT_EQ(one.served, to);
  EXPECT_EQ(two.served, to);
}

}  // namespace
