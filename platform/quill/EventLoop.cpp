#include "quill/EventLoop.h"

#include <sys/epoll.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "cairn/Exception.h"

namespace Quill {

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (!epoll_) throw Cairn::SystemException("epoll_create1", errno);
}

void EventLoop::descriptorIs(int descriptor, Callback readable) {
  const bool known = descriptors_.contains(descriptor);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  if (!known && epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throw Cairn::SystemException("epoll_ctl add descriptor " + std::to_string(descriptor), errno);
  }
  descriptors_[descriptor] = std::make_shared<Callback>(std::move(readable));
}

void EventLoop::descriptorDel(int descriptor) {
  if (descriptors_.erase(descriptor) != 0) epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

EventLoop::TimerId EventLoop::timerIs(Clock::duration delay, Callback expired) {
  return add(delay, {std::move(expired), Clock::duration::zero()});
}

EventLoop::TimerId EventLoop::periodicTimerIs(Clock::duration interval, Callback expired) {
  return add(interval, {std::move(expired), interval});
}

EventLoop::TimerId EventLoop::add(Clock::duration delay, Timer timer) {
  const TimerId id = nextId_++;
  const Clock::time_point due = Clock::now() + delay;
  if (spare_) {
    spare_.key() = Due(due, id);
    spare_.mapped() = std::move(timer);
    spareDue_.key() = id;
    spareDue_.mapped() = due;
    timers_.insert(std::move(spare_));
    dueOf_.insert(std::move(spareDue_));
    return id;
  }
  const auto added = timers_.emplace(Due(due, id), std::move(timer)).first;
  try {
    dueOf_.emplace(id, due);
  } catch (...) {
    timers_.erase(added);
    throw;
  }
  return id;
}

/// The next timer takes the place of this one, so that a process that sets one timer after another allocates
/// nothing.
void EventLoop::keep(std::map<Due, Timer>::node_type timer) {
  auto due = dueOf_.extract(timer.key().second);
  timer.mapped().expired = nullptr;  // may call back
  spareDue_ = std::move(due);
  spare_ = std::move(timer);
}

void EventLoop::timerDel(TimerId timer) {
  const auto found = dueOf_.find(timer);
  if (found == dueOf_.end()) return;
  keep(timers_.extract(Due(found->second, timer)));
}

template <class Function>
std::uint64_t EventLoop::hookIs(Hooks<Function>& hooks, Function function) {
  const std::uint64_t id = nextId_++;
  hooks.add(std::make_shared<const Hook<Function>>(Hook<Function>{id, std::move(function)}));
  return id;
}

std::uint64_t EventLoop::sleepHookIs(SleepHook maySleep) { return hookIs(sleepHooks_, std::move(maySleep)); }

void EventLoop::sleepHookDel(std::uint64_t hook) {
  sleepHooks_.removeIf([hook](const auto& known) { return known->id == hook; });
}

std::uint64_t EventLoop::wakeHookIs(Callback awake) { return hookIs(wakeHooks_, std::move(awake)); }

void EventLoop::wakeHookDel(std::uint64_t hook) {
  wakeHooks_.removeIf([hook](const auto& known) { return known->id == hook; });
}

bool EventLoop::maySleep() {
  bool may = true;
  Hooks<SleepHook>::Visit visit(sleepHooks_);
  while (const auto hook = visit.next()) may = hook->function() && may;
  return may;
}

int EventLoop::sleepMilliseconds(std::chrono::milliseconds timeout) const {
  if (timers_.empty()) return static_cast<int>(timeout.count());
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(1);  // a wait must fit an int
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first.first - Clock::now());
  const auto bounded = std::clamp(left, std::chrono::milliseconds(0), kLongest);
  return static_cast<int>(timeout.count() < 0 ? bounded.count() : std::min(bounded, timeout).count());
}

std::size_t EventLoop::runTimers() {
  if (timers_.empty()) return 0;
  std::size_t count = 0;
  const auto now = Clock::now();
  while (!timers_.empty() && timers_.begin()->first.first <= now) {
    call(timers_.extract(timers_.begin()), now);
    ++count;
  }
  return count;
}

/// A periodic timer is due again before it is called, so that it may take itself out.
void EventLoop::call(std::map<Due, Timer>::node_type timer, Clock::time_point now) {
  const TimerId id = timer.key().second;
  const Clock::duration interval = timer.mapped().interval;
  Callback expired = std::move(timer.mapped().expired);
  if (interval == Clock::duration::zero()) {
    keep(std::move(timer));
    return expired();
  }
  struct PutBack {
    EventLoop& loop;
    TimerId id;
    Callback& expired;
    ~PutBack() {
      const auto due = loop.dueOf_.find(id);
      if (due != loop.dueOf_.end()) loop.timers_.find(Due(due->second, id))->second.expired.swap(expired);
    }
  };
  dueOf_.find(id)->second = now + interval;
  timer.key().first = now + interval;
  timers_.insert(std::move(timer));
  const PutBack putBack{*this, id, expired};
  expired();
}

void EventLoop::runWakeHooks() {
  Hooks<Callback>::Visit visit(wakeHooks_);
  while (const auto hook = visit.next()) hook->function();
}

/// Checking the descriptors is a system call, so the hooks are run several times for each check.
void EventLoop::lookForWork() {
  constexpr std::chrono::microseconds kLook{5};
  const auto end = Clock::now() + kLook;
  do {
    runWakeHooks();
  } while (!worked_ && Clock::now() < end);
}

std::size_t EventLoop::step(std::chrono::milliseconds timeout) {
  std::array<epoll_event, 32> events;
  worked_ = false;
  const bool polls = busyPoll_ != Clock::duration::zero() && Clock::now() < busyUntil_;
  if (polls) lookForWork();
  const bool idle = polls ? !worked_ : maySleep();
  const int wait = idle && !polls ? sleepMilliseconds(timeout) : 0;
  const int ready = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), wait);
  if (ready < 0 && errno != EINTR) throw Cairn::SystemException("epoll_wait", errno);
  runWakeHooks();
  std::size_t count = 0;
  for (int i = 0; i < ready; ++i) {
    const auto found = descriptors_.find(events[static_cast<std::size_t>(i)].data.fd);
    if (found == descriptors_.end()) continue;  // removed by a callback before it
    const auto callback = found->second;        // stays alive when it removes itself
    (*callback)();
    ++count;
  }
  if (busyPoll_ != Clock::duration::zero() && (worked_ || count > 0)) busyUntil_ = Clock::now() + busyPoll_;
  // A signal that interrupts the wait may be the one that continues a stopped process: not idle either.
  if ((idle && ready == 0) || ++busySteps_ == kBusySteps) {
    busySteps_ = 0;
    count += runTimers();
  }
  return count;
}

void EventLoop::run() {
  stopped_ = false;
  while (!stopped_) step(std::chrono::milliseconds(-1));
}

}  // namespace Quill
