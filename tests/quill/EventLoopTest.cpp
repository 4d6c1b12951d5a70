#include "quill/EventLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>

#include "AllocationCount.h"
#include "cairn/Exception.h"

namespace {

using namespace std::chrono_literals;

class Loop : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(pipe(first_.data()), 0);
    ASSERT_EQ(pipe(second_.data()), 0);
  }
  void TearDown() override {
    for (const auto& ends : {first_, second_}) {
      for (const int end : ends) close(end);
    }
  }
  static void say(const std::array<int, 2>& ends) { ASSERT_EQ(write(ends[1], "x", 1), 1); }
  static void hear(const std::array<int, 2>& ends) {
    char said;
    ASSERT_EQ(read(ends[0], &said, 1), 1);
  }

  Quill::EventLoop loop_;
  std::array<int, 2> first_{};
  std::array<int, 2> second_{};
  std::string calls_;
};

TEST_F(Loop, Descriptor_IsCalledUntilItIsReadOrTakenOut) {
  loop_.descriptorIs(first_[0], [this] { calls_ += 'a'; });
  EXPECT_EQ(loop_.step(0ms), 0u);
  say(first_);
  EXPECT_EQ(loop_.step(0ms), 1u);
  EXPECT_EQ(loop_.step(0ms), 1u);
  loop_.descriptorIs(first_[0], [this] {
    calls_ += 'b';
    hear(first_);
  });
  loop_.step(0ms);
  loop_.step(0ms);
  EXPECT_EQ(calls_, "aab");
  say(first_);
  loop_.descriptorDel(first_[0]);
  EXPECT_EQ(loop_.step(0ms), 0u);
  EXPECT_THROW(loop_.descriptorIs(-1, [] {}), Cairn::SystemException);
}

TEST_F(Loop, Descriptor_TakenOutByACallbackIsNotCalledAnyMore) {
  const auto takeOutBoth = [this] {
    calls_ += 'x';
    loop_.descriptorDel(first_[0]);
    loop_.descriptorDel(second_[0]);
    calls_ += 'y';
  };
  loop_.descriptorIs(first_[0], takeOutBoth);
  loop_.descriptorIs(second_[0], takeOutBoth);
  say(first_);
  say(second_);
  EXPECT_EQ(loop_.step(0ms), 1u);
  EXPECT_EQ(calls_, "xy");
}

TEST_F(Loop, Timers_RunOnceInTheOrderTheyAreDue) {
  loop_.timerIs(3ms, [this] { calls_ += 'c'; });
  loop_.timerIs(1ms, [this] { calls_ += 'a'; });
  const auto dropped = loop_.timerIs(1ms, [this] { calls_ += 'x'; });
  Quill::EventLoop::TimerId later = 0;
  loop_.timerIs(2ms, [&] {
    calls_ += 'b';
    loop_.timerDel(later);
    loop_.timerIs(0ms, [this] {
      calls_ += 'd';
      loop_.stop();
    });
  });
  later = loop_.timerIs(2ms, [this] { calls_ += 'y'; });
  loop_.timerDel(dropped);
  loop_.timerDel(dropped);
  const auto begin = Quill::EventLoop::Clock::now();
  while (calls_.find('c') == std::string::npos) loop_.step(1s);
  EXPECT_GE(Quill::EventLoop::Clock::now() - begin, 3ms);
  if (calls_.find('d') == std::string::npos) loop_.run();
  EXPECT_TRUE(calls_ == "abcd" || calls_ == "abdc") << calls_;
}

TEST_F(Loop, SleepHooks_KeepTheLoopAwake) {
  bool may = false;
  const auto hook = loop_.sleepHookIs([&] {
    calls_ += 's';
    return may;
  });
  const auto wake = loop_.wakeHookIs([this] { calls_ += 'w'; });
  const auto begin = Quill::EventLoop::Clock::now();
  loop_.step(10s);
  EXPECT_LT(Quill::EventLoop::Clock::now() - begin, 5s);
  may = true;
  loop_.step(1ms);
  EXPECT_EQ(calls_, "swsw");
  loop_.sleepHookDel(hook);
  loop_.wakeHookDel(wake);
  loop_.step(0ms);
  EXPECT_EQ(calls_, "swsw");
}

TEST_F(Loop, Hooks_MayAddAndRemoveHooksWhileTheyRun) {
  std::uint64_t own = 0;
  std::uint64_t next = 0;
  std::uint64_t fresh = 0;
  own = loop_.wakeHookIs([&] {
    calls_ += '1';
    loop_.wakeHookDel(own);
    loop_.wakeHookDel(next);
    fresh = loop_.wakeHookIs([this] { calls_ += '4'; });
    calls_ += '!';
  });
  next = loop_.wakeHookIs([this] { calls_ += '2'; });
  loop_.wakeHookIs([this] { calls_ += '3'; });
  loop_.step(0ms);
  EXPECT_EQ(calls_, "1!3");
  loop_.step(0ms);
  EXPECT_EQ(calls_, "1!334");
  loop_.wakeHookDel(fresh);
  loop_.step(0ms);
  EXPECT_EQ(calls_, "1!3343");
}

TEST_F(Loop, Exception_LeavesTheLoopUsable) {
  const auto hook = loop_.wakeHookIs([] { throw std::runtime_error("hook"); });
  EXPECT_THROW(loop_.step(0ms), std::runtime_error);
  loop_.wakeHookDel(hook);
  loop_.wakeHookIs([this] { calls_ += 'w'; });
  loop_.step(0ms);
  EXPECT_EQ(calls_, "w");
}

TEST_F(Loop, Step_AllocatesNothing) {
  loop_.sleepHookIs([] { return true; });
  loop_.wakeHookIs([] {});
  loop_.descriptorIs(first_[0], [this] { hear(first_); });
  say(first_);
  loop_.step(0ms);
  say(first_);
  const std::size_t before = allocationCount();
  EXPECT_EQ(loop_.step(0ms), 1u);
  EXPECT_EQ(allocationCount(), before);
}

}  // namespace
