// The protocols between threads that share one mapping, for the thread sanitizer: with a mapping each, it
// would see no race at all.
#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "Support.h"

namespace VestaTest {
namespace {

constexpr std::uint32_t kCapacity = 32;

class Threads : public TableTest {
 protected:
  static Vesta::Shape shape() { return Vesta::shapeOf<TestKey, TestEntry>(kCapacity); }
};

// Reads every key without pause; a row is whole or absent, a key that is never removed is never absent.
void readAll(Vesta::SegmentReader& table, const std::atomic<bool>& stop,
             std::atomic<std::uint64_t>& lookups) {
  Buffer sought;
  Buffer row;
  TestEntry entry;
  std::uint32_t slot = 0;
  while (!stop) {
    for (std::uint64_t id = 0; id < 40; ++id) {
      sought.encodeKey(TestKey{id});
      const bool found = table.lookup(Buffer::kSizes, sought.key(), row.words(), slot);
      ++lookups;
      if (!found) {
        ASSERT_GE(id, 4u);
        continue;
      }
      row.decodeEntry(entry);
      ASSERT_TRUE(entry.whole() && entry.id == id);
    }
  }
}

// Follows every change; sleeps as a loop does, but is woken by spinning on its flag.
void follow(Vesta::SegmentReader& table, const std::atomic<bool>& stop,
            std::map<std::uint64_t, std::uint64_t>& known) {
  const auto handler = [&](const Vesta::Word* words) {
    TestKey key;
    Buffer::decodeKeyFrom(words, key);
    Buffer row;
    TestEntry entry;
    std::uint32_t slot = 0;
    known.erase(key.id);
    if (!table.lookup(Buffer::kSizes, words, row.words(), slot)) return;
    row.decodeEntry(entry);
    ASSERT_TRUE(entry.whole() && entry.id == key.id);
    known[key.id] = entry.stamp;
  };
  bool stopped = false;
  while (!stopped) {
    stopped = stop;
    while (table.poll(7, handler) != 0) {
    }
    if (table.maySleep()) table.awake();
  }
}

TEST_F(Threads, LookupsAndFollowersBesideAWriter) {
  Vesta::SegmentWriter table(shape(), options(kCapacity));
  Vesta::AttachOptions asReader = options(kCapacity);
  Vesta::SegmentReader looking(shape(), asReader, table.mapping());
  Vesta::SegmentReader following(shape(), asReader, table.mapping());
  std::atomic<bool> stop{false};
  std::atomic<std::uint64_t> lookups{0};
  std::map<std::uint64_t, std::uint64_t> known;
  std::map<std::uint64_t, std::uint64_t> model;
  Buffer row;
  const auto write = [&](std::uint64_t id, std::uint64_t stamp) {
    row.encodeKey(TestKey{id});
    row.encodeEntry(TestEntry::make(id, stamp));
    table.write(Buffer::kSizes, row.words(), false);
    model[id] = stamp;
  };
  for (std::uint64_t id = 0; id < 4; ++id) write(id, 1);
  std::thread reads([&] { readAll(looking, stop, lookups); });
  std::thread follows([&] { follow(following, stop, known); });
  std::mt19937_64 random(1);
  for (std::uint64_t stamp = 2; stamp < scaled(60000) || lookups == 0; ++stamp) {
    const std::uint64_t id = random() % 40;
    if (id >= 4 && stamp % 2 == 0) {
      row.encodeKey(TestKey{id});
      EXPECT_EQ(table.remove(row.key()), model.erase(id) == 1);
    } else if (model.size() < kCapacity || model.contains(id)) {
      write(id, stamp);
    }
    if (stamp % 64 == 0) table.quiesced(table.sequence());
  }
  stop = true;
  reads.join();
  follows.join();
  EXPECT_EQ(known, model);
  EXPECT_FALSE(table.quiesced(table.sequence())) << "one reader only looks";
  looking.poll(1000000, [](const Vesta::Word*) {});
  EXPECT_TRUE(table.quiesced(table.sequence()));
}

}  // namespace
}  // namespace VestaTest
