// The protocols between threads that share one mapping, for the thread sanitizer: with a mapping each, it
// would see no race at all.
#include <random>
#include <thread>

#include "Support.h"

namespace VestaTest {
namespace {

// A small table, whose log overruns the reader many times. Keys 0 and 1 are never removed.
TEST_F(TableTest, Threads_LookupsAndFollowersBesideAWriter) {
  constexpr std::uint32_t kCapacity = 8;
  const auto table = writer(kCapacity);
  ByteReader looking(options(kCapacity), table->bytes().sharedSegment());
  ByteReader following(options(kCapacity), table->bytes().sharedSegment());
  std::atomic<bool> stop{false};
  std::atomic<std::uint64_t> rounds{0};
  std::atomic<std::uint64_t> overruns{0};
  Model known;
  Model model;
  const auto putBoth = [&](std::uint64_t id, std::uint64_t stamp) {
    put(*table, id, stamp);
    put(model, id, stamp);
  };
  putBoth(0, 1);
  putBoth(1, 1);
  std::thread reads([&] {
    for (; !stop; ++rounds) {
      for (std::uint64_t id = 0; id < 40; ++id) ASSERT_TRUE(looking.stampOf(id) != 0 || id > 1);
    }
  });
  // Sleeps as a loop does, but wakes at once, periodically late.
  std::thread follows([&] {
    const auto look = [&](std::uint64_t id) { put(known, id, following.stampOf(id)); };
    for (std::uint64_t turn = 1, last = 0; last < 2; ++turn) {
      last += stop ? 1 : 0;
      while (!following.pollOnce(7, look).empty()) {
      }
      if (following.maySleep()) following.awake();
      overruns = following.counters().overruns;
      if (turn % 64 == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  });
  std::mt19937_64 random(1);
  const auto seenAll = [&] {
    return rounds != 0 && overruns >= 10 && table->writerCounters().indexRebuilds != 0;
  };
  for (std::uint64_t stamp = 2; stamp < scaled(60000) || !seenAll(); ++stamp) {
    const std::uint64_t id = random() % 40;
    const bool goes = id > 1 && stamp % 2 == 0;
    if (goes || model.size() < kCapacity || model.contains(id)) putBoth(id, goes ? 0 : stamp);
    if (stamp % 64 == 0) table->quiesced(table->sequence());
  }
  stop = true;
  reads.join();
  follows.join();
  EXPECT_EQ(known, model);
  EXPECT_FALSE(table->quiesced(table->sequence())) << "one reader only looks";
  looking.pollOnce(1000000);
  EXPECT_TRUE(table->quiesced(table->sequence()));
}

}  // namespace
}  // namespace VestaTest
