#include "apps/server/StalledCalls.h"

#include <grpc/grpc.h>

namespace Server {

StalledCalls::Watch::Watch(StalledCalls& calls, grpc_call* call) : calls_(calls), call_(call) {
  const std::lock_guard lock(calls_.mutex_);
  calls_.watches_.insert(this);
}

void StalledCalls::Watch::sending() noexcept {
  const std::lock_guard lock(calls_.mutex_);
  since_ = Clock::now();
}

void StalledCalls::Watch::sent() noexcept {
  const std::lock_guard lock(calls_.mutex_);
  since_ = Clock::time_point::max();
}

void StalledCalls::Watch::end() noexcept {
  const std::lock_guard lock(calls_.mutex_);
  calls_.watches_.erase(this);
}

void StalledCalls::check(Clock::time_point now) {
  endSince(now - timeout_, GRPC_STATUS_DEADLINE_EXCEEDED,
           "expected the client to take its answers, got none of the last taken in time");
}

void StalledCalls::endAll() { endSince(Clock::now(), GRPC_STATUS_UNAVAILABLE, "the agent is stopping"); }

/// One at a time: ending a call may run its reactions here, which end watches.
void StalledCalls::endSince(Clock::time_point limit, int code, const char* text) {
  while (true) {
    grpc_call* stalled = nullptr;
    {
      const std::lock_guard lock(mutex_);
      for (Watch* const watch : watches_) {
        if (watch->since_ > limit) continue;
        watch->since_ = Clock::time_point::max();
        stalled = watch->call_;
        grpc_call_ref(stalled);  // the call may end as soon as the lock is released
        break;
      }
    }
    if (stalled == nullptr) return;
    grpc_call_cancel_with_status(stalled, static_cast<grpc_status_code>(code), text, nullptr);
    grpc_call_unref(stalled);
  }
}

}  // namespace Server
