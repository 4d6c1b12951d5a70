#include "Support.h"

#include <algorithm>
#include <random>

namespace VestaTest {
namespace {

TEST_F(TableTest, Rows_RandomWritesAndRemovals_AgreeWithModel) {
  const auto table = writer(100);
  const auto other = reader(100);
  std::map<std::uint64_t, std::uint64_t> model;
  std::mt19937_64 random(7);
  for (std::uint64_t stamp = 1; stamp <= 50000; ++stamp) {
    const std::uint64_t id = random() % 130 << 32;  // alike in their low halves
    if (random() % 3 == 0) {
      EXPECT_EQ(table->remove(TestKey{id}, nullptr), model.erase(id) == 1);
    } else if (model.size() < 100 || model.contains(id)) {
      put(*table, id, stamp);
      model[id] = stamp;
    } else {
      EXPECT_THROW(put(*table, id, stamp), Cairn::ResourceExhaustedException);
    }
    const std::uint64_t asked = random() % 130 << 32;
    const auto expected = model.find(asked);
    ASSERT_EQ(stampOf(*other, asked), expected == model.end() ? 0 : expected->second);
    ASSERT_EQ(other->members(), model.size());
  }
  EXPECT_EQ(contents(*other), model);
  EXPECT_EQ(contents(*table), model);
  EXPECT_TRUE(other->validate());
}

TEST_F(TableTest, Rows_Full_RefusesNewKeysWithNumbersAndStoresNothing) {
  const auto table = writer(3);
  for (std::uint64_t id = 1; id <= 3; ++id) put(*table, id, 1);
  const std::uint64_t before = table->sequence();
  try {
    put(*table, 4, 1);
    FAIL();
  } catch (const Cairn::ResourceExhaustedException& full) {
    EXPECT_STREQ(full.what(), "table is full: used 3 of 3");
  }
  EXPECT_EQ(table->sequence(), before);
  EXPECT_EQ(stampOf(*table, 4), 0u);
  put(*table, 2, 9);  // replacing needs no room
  EXPECT_EQ(contents(*table), (std::map<std::uint64_t, std::uint64_t>{{1, 1}, {2, 9}, {3, 1}}));
  table->remove(TestKey{1}, nullptr);
  put(*table, 4, 1);
  EXPECT_EQ(stampOf(*table, 4), 1u);
}

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
  table->detach();
  EXPECT_THROW(put(*table, 1, 1), Cairn::NoPermissionException);
  EXPECT_EQ(stampOf(*table, 1), 0u);
}

TEST_F(TableTest, Walk_GoesOnWhenItsRowIsRemovedUnderIt) {
  const auto table = writer();
  for (std::uint64_t id = 0; id < 10; ++id) put(*table, id, 1);
  Row row;
  Vesta::IterHint hint;
  std::size_t met = 0;
  for (bool more = table->first(row, hint); more; more = table->next(row.key, row, hint)) {
    ++met;
    table->remove(row.key, nullptr);
  }
  EXPECT_EQ(met, 10u);
  EXPECT_FALSE(table->first(row, hint));
  put(*table, 5, 1);
  put(*table, 6, 1);
  table->first(row, hint);
  Vesta::IterHint fresh;
  EXPECT_TRUE(table->next(row.key, row, fresh));
  EXPECT_FALSE(table->next(row.key, row, fresh));
}

// Sequences and generations start just below their wrap, so that everything that compares them passes it.
TEST_F(TableTest, Counters_AcrossTheirWraps) {
  Vesta::AttachOptions start = options(8);
  start.firstSequence = (std::uint64_t{1} << 62) - 20;
  Writer table(start);
  const auto follower = reader(8);
  std::vector<std::uint64_t> expected;
  std::vector<std::uint64_t> got;
  for (std::uint64_t i = 1; i <= 100; ++i) {
    put(table, i % 8, i);
    expected.push_back(i % 8);
    ASSERT_EQ(stampOf(*follower, i % 8), i);
    if (i % 3 == 0) {
      for (const std::uint64_t id : told(*follower)) got.push_back(id);
      ASSERT_EQ(got, expected);
      ASSERT_TRUE(table.quiesced(table.sequence()));
    } else {
      ASSERT_FALSE(table.quiesced(table.sequence()));
    }
  }
  EXPECT_EQ(table.sequence(), 80u);
  for (std::uint64_t i = 0; i < 50; ++i) put(table, i % 8, 200 + i);  // past the log's end
  EXPECT_EQ(told(*follower).size(), 8u);
}

// At a full load every insertion finds a chain; the index is rebuilt now and then and never clogs.
TEST_F(TableTest, Churn_AtFullLoadStaysFast) {
  constexpr std::uint32_t kCapacity = 1024;
  const auto table = writer(kCapacity);
  std::uint64_t next = 0;
  for (; next < kCapacity; ++next) put(*table, next, 1);
  const auto turn = [&](std::uint64_t count) {
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < count; ++i, ++next) {
      table->remove(TestKey{next - kCapacity}, nullptr);
      put(*table, next, 1);
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  };
  const std::uint64_t rounds = scaled(100000);
  turn(rounds);
  double first = turn(rounds);
  for (int i = 0; i < 5; ++i) first = std::min(first, turn(rounds));
  double last = turn(rounds);
  for (int i = 0; i < 5; ++i) last = std::min(last, turn(rounds));
  EXPECT_LT(last, 2 * first);
  EXPECT_EQ(table->members(), kCapacity);
  EXPECT_TRUE(table->validate());
}

}  // namespace
}  // namespace VestaTest
