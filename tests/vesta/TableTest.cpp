// Rows between a writer and its readers, and the wake-ups of those that sleep.
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <chrono>
#include <set>
#include <thread>

#include "DamagedRow.h"
#include "Support.h"
#include "quill/EventLoop.h"
#include "vesta/DeferredWakeups.h"

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
  Vesta::IterHint hint;
  for (const std::uint64_t id : {6u, 7u}) put(*table, id, 1);
  ASSERT_TRUE(table->first(removed, hint));
  for (const bool more : {true, false}) {
    Vesta::IterHint fresh;
    EXPECT_EQ(table->next(removed.key, removed, fresh), more) << "from the position of the key";
  }
  table->detach();
  EXPECT_THROW(put(*table, 7, 1), Cairn::NoPermissionException);
  EXPECT_EQ(stampOf(*table, 7), 0u);
}

// A writer does not read the row that it found last again, unless it may have changed.
TEST_F(TableTest, Rows_OfAWriterFollowEveryChange) {
  auto table = writer();
  for (const std::uint64_t stamp : {5u, 6u, 0u, 7u}) {
    put(*table, 1, stamp);
    for (int twice = 0; twice < 2; ++twice) EXPECT_EQ(stampOf(*table, 1), stamp);
  }
  Word* const slot = slotOf(*table, TestKey{1});  // by a lookup with a hint
  EXPECT_EQ(stampOf(*table, 1), 7u);
  slot[4] ^= 1;
  EXPECT_EQ(stampOf(*table, 1), 7u);
  EXPECT_NE(failure([this] { contents(*reader()); }), "");
  table->monitor();
  EXPECT_EQ(stampOf(*table, 1), 0u) << "lost with the damaged segment";
  put(*table, 1, 8);
  EXPECT_EQ(stampOf(*table, 1), 8u);
  table->detach();
  EXPECT_EQ(stampOf(*table, 1), 0u);
}

// A writer process at full speed: every lookup yields a row that was written whole, and keys that were never
// removed are never absent, whatever the index does meanwhile.
TEST_F(TableTest, TornRows_EveryLookupIsWholeAndPresent) {
  // Keys that are rewritten without pause; keys that are inserted and removed between the rewrites, in turn.
  const std::pair<std::uint64_t, std::uint64_t> loads[] = {{1, 0}, {3, 0}, {40, 200}};
  for (const auto& [hot, churned] : loads) {
    SCOPED_TRACE(hot);
    startOver();
    Child child([&, hot = hot, churned = churned] {
      const auto table = writer(256);
      for (std::uint64_t id = 0; id < hot; ++id) put(*table, id, 1);
      raise(SIGSTOP);
      for (std::uint64_t stamp = 2;; ++stamp) {
        put(*table, stamp % hot, stamp);
        if (churned == 0 || stamp % 3 != 0) continue;
        const std::uint64_t turn = stamp / 3;
        put(*table, 1000 + turn % churned, stamp);
        put(*table, 1000 + (turn + churned / 2) % churned, 0);
      }
      return 0;
    });
    child.pass();
    const auto table = reader(256);
    Ids newest(hot, 1);
    const std::uint64_t lookups = scaled(10000000);
    for (std::uint64_t i = 0; i < lookups && !HasFailure(); ++i) {
      const std::uint64_t stamp = stampOf(*table, i % hot);
      ASSERT_GE(stamp, newest[i % hot]) << "absent, or time went backwards";
      newest[i % hot] = stamp;
      if (churned != 0 && i % 8 == 0) stampOf(*table, 1000 + i % churned);
    }
    EXPECT_GT(newest[0], 2u);
    EXPECT_GT(table->readerCounters().retries, 0u) << "no lookup was disturbed: proves nothing";
    child.signal(SIGKILL);
  }
}

// At each step of a rebuild every key is found, by the index alone, and no two indexes have the same word.
// However long a full table churns, a quarter of the cells is empty, so that chains are short; and rebuilds
// are so rare that a change costs the same at every capacity.
TEST_F(TableTest, Rebuild_HidesNoKeyAndKeepsChainsShortAtLittleCost) {
  const auto table = writer();
  for (std::uint64_t id = 0; id < 30; ++id) put(*table, id, 1);
  const auto looking = reader();
  Segment& segment = segmentOf(*table);
  const std::size_t cells = segment.layout().cells;
  std::set<Word> words;
  onStep_ = [&](WriteStep step) {
    if (step > WriteStep::rebuildSwitched) return;
    forgetShortcuts(segment);
    for (std::uint64_t id = 0; id < 30; ++id) ASSERT_EQ(stampOf(*looking, id), 1u) << static_cast<int>(step);
    words.insert(segment.load(Vesta::kIndexAt));
  };
  for (std::uint64_t id = 66; id < 5000; ++id) {
    if (id >= 100) put(*table, id - 34, 0);
    put(*table, id, 1);
    const std::size_t index = segment.layout().indexAt(segment.load(Vesta::kIndexAt) & 1);
    std::size_t empty = 0;
    for (std::size_t at = index; at < index + cells; ++at) {
      empty += segment.at(at) == Vesta::sealed(Vesta::kEmptyCell, at) ? 1 : 0;
    }
    ASSERT_GE(empty, cells / 4);
  }
  EXPECT_EQ(words.size(), table->writerCounters().indexRebuilds + 1);
  EXPECT_GT(words.size(), 4u);
  EXPECT_LT(words.size(), 48u) << "marks before an empty cell become empty, too";
}

void fill(int fifo) {
  const char bytes[4096] = {};
  while (write(fifo, bytes, sizeof bytes) > 0) {
  }
}

// One write at a time, each against a reader that has just gone to sleep or is about to, periodically with
// its FIFO full. Nothing else wakes the reader: after a lost wake-up it sleeps for ever.
TEST_F(TableTest, Wake_EachSingleWriteReachesASleepingReader) {
  const auto table = writer();
  Child child([&] {
    const auto follower = reader();
    Quill::EventLoop loop;
    follower->onChangeIs([&](const TestKey& key) {
      if (key.id == 0) loop.stop();
    });
    loop.descriptorIs(follower->wakeDescriptor(), [&] { follower->descriptorReadable(); });
    loop.sleepHookIs([&] { return follower->maySleep(); });
    loop.wakeHookIs([&] { follower->awake(), follower->poll(100); });
    raise(SIGSTOP);
    loop.run();
    loop.descriptorDel(follower->wakeDescriptor());
    return 0;
  });
  child.pass();
  const Cairn::Descriptor fifo(open((path().folder() + "/vesta.table.0").c_str(), O_RDWR | O_NONBLOCK));
  const std::uint64_t writes = scaled(200000);
  // Loaded without a system call, so that the next write may come while the reader is about to sleep.
  const Segment& segment = segmentOf(*table);
  const std::size_t handled = Vesta::readerLineAt(0) + Vesta::kReaderHandledAt;
  const auto end = std::chrono::steady_clock::now() + scaled(1) * std::chrono::seconds(30);
  bool isLast = false;
  std::uint64_t i = 0;
  while (!isLast) {
    const auto begin = std::chrono::steady_clock::now();
    isLast = ++i == writes || begin > end;  // a busy machine would not make them within the child's time
    if (i % 64 == 0) fill(fifo.get());
    put(*table, isLast ? 0 : 1, i);
    while (segment.load(handled) != table->sequence()) {
      const auto waited = std::chrono::steady_clock::now() - begin;
      ASSERT_LT(waited, std::chrono::seconds(10)) << "wake-up lost at write " << i;
      if (waited > std::chrono::microseconds(50)) std::this_thread::yield();
    }
    for (std::uint64_t spin = i % 400; spin > 0; --spin) std::atomic_signal_fence(std::memory_order_seq_cst);
  }
  EXPECT_EQ(child.wait(), 0);
  EXPECT_GT(table->writerCounters().wakeups, i / 100) << "it hardly ever slept: proves nothing";
}

TEST_F(TableTest, Wake_OncePerSleepAlsoWithTheFifoFullAndWithoutDescriptors) {
  const auto table = writer();
  const auto follower = reader();
  const int fifo = follower->wakeDescriptor();
  for (std::uint64_t round = 1; round <= 1000; ++round) {
    fill(fifo);
    ASSERT_TRUE(follower->maySleep());
    for (std::uint64_t i = 0; i < 100; ++i) put(*table, 1, round);
    ASSERT_EQ(table->writerCounters().wakeups, round);
    ASSERT_TRUE(woken(*follower) && !readable(fifo));
    ASSERT_EQ(notified(*follower), Ids(100, 1));
  }
  EXPECT_EQ(table->writerCounters().systemCalls, 1000u + 2) << "two more to open and inspect the FIFO, once";
  const auto late = reader();
  ASSERT_TRUE(sleeps(*late));
  const rlim_t before = limit(RLIMIT_NOFILE, 3);
  put(*table, 2, 1);
  EXPECT_FALSE(readable(late->wakeDescriptor())) << "its FIFO cannot be opened";
  limit(RLIMIT_NOFILE, before);
  put(*table, 2, 2);
  EXPECT_TRUE(readable(late->wakeDescriptor())) << "the next write tries again";
}

TEST_F(TableTest, Wake_NoReaderThatIsAwakeAndAllThatSleepForANewSegment) {
  auto table = writer();
  std::vector<std::unique_ptr<Reader>> all;
  for (int i = 0; i < 5; ++i) all.push_back(reader());
  ASSERT_TRUE(all[0]->maySleep());
  all[0]->awake();
  put(*table, 1, 1);
  EXPECT_EQ(table->writerCounters().systemCalls, 0u);
  const auto allAreWoken = [&] {
    for (const auto& one : all) EXPECT_TRUE(woken(*one) && sleeps(*one));
  };
  table.reset();
  table = writer();  // its predecessor may have died before it woke them
  allAreWoken();
  slotOf(*table, TestKey{1})[2] ^= 1;  // the key
  put(*table, 1, 0);                   // detects it and replaces the segment
  allAreWoken();
  put(*table, 1, 1);
  allAreWoken();
  damageRow(*table, TestKey{1});
  table.reset();
  const auto replacing = reader();  // the segment, without a writer
  allAreWoken();
}

TEST_F(TableTest, Wake_InAScopeOfChangesAtTheFirstEveryFewAndTheLast) {
  auto table = writer();
  const auto follower = reader();
  const auto wakeupsOf = [&](std::uint64_t changes) {
    const std::uint64_t before = table->writerCounters().wakeups;
    for (std::uint64_t i = 0; i < changes; ++i) {
      follower->descriptorReadable();
      EXPECT_TRUE(sleeps(*follower));
      put(*table, 1, (i + 1) % 2);  // written and removed in turn
    }
    return table->writerCounters().wakeups - before;
  };
  EXPECT_EQ(wakeupsOf(10), 10u);
  {
    const Vesta::DeferredWakeups scope;
    { const Vesta::DeferredWakeups inner; }
    EXPECT_EQ(wakeupsOf(514), 3u) << "changes 0, 256 and 512";
    EXPECT_FALSE(readable(follower->wakeDescriptor()));
    EXPECT_FALSE(follower->maySleep()) << "all that a process killed in a scope leaves to readers";
    EXPECT_TRUE(sleeps(*follower));
  }
  EXPECT_TRUE(readable(follower->wakeDescriptor()));
  const Vesta::DeferredWakeups scope;
  EXPECT_EQ(wakeupsOf(2), 1u);
  table.reset();
  EXPECT_TRUE(readable(follower->wakeDescriptor())) << "the writer leaves before the scope ends";
}

// In strict mode a process may only read, write and end; a wake-up has to open the FIFO first.
TEST_F(TableTest, SystemCalls_NoneWhileTheReaderIsAwake) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer makes system calls of its own";
#endif
  const auto follower = reader(8192);
  const auto written = [this](std::uint64_t rows) {
    Child child([&] {
      const auto table = writer(8192);
      EXPECT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT), 0);
      for (std::uint64_t id = 0; id < rows; ++id) put(*table, id, 1);
      return static_cast<int>(syscall(SYS_exit, 42));
    });
    return child.wait();
  };
  EXPECT_EQ(written(8192), 42) << "killed at a system call";
  EXPECT_EQ(notified(*follower).size(), 8192u);
  ASSERT_TRUE(follower->maySleep());
  EXPECT_EQ(written(1), -SIGKILL) << "this one has to wake";
}

}  // namespace
}  // namespace VestaTest
