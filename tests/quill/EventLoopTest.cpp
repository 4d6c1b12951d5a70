#include "quill/EventLoop.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "cairn/Exception.h"
#include "tests/AllocationCount.h"

namespace {

using namespace std::chrono_literals;

class Loop : public ::testing::Test {
 protected:
  ~Loop() override {
    close(first_);
    close(second_);
  }
  static void say(int descriptor) { ASSERT_EQ(eventfd_write(descriptor, 1), 0); }
  static void hear(int descriptor) {
    eventfd_t said;
    ASSERT_EQ(eventfd_read(descriptor, &said), 0);
  }
  auto call(char name) {
    return [this, name] { calls_ += name; };
  }
  /// The calls of so many steps.
  std::string steps(unsigned count) {
    calls_.clear();
    while (count-- > 0) loop_.step(0ms);
    return calls_;
  }

  Quill::EventLoop loop_;
  const int first_ = eventfd(0, EFD_NONBLOCK);
  const int second_ = eventfd(0, EFD_NONBLOCK);
  std::string calls_;
};

TEST_F(Loop, Descriptor_IsCalledUntilItIsReadOrTakenOut) {
  loop_.descriptorIs(first_, call('a'));
  EXPECT_EQ(loop_.step(0ms), 0u);
  say(first_);
  EXPECT_EQ(loop_.step(0ms), 1u);
  EXPECT_EQ(steps(2), "aa");
  loop_.descriptorIs(first_, [this] {
    calls_ += 'b';
    hear(first_);
  });
  EXPECT_EQ(steps(2), "b");
  say(first_);
  loop_.descriptorDel(first_);
  EXPECT_EQ(loop_.step(0ms), 0u);
  EXPECT_THROW(loop_.descriptorIs(-1, [] {}), Cairn::SystemException);
}

TEST_F(Loop, Descriptor_TakenOutByACallbackIsNotCalledAnyMore) {
  for (const int descriptor : {first_, second_}) {
    say(descriptor);
    loop_.descriptorIs(descriptor, [this] {
      loop_.descriptorDel(first_);
      loop_.descriptorDel(second_);
      calls_ += 'x';  // what the callback holds is still there
    });
  }
  EXPECT_EQ(steps(2), "x");
}

TEST_F(Loop, Timers_RunOnceInTheOrderTheyAreDue) {
  loop_.timerIs(3ms, [this] {
    calls_ += 'c';
    loop_.stop();
  });
  loop_.timerIs(1ms, call('a'));
  loop_.timerDel(loop_.timerIs(1ms, call('x')));
  Quill::EventLoop::TimerId later = 0;
  loop_.timerIs(2ms, [&] {
    calls_ += 'b';
    loop_.timerDel(later);
  });
  later = loop_.timerIs(2ms, call('y'));
  loop_.run();
  EXPECT_EQ(calls_, "abc");
}

TEST_F(Loop, PeriodicTimers_RepeatAfterAThrowUntilTheyAreTakenOut) {
  Quill::EventLoop::TimerId own = 0;
  own = loop_.periodicTimerIs(1ms, [&] {
    calls_ += 'p';
    if (calls_ == "pp") throw std::runtime_error("timer");
    if (calls_ == "ppp") loop_.timerDel(own);
  });
  const std::size_t allocated = allocationCount();
  while (calls_.empty()) loop_.step(10ms);
  EXPECT_EQ(allocationCount(), allocated) << "repeating allocates nothing";
  EXPECT_THROW(loop_.step(1000ms), std::runtime_error);
  while (calls_ != "ppp") loop_.step(10ms);
  loop_.step(3ms);
  EXPECT_EQ(calls_, "ppp");
}

TEST_F(Loop, Timers_WaitForWorkThatHasArrivedButNotForever) {
  int portions = 3;
  loop_.sleepHookIs([&portions] { return portions == 0; });
  loop_.wakeHookIs([this, &portions] {
    if (portions == 0) return;
    calls_ += 'w';
    if (--portions == 0) say(first_);
  });
  loop_.descriptorIs(first_, [this] {
    hear(first_);
    calls_ += 'd';
  });
  loop_.timerIs(0ms, call('t'));
  EXPECT_EQ(steps(5), "wwwdt");
  loop_.sleepHookIs([] { return false; });
  loop_.timerIs(0ms, call('T'));
  EXPECT_EQ(steps(Quill::EventLoop::kBusySteps), "T");
}

TEST_F(Loop, BusyPoll_LooksForMoreWithoutAskingForSleepUntilItsTimeIsOver) {
  int work = 0;
  loop_.sleepHookIs([this] { return calls_ += 's', true; });
  loop_.wakeHookIs([&] {
    if (work > 0 && --work == 0) loop_.worked();
  });
  loop_.busyPollIs(1h);
  loop_.step(0ms);
  EXPECT_EQ(calls_, "s") << "no work yet";
  work = 1;
  loop_.step(0ms);
  work = 3;  // comes while the step looks for it
  for (int i = 0; i < 3; ++i) loop_.step(-1ms);
  loop_.timerIs(0ms, call('t'));
  loop_.step(-1ms);
  EXPECT_EQ(calls_, "sst");
  EXPECT_EQ(work, 0);
  loop_.busyPollIs(0ms);
  loop_.step(0ms);
  EXPECT_EQ(calls_, "ssts");
}

TEST_F(Loop, Hooks_MayAddAndRemoveHooksAndThrow) {
  std::uint64_t own = 0;
  std::uint64_t next = 0;
  own = loop_.wakeHookIs([&] {
    loop_.wakeHookDel(own);
    loop_.wakeHookDel(next);
    loop_.wakeHookIs(call('4'));
    calls_ += '1';  // what the hook holds is still there
  });
  next = loop_.wakeHookIs(call('2'));
  loop_.wakeHookIs(call('3'));
  EXPECT_EQ(steps(2), "1334");
  const auto hook = loop_.wakeHookIs([] { throw std::runtime_error("hook"); });
  EXPECT_THROW(loop_.step(0ms), std::runtime_error);
  loop_.wakeHookDel(hook);
  EXPECT_EQ(steps(1), "34");
}

}  // namespace
