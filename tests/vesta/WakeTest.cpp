#include <fcntl.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "DamagedRow.h"
#include "Support.h"
#include "quill/EventLoop.h"
#include "vesta/DeferredWakeups.h"

namespace VestaTest {
namespace {

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
    loop.wakeHookIs([&] {
      follower->awake();
      follower->poll(100);
    });
    raise(SIGSTOP);
    loop.run();
    loop.descriptorDel(follower->wakeDescriptor());
    return 0;
  });
  child.pass();
  const Cairn::Descriptor fifo(open((path().folder() + "/vesta.table.0").c_str(), O_RDWR | O_NONBLOCK));
  const std::uint64_t writes = scaled(200000);
  // Loaded without a system call, so that the next write may come while the reader is about to sleep.
  const auto progress = [&segment = segmentOf(*table)] {
    return segment.load(Vesta::readerLineAt(0) + Vesta::kReaderHandledAt);
  };
  for (std::uint64_t i = 1; i <= writes; ++i) {
    if (i % 64 == 0) fill(fifo.get());
    put(*table, i == writes ? 0 : 1, i);
    const auto woken = std::chrono::steady_clock::now();
    while (progress() != table->sequence()) {
      const auto waited = std::chrono::steady_clock::now() - woken;
      ASSERT_LT(waited, std::chrono::seconds(10)) << "wake-up lost at write " << i;
      if (waited > std::chrono::microseconds(50)) std::this_thread::yield();
    }
    for (std::uint64_t spin = i % 400; spin > 0; --spin) std::atomic_signal_fence(std::memory_order_seq_cst);
  }
  EXPECT_EQ(child.wait(), 0);
  EXPECT_GT(table->writerCounters().wakeups, writes / 100) << "it hardly ever slept: proves nothing";
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
    ASSERT_TRUE(readable(fifo));
    follower->descriptorReadable();
    ASSERT_FALSE(readable(fifo));
    ASSERT_EQ(notified(*follower), Ids(100, 1));
  }
  EXPECT_EQ(table->writerCounters().systemCalls, 1000u + 2) << "two more to open and inspect the FIFO, once";
  const auto late = reader();
  notified(*late);
  ASSERT_TRUE(late->maySleep());
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
    for (const auto& one : all) {
      EXPECT_TRUE(readable(one->wakeDescriptor()));
      one->descriptorReadable();
      notified(*one);
      EXPECT_TRUE(one->maySleep());
    }
  };
  table.reset();
  table = writer();  // its predecessor may have died before it woke them
  allAreWoken();
  Vesta::Segment& segment = segmentOf(*table);
  segment.at(segment.layout().slotAt(0) + 2) ^= 1;  // the key
  put(*table, 1, 0);                                // detects it and replaces the segment
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
      notified(*follower);
      EXPECT_TRUE(follower->maySleep());
      put(*table, 1, (i + 1) % 2);  // written and removed in turn
    }
    return table->writerCounters().wakeups - before;
  };
  EXPECT_EQ(wakeupsOf(10), 10u);
  {
    const Vesta::DeferredWakeups scope;
    EXPECT_EQ(wakeupsOf(130), 3u) << "changes 0, 64 and 128";
    { const Vesta::DeferredWakeups inner; }
    EXPECT_FALSE(readable(follower->wakeDescriptor()));
  }
  EXPECT_TRUE(readable(follower->wakeDescriptor()));
  const Vesta::DeferredWakeups scope;
  EXPECT_EQ(wakeupsOf(2), 1u);
  table.reset();
  EXPECT_TRUE(readable(follower->wakeDescriptor())) << "the writer leaves before the scope ends";
}

TEST_F(TableTest, Wake_KilledInAScopeLeavesChangesToTheReadersNextLook) {
  const auto follower = reader();
  Child child([&] {
    const auto table = writer();
    put(*table, 1, 1);
    const Vesta::DeferredWakeups scope;
    raise(SIGSTOP);
    put(*table, 1, 2);
    raise(SIGSTOP);
    put(*table, 2, 1);
    return raise(SIGKILL);
  });
  for (int sleep = 0; sleep < 2; ++sleep) {
    EXPECT_EQ(child.wait(), -SIGSTOP);
    follower->descriptorReadable();
    notified(*follower);
    EXPECT_TRUE(follower->maySleep());
    child.signal(SIGCONT);
  }
  EXPECT_EQ(child.wait(), -SIGKILL);
  EXPECT_FALSE(readable(follower->wakeDescriptor()));
  EXPECT_FALSE(follower->maySleep());
  EXPECT_EQ(notified(*follower), Ids{2});
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
      if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) return 77;
      for (std::uint64_t id = 0; id < rows; ++id) put(*table, id, 1);
      return static_cast<int>(syscall(SYS_exit, 42));
    });
    return child.wait();
  };
  const int end = written(8192);
  if (end == 77) GTEST_SKIP() << "this system has no strict mode";
  EXPECT_EQ(end, 42) << "killed at a system call";
  EXPECT_EQ(notified(*follower).size(), 8192u);
  ASSERT_TRUE(follower->maySleep());
  EXPECT_EQ(written(1), -SIGKILL) << "this one has to wake";
}

}  // namespace
}  // namespace VestaTest
