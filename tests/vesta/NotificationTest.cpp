#include "Support.h"

#include <random>
#include <set>

namespace VestaTest {
namespace {

using Ids = std::vector<std::uint64_t>;

TEST_F(TableTest, Notify_EveryWriteAndRemovalOnceInOrder) {
  const auto table = writer();
  const auto follower = reader();
  put(*table, 1, 1);
  put(*table, 2, 1);
  put(*table, 1, 2);
  put(*table, 1, 2);
  table->remove(TestKey{2}, nullptr);
  table->remove(TestKey{2}, nullptr);  // nothing to remove, nothing told
  EXPECT_EQ(told(*follower), (Ids{1, 2, 1, 1, 2}));
  EXPECT_EQ(told(*follower), Ids{});
  EXPECT_TRUE(table->quiesced(table->sequence()));
}

TEST_F(TableTest, Notify_PollHonoursLimitAndPublishesProgressAfterHandlers) {
  const auto table = writer();
  const auto follower = reader();
  for (std::uint64_t id = 1; id <= 5; ++id) put(*table, id, 1);
  std::uint64_t calls = 0;
  follower->onChangeIs([&](const TestKey&) {
    EXPECT_EQ(table->readers().at(0).handled, 1 + calls) << "not before the handler has returned";
    ++calls;
  });
  EXPECT_EQ(follower->poll(2), 2u);
  EXPECT_FALSE(table->quiesced(table->sequence()));
  EXPECT_FALSE(follower->maySleep());
  EXPECT_EQ(follower->poll(100), 3u);
  EXPECT_TRUE(table->quiesced(table->sequence()));
}

TEST_F(TableTest, Notify_HandlerThatThrowsOrDetachesLosesNothingElse) {
  const auto table = writer();
  const auto follower = reader();
  for (std::uint64_t id = 1; id <= 3; ++id) put(*table, id, 1);
  follower->onChangeIs([](const TestKey& key) {
    if (key.id == 1) throw std::runtime_error("handler");
  });
  EXPECT_THROW(follower->poll(10), std::runtime_error);
  EXPECT_EQ(told(*follower), (Ids{2, 3}));
  put(*table, 7, 1);
  put(*table, 8, 1);
  follower->onChangeIs([&](const TestKey&) { follower->detach(); });
  EXPECT_EQ(follower->poll(10), 1u);
  EXPECT_EQ(follower->poll(10), 0u);
  EXPECT_TRUE(table->readers().empty());
}

TEST_F(TableTest, Notify_LateReaderIsToldOfRowsThatAreThereUnlessItSkips) {
  const auto table = writer();
  for (std::uint64_t id = 1; id <= 4; ++id) put(*table, id, 1);
  table->remove(TestKey{2}, nullptr);
  EXPECT_EQ(told(*reader()), (Ids{1, 3, 4}));
  Vesta::AttachOptions skip = options();
  skip.initialRows = Vesta::InitialRows::skip;
  Reader skipping(skip);
  EXPECT_EQ(told(skipping), Ids{});
  put(*table, 3, 2);
  EXPECT_EQ(told(skipping), Ids{3});
}

// The log of a table of 8 rows holds 16 records.
TEST_F(TableTest, Notify_OvertakenReaderIsToldOfWhatChangedAndOfNothingElse) {
  const auto table = writer(8);
  const auto follower = reader(8);
  for (std::uint64_t id = 1; id <= 6; ++id) put(*table, id, 1);
  EXPECT_EQ(told(*follower).size(), 6u);
  table->remove(TestKey{1}, nullptr);  // gone
  table->remove(TestKey{2}, nullptr);  // comes back elsewhere
  table->remove(TestKey{3}, nullptr);  // comes back in the slot of another
  put(*table, 9, 1);                   // new
  put(*table, 3, 2);
  put(*table, 2, 2);
  for (int i = 0; i < 40; ++i) put(*table, 4, 10);  // written over and over
  put(*table, 10, 1);
  table->remove(TestKey{10}, nullptr);  // came and went unseen
  const Ids ids = told(*follower);
  EXPECT_EQ(std::multiset<std::uint64_t>(ids.begin(), ids.end()),
            (std::multiset<std::uint64_t>{1, 2, 3, 4, 9}));
  EXPECT_EQ(follower->readerCounters().overtaken, 1u);
  EXPECT_EQ(told(*follower), Ids{});
  EXPECT_TRUE(table->quiesced(table->sequence()));
}

// A reader that polls within the steps of writes, now and then too late for the log, and whose handlers write
// when the writer is not at work: what they saw last of each key must be how things are.
TEST_F(TableTest, Notify_ReaderAtAnyStepOfAWriteEndsUpWithTheTable) {
  std::mt19937_64 random(7);
  std::unique_ptr<Reader> follower;
  enum { kIdle, kWriting, kHandling } now = kIdle;
  Vesta::AttachOptions stepped = options(8);
  stepped.stepHook = [&](Vesta::WriteStep) {
    if (now == kWriting && random() % 50 == 0) follower->poll(1 + random() % 8);
  };
  Writer table(stepped);
  follower = reader(8);
  std::uint64_t stamp = 0;
  const auto change = [&] {
    const std::uint64_t id = random() % 12;
    if (random() % 2 == 0) {
      table.remove(TestKey{id}, nullptr);
    } else if (table.members() < 8) {
      put(table, id, ++stamp);
    }
  };
  std::map<std::uint64_t, std::uint64_t> known;
  follower->onChangeIs([&](const TestKey& key) {
    for (std::uint64_t i = random() % 40; now == kHandling && i < 5; ++i) change();
    known.erase(key.id);
    if (const std::uint64_t seen = stampOf(*follower, key.id)) known[key.id] = seen;
    for (std::uint64_t i = random() % 40; now == kHandling && i < 30; ++i) change();
  });
  for (std::uint64_t round = 0; round < scaled(20000); ++round) {
    now = kWriting;
    for (std::uint64_t i = random() % 60; i > 0; --i) change();
    now = kHandling;
    follower->poll(20);
    now = kIdle;
    while (follower->poll(1000) != 0) {
    }
    ASSERT_EQ(known, contents(table)) << "round " << round;
  }
  EXPECT_GT(follower->readerCounters().overtaken, scaled(20000) / 20);
}

struct Pace {
  const char* name;
  std::uint64_t keys;       // few or all
  std::uint64_t pollEvery;  // changes between polls: fast, slow, stopped for longer than the log
  std::size_t limit;
};

class NotifyPace : public TableTest, public ::testing::WithParamInterface<Pace> {};

// Follows a random history. At each catch-up the reader must have been told of exactly the keys that changed
// since it last caught up: each change if it kept up, each changed key at least once and no other if
// overtaken.
TEST_P(NotifyPace, Notify_RandomHistory) {
  const auto table = writer(64);
  const auto follower = reader(64);
  std::mt19937_64 random(GetParam().pollEvery);
  std::map<std::uint64_t, std::uint64_t> seen;
  std::vector<std::uint64_t> changes;
  std::map<std::uint64_t, std::uint64_t> lastTold;
  bool overtaken = false;
  Ids got;
  follower->onChangeIs([&](const TestKey& key) {
    got.push_back(key.id);
    lastTold[key.id] = stampOf(*follower, key.id);
  });
  for (std::uint64_t i = 1; i <= scaled(60000); ++i) {
    const std::uint64_t id = random() % GetParam().keys;
    if (random() % 3 == 0 ? table->remove(TestKey{id}, nullptr) : (put(*table, id, i), true)) {
      changes.push_back(id);
    }
    if (i % GetParam().pollEvery != 0) continue;
    const std::uint64_t before = follower->readerCounters().overtaken;
    follower->poll(GetParam().limit);
    overtaken = overtaken || follower->readerCounters().overtaken != before;
    if (!table->quiesced(table->sequence())) continue;
    if (!overtaken) {
      ASSERT_EQ(got, changes);
    }
    const std::set<std::uint64_t> changed(changes.begin(), changes.end());
    for (const std::uint64_t id2 : got) ASSERT_TRUE(changed.contains(id2)) << id2;
    for (const std::uint64_t id2 : changed) {
      ASSERT_EQ(lastTold[id2], stampOf(*table, id2)) << id2;  // also 0, when it came and went
    }
    got.clear();
    changes.clear();
    overtaken = false;
  }
  EXPECT_EQ(contents(*follower), contents(*table));
}

INSTANTIATE_TEST_SUITE_P(Paces, NotifyPace,
                         ::testing::Values(Pace{"FastFewKeys", 3, 1, 10}, Pace{"FastAllKeys", 64, 1, 10},
                                           Pace{"SlowAllKeys", 64, 50, 1000}, Pace{"CatchingUp", 64, 10, 11},
                                           Pace{"StoppedFewKeys", 3, 400, 10000},
                                           Pace{"StoppedAllKeys", 64, 500, 10000}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace VestaTest
