#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "cairn/Descriptor.h"
#include "quill/SafeList.h"

namespace Quill {

/// One epoll loop for one thread: descriptors, timers and a hook before it goes to sleep. Callbacks may add
/// and remove anything, themselves included.
class EventLoop {
 public:
  using Callback = std::function<void()>;
  using Clock = std::chrono::steady_clock;
  using TimerId = std::uint64_t;
  static constexpr unsigned kBusySteps = 64;

  EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  /// Calls `readable` whenever `descriptor` can be read (or is hung up). The caller keeps the
  /// descriptor and removes it here before closing it. One callback for each descriptor; a second replaces
  /// the first. A callback may come when there is nothing to read any more, so the descriptor has to be
  /// non-blocking.
  void descriptorIs(int descriptor, Callback readable);
  void descriptorDel(int descriptor);

  /// Calls `expired` once, `delay` from now at the earliest. A timer that is due waits until a step finds
  /// nothing else to do: a process that was held up handles what has arrived meanwhile before its time-outs
  /// expire. Work without end delays a timer by kBusySteps steps at most.
  TimerId timerIs(Clock::duration delay, Callback expired);
  /// Calls `expired` every `interval`, also after a call that threw. Repeating allocates nothing.
  TimerId periodicTimerIs(Clock::duration interval, Callback expired);
  void timerDel(TimerId timer);

  /// Asked before each sleep, in order of addition: false means there is work left, so the loop polls
  /// instead.
  using SleepHook = std::function<bool()>;
  std::uint64_t sleepHookIs(SleepHook maySleep);
  void sleepHookDel(std::uint64_t hook);
  /// Called after each sleep, whatever ended it.
  std::uint64_t wakeHookIs(Callback awake);
  void wakeHookDel(std::uint64_t hook);

  /// After work, the loop looks for more for so long before it sleeps, without asking the sleep hooks: what
  /// arrives meanwhile needs no wake-up. Takes a whole processor. Zero, the default: never.
  void busyPollIs(Clock::duration duration) noexcept { busyPoll_ = duration; }
  /// To be called by wake hooks that have found work.
  void worked() noexcept { worked_ = true; }

  /// Handles what is ready, waiting at most `timeout` for the first of it. Returns the number of callbacks.
  std::size_t step(std::chrono::milliseconds timeout);
  /// Steps until stop() is called.
  void run();
  void stop() noexcept { stopped_ = true; }

 private:
  struct Timer {
    Callback expired;
    Clock::duration interval;  // zero: once
  };
  using Due = std::pair<Clock::time_point, TimerId>;

  TimerId add(Clock::duration delay, Timer timer);
  void keep(std::map<Due, Timer>::node_type timer);
  bool maySleep();
  void runWakeHooks();
  void lookForWork();
  int sleepMilliseconds(std::chrono::milliseconds timeout) const;
  std::size_t runTimers();
  void call(std::map<Due, Timer>::node_type timer, Clock::time_point now);

  template <class Function>
  struct Hook {
    std::uint64_t id;
    Function function;
  };
  template <class Function>
  using Hooks = SafeList<std::shared_ptr<const Hook<Function>>>;
  template <class Function>
  std::uint64_t hookIs(Hooks<Function>& hooks, Function function);

  Cairn::Descriptor epoll_;
  bool stopped_ = false;
  unsigned busySteps_ = 0;  // since timers were last run
  Clock::duration busyPoll_{};
  Clock::time_point busyUntil_{};
  bool worked_ = false;  // in this step
  std::uint64_t nextId_ = 1;
  std::map<int, std::shared_ptr<Callback>> descriptors_;
  std::map<Due, Timer> timers_;
  std::map<TimerId, Clock::time_point> dueOf_;
  std::map<Due, Timer>::node_type spare_;  // of a timer that is no more, or empty, as the next
  std::map<TimerId, Clock::time_point>::node_type spareDue_;
  Hooks<SleepHook> sleepHooks_;
  Hooks<Callback> wakeHooks_;
};

}  // namespace Quill
