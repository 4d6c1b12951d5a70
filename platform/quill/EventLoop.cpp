#include "quill/EventLoop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "cairn/Exception.h"

namespace Quill {

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  if (epoll_ < 0) throw Cairn::SystemException("epoll_create1", errno);
}

EventLoop::~EventLoop() { close(epoll_); }

void EventLoop::descriptorIs(int descriptor, Callback readable) {
  const bool known = descriptors_.contains(descriptor);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.fd = descriptor;
  if (!known && epoll_ctl(epoll_, EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throw Cairn::SystemException("epoll_ctl add descriptor " + std::to_string(descriptor), errno);
  }
  descriptors_[descriptor] = std::make_shared<Callback>(std::move(readable));
}

void EventLoop::descriptorDel(int descriptor) {
  if (descriptors_.erase(descriptor) != 0) epoll_ctl(epoll_, EPOLL_CTL_DEL, descriptor, nullptr);
}

EventLoop::TimerId EventLoop::timerIs(Clock::duration delay, Callback expired) {
  const TimerId id = nextId_++;
  timers_.emplace(id, std::move(expired));
  due_.push({Clock::now() + delay, id});
  return id;
}

void EventLoop::timerDel(TimerId timer) { timers_.erase(timer); }

std::uint64_t EventLoop::sleepHookIs(SleepHook maySleep) {
  const std::uint64_t id = nextId_++;
  sleepHooks_.emplace(id, std::make_shared<SleepHook>(std::move(maySleep)));
  return id;
}

void EventLoop::sleepHookDel(std::uint64_t hook) { sleepHooks_.erase(hook); }

std::uint64_t EventLoop::wakeHookIs(Callback awake) {
  const std::uint64_t id = nextId_++;
  wakeHooks_.emplace(id, std::make_shared<Callback>(std::move(awake)));
  return id;
}

void EventLoop::wakeHookDel(std::uint64_t hook) { wakeHooks_.erase(hook); }

bool EventLoop::maySleep() {
  bool may = true;
  const auto hooks = sleepHooks_;  // a hook may remove hooks
  for (const auto& [id, hook] : hooks) {
    if (sleepHooks_.contains(id)) may = (*hook)() && may;
  }
  return may;
}

int EventLoop::sleepMilliseconds(std::chrono::milliseconds timeout) const {
  if (due_.empty()) return static_cast<int>(timeout.count());
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due_.top().due - Clock::now());
  const auto bounded = std::max(left, std::chrono::milliseconds(0));
  return static_cast<int>(timeout.count() < 0 ? bounded.count() : std::min(bounded, timeout).count());
}

std::size_t EventLoop::runTimers() {
  std::size_t count = 0;
  const auto now = Clock::now();
  while (!due_.empty() && due_.top().due <= now) {
    const TimerId id = due_.top().id;
    due_.pop();
    if (auto timer = timers_.extract(id)) {
      timer.mapped()();
      ++count;
    }
  }
  return count;
}

std::size_t EventLoop::step(std::chrono::milliseconds timeout) {
  std::array<epoll_event, 32> events;
  const int wait = maySleep() ? sleepMilliseconds(timeout) : 0;
  const int ready = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), wait);
  if (ready < 0 && errno != EINTR) throw Cairn::SystemException("epoll_wait", errno);
  const auto hooks = wakeHooks_;
  for (const auto& [id, hook] : hooks) {
    if (wakeHooks_.contains(id)) (*hook)();
  }
  std::size_t count = runTimers();
  for (int i = 0; i < ready; ++i) {
    const auto found = descriptors_.find(events[static_cast<std::size_t>(i)].data.fd);
    if (found == descriptors_.end()) continue;  // removed by a callback before it
    const auto callback = found->second;        // stays alive when it removes itself
    (*callback)();
    ++count;
  }
  return count;
}

void EventLoop::run() {
  stopped_ = false;
  while (!stopped_) step(std::chrono::milliseconds(-1));
}

}  // namespace Quill
