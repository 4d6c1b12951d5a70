#include <fcntl.h>
#include <linux/seccomp.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "Support.h"
#include "quill/EventLoop.h"

namespace VestaTest {
namespace {

// One write at a time, each against a reader that has just gone to sleep or is about to. A lost wake-up would
// leave the reader asleep for ever, since nothing else wakes it: that is what fails here. Waits of more than
// 100 ms happen on a machine that others use too, so a few are granted. TOLMAR_LONG_TESTS=5 makes it a
// million writes.
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
  std::uint64_t late = 0;
  const std::uint64_t writes = scaled(200000);
  for (std::uint64_t i = 1; i <= writes; ++i) {
    put(*table, i == writes ? 0 : 1, i);
    const auto begin = std::chrono::steady_clock::now();
    while (!table->quiesced(table->sequence())) {
      const auto waited = std::chrono::steady_clock::now() - begin;
      ASSERT_LT(waited, std::chrono::seconds(10)) << "wake-up lost at write " << i;
      if (waited > std::chrono::microseconds(50)) std::this_thread::yield();
    }
    if (std::chrono::steady_clock::now() - begin > std::chrono::milliseconds(100)) ++late;
    for (std::uint64_t spin = i % 400; spin > 0; --spin) std::atomic_signal_fence(std::memory_order_seq_cst);
  }
  EXPECT_EQ(child.wait(), 0);
  EXPECT_LE(late, 2 * writes / 200000);
  EXPECT_GT(table->writerCounters().wakeups, writes / 100) << "it hardly ever slept: proves nothing";
}

TEST_F(TableTest, Wake_OncePerSleepAlsoWithTheFifoFullAndWithoutDescriptors) {
  const auto table = writer();
  const auto follower = reader();
  const int fifo = follower->wakeDescriptor();
  for (std::uint64_t round = 1; round <= 1000; ++round) {
    const char bytes[4096] = {};
    while (write(fifo, bytes, sizeof bytes) > 0) {
    }
    ASSERT_TRUE(follower->maySleep());
    for (std::uint64_t i = 0; i < 100; ++i) put(*table, 1, round);
    ASSERT_EQ(table->writerCounters().wakeups, round);
    ASSERT_TRUE(readable(fifo));
    follower->descriptorReadable();
    ASSERT_FALSE(readable(fifo));
    ASSERT_EQ(told(*follower), Ids(100, 1));
  }
  EXPECT_EQ(table->writerCounters().systemCalls, 1000u + 2) << "two more to open and inspect the FIFO, once";
  const auto late = reader();
  told(*late);
  ASSERT_TRUE(late->maySleep());
  const rlim_t before = limit(RLIMIT_NOFILE, 3);
  put(*table, 2, 1);
  EXPECT_FALSE(readable(late->wakeDescriptor())) << "its FIFO cannot be opened";
  limit(RLIMIT_NOFILE, before);
  put(*table, 2, 2);
  EXPECT_TRUE(readable(late->wakeDescriptor())) << "the next write tries again";
}

// A writer keeps the FIFO of a reader open for as long as its identity is the same, and agents in containers
// have one process id at every start: the other half must differ.
TEST_F(TableTest, Wake_ReadersStartedAlikeDiffer) {
  const auto table = writer();
  std::uint64_t halves[2] = {};
  for (std::uint64_t& half : halves) {
    Child child([&] {
      const auto follower = reader();
      return raise(SIGSTOP);
    });
    ASSERT_EQ(child.wait(), -SIGSTOP);
    half = table->segment().mapping()->load(Vesta::readerLineAt(0)) >> 32;
  }
  EXPECT_NE(halves[0], halves[1]);
}

// In strict mode a process may do no more than read, write and end; a wake-up has to open the FIFO first.
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
  if (end == 77) GTEST_SKIP() << "this system does not let a process give its system calls up";
  EXPECT_EQ(end, 42) << "killed at a system call";
  EXPECT_EQ(told(*follower).size(), 8192u);
  ASSERT_TRUE(follower->maySleep());
  EXPECT_EQ(written(1), -SIGKILL) << "this one has to wake";
}

}  // namespace
}  // namespace VestaTest
