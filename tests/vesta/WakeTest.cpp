#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <thread>

#include "Support.h"
#include "quill/EventLoop.h"

namespace VestaTest {
namespace {

/// Follows a table in a loop, as the agents do, until its key 0 has a row.
void followInLoop(Reader& follower, const std::function<void()>& handled) {
  Quill::EventLoop loop;
  follower.onChangeIs([&](const TestKey& key) {
    handled();
    if (key.id == 0) loop.stop();
  });
  loop.descriptorIs(follower.wakeDescriptor(), [&] { follower.descriptorReadable(); });
  loop.sleepHookIs([&] { return follower.maySleep(); });
  loop.wakeHookIs([&] {
    follower.awake();
    follower.poll(100);
  });
  loop.run();
  loop.descriptorDel(follower.wakeDescriptor());
}

class Wake : public TableTest, public ::testing::WithParamInterface<bool> {};

// One write at a time, each against a reader that has just gone to sleep or is about to. A lost wake-up would
// leave the reader asleep for ever, since nothing else wakes it.
TEST_P(Wake, EachSingleWriteReachesASleepingReader) {
  const bool fifoFull = GetParam();
  const auto table = writer();
  Pipe ready;
  Child child([&] {
    const auto follower = reader();
    if (fifoFull) {
      char bytes[4096] = {};
      while (write(follower->wakeDescriptor(), bytes, sizeof bytes) > 0) {
      }
    }
    ready.say();
    followInLoop(*follower, [] {});
    return 0;
  });
  ready.await();
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
  EXPECT_LE(late, writes / 10000) << "scheduling delays of a loaded machine, not more";
  EXPECT_GT(table->writerCounters().wakeups, 0u);
}

INSTANTIATE_TEST_SUITE_P(Fifos, Wake, ::testing::Bool(),
                         [](const auto& test) { return std::string(test.param ? "Full" : "Empty"); });

/// From now on any system call but exit ends this process.
void forbidSystemCalls() {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
  };
  sock_fprog filter{4, program};
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    _exit(97);
  }
}

TEST_F(TableTest, SystemCalls_NoneWhileTheReaderIsAwake) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer makes system calls of its own";
#endif
  const auto awake = reader(8192);
  Child child([&]() -> int {
    const auto table = writer(8192);
    forbidSystemCalls();
    for (std::uint64_t id = 0; id < 8192; ++id) put(*table, id, 1);
    _exit(42);
  });
  const int end = child.wait();
  if (end == 97) GTEST_SKIP() << "this system does not let a process give its system calls up";
  EXPECT_EQ(end, 42) << "killed at a system call";
  EXPECT_EQ(told(*awake).size(), 8192u);

  ASSERT_TRUE(awake->maySleep());
  Child waking([&]() -> int {
    const auto table = writer(8192);
    forbidSystemCalls();
    put(*table, 0, 2);
    _exit(42);
  });
  EXPECT_EQ(waking.wait(), -SIGSYS) << "this one has to wake: the filter does work";
}

TEST_F(TableTest, SystemCalls_OneWakeUpForEachSleep) {
  const auto table = writer(8192);
  const auto follower = reader(8192);
  for (std::uint64_t sleep = 1; sleep <= 5; ++sleep) {
    ASSERT_TRUE(follower->maySleep());
    for (std::uint64_t id = 0; id < 8192; ++id) put(*table, id, sleep);
    EXPECT_EQ(table->writerCounters().wakeups, sleep);
    follower->awake();
    follower->descriptorReadable();
    told(*follower);
  }
  EXPECT_EQ(table->writerCounters().systemCalls, 5u + 2) << "two more to open and inspect the FIFO, once";
}

}  // namespace
}  // namespace VestaTest
