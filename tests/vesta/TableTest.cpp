#include "Support.h"

#include <algorithm>
#include <chrono>
#include <set>

namespace VestaTest {
namespace {

TEST_F(TableTest, Rows_WriteVariants) {
  const auto table = writer();
  EXPECT_FALSE(table->write(Row{{1}, TestEntry::make(1, 1)}, true)) << "only if present";
  EXPECT_EQ(table->members(), 0u);
  table->directWrite(TestKey{1}).entry = TestEntry::make(1, 2);
  EXPECT_EQ(stampOf(*table, 1), 0u) << "before the commit";
  table->directCommit();
  EXPECT_TRUE(table->write(Row{{1}, TestEntry::make(1, 3)}, true));
  EXPECT_EQ(table->directUpdate(TestKey{1}).entry.stamp, 3u);
  Row removed;
  EXPECT_TRUE(table->remove(TestKey{1}, &removed));
  EXPECT_EQ(removed.entry.stamp, 3u);
  EXPECT_FALSE(table->remove(TestKey{1}, &removed));
  for (std::uint64_t id = 0; id < 3; ++id) put(*table, id, 1);
  Vesta::IterHint hint;
  Ids visited;
  for (bool more = table->first(removed, hint); more; more = table->next(removed.key, removed, hint)) {
    visited.push_back(removed.key.id);
    if (visited.size() < 3) put(*table, removed.key.id, 0);  // a walk continues from a removed row
  }
  EXPECT_THAT(visited, ::testing::UnorderedElementsAre(0, 1, 2));
  put(*table, 7, 1);
  ASSERT_TRUE(table->first(removed, hint));
  for (const bool more : {true, false}) {
    Vesta::IterHint fresh;
    EXPECT_EQ(table->next(removed.key, removed, fresh), more) << "from the position of the key";
  }
  table->detach();
  EXPECT_THROW(put(*table, visited.back(), 1), Cairn::NoPermissionException);
  EXPECT_EQ(stampOf(*table, visited.back()), 0u);
}

// A writer process at full speed; every lookup here must yield a row that was written whole, and keys that
// were never removed must never be absent, whatever the index does meanwhile. An unsettled read fails the
// test too.
TEST_F(TableTest, TornRows_EveryLookupIsWholeAndPresent) {
  const struct {
    std::uint64_t hotKeys;  // rewritten without pause
    std::uint64_t churned;  // keys inserted and removed between the rewrites, in turn
  } loads[] = {{1, 0}, {3, 0}, {40, 200}};
  for (const auto& load : loads) {
    SCOPED_TRACE(load.hotKeys);
    startOver();
    Child child([&] {
      const auto table = writer(256);
      for (std::uint64_t id = 0; id < load.hotKeys; ++id) put(*table, id, 1);
      raise(SIGSTOP);
      for (std::uint64_t stamp = 2;; ++stamp) {
        put(*table, stamp % load.hotKeys, stamp);
        if (load.churned == 0 || stamp % 3 != 0) continue;
        const std::uint64_t turn = stamp / 3;
        put(*table, 1000 + turn % load.churned, stamp);
        put(*table, 1000 + (turn + load.churned / 2) % load.churned, 0);
      }
      return 0;
    });
    child.pass();
    const auto table = reader(256);
    Ids newest(load.hotKeys, 1);
    const std::uint64_t lookups = scaled(10000000);
    for (std::uint64_t i = 0; i < lookups && !HasFailure(); ++i) {
      const std::uint64_t id = i % load.hotKeys;
      const std::uint64_t stamp = stampOf(*table, id);
      ASSERT_GE(stamp, newest[id]) << "absent, or time went backwards";
      newest[id] = stamp;
      if (load.churned != 0 && i % 8 == 0) stampOf(*table, 1000 + i % load.churned);
    }
    EXPECT_GT(newest[0], 2u);
    EXPECT_GT(table->readerCounters().retries, 0u) << "no lookup was disturbed: proves nothing";
    child.signal(SIGKILL);
  }
}

// At a full load every insertion finds a chain; periodic rebuilds of the index keep the chains short.
TEST_F(TableTest, Churn_OfAFullTableCostsWhatThatOfASmallOneCosts) {
  const auto cost = [this](std::uint32_t capacity) {
    startOver();
    const auto table = writer(capacity);
    std::uint64_t next = 0;
    for (; next < capacity; ++next) put(*table, next, 1);
    auto least = std::chrono::steady_clock::duration::max();
    for (std::uint64_t turn = 0; turn < scaled(20); ++turn) {
      const auto begin = std::chrono::steady_clock::now();
      for (int i = 0; i < 50000; ++i, ++next) {
        put(*table, next - capacity, 0);
        put(*table, next, 1);
      }
      least = std::min(least, std::chrono::steady_clock::now() - begin);
    }
    EXPECT_EQ(table->members(), capacity);
    EXPECT_TRUE(table->validate());
    return least;
  };
  const auto small = cost(64);
  EXPECT_LT(cost(4096), 2 * small);
}

// At each step of a rebuild every key is found, by the index alone, and no two indexes have the same word.
TEST_F(TableTest, Rebuild_HidesNoKeyAtAnyStep) {
  Vesta::AttachOptions start = options();
  std::unique_ptr<Reader> looking;
  Vesta::Segment* segment = nullptr;
  std::set<Vesta::Word> words;
  start.stepHook = [&](Vesta::WriteStep step) {
    if (segment == nullptr || step > Vesta::WriteStep::rebuildSwitched) return;
    forgetShortcuts(*segment);
    for (std::uint64_t id = 0; id < 30; ++id) ASSERT_EQ(stampOf(*looking, id), 1u) << static_cast<int>(step);
    words.insert(segment->load(Vesta::kIndexAt));
  };
  Writer table(start);
  for (std::uint64_t id = 0; id < 30; ++id) put(table, id, 1);
  looking = reader();
  segment = table.bytes().sharedSegment().get();
  for (std::uint64_t id = 100; id < 5000; ++id) {
    put(table, id, 1);
    put(table, id - 10, 0);
  }
  const std::uint64_t rebuilds = table.writerCounters().indexRebuilds;
  EXPECT_GT(rebuilds, 3u);
  EXPECT_EQ(words.size(), rebuilds + 1);
}

}  // namespace
}  // namespace VestaTest
