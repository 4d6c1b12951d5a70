#include "apps/counters/TickScale.h"

#include <time.h>

#include "skein/Ring.h"

namespace Counters {

namespace {
constexpr std::uint64_t kFirstMeasurement = 500'000;

std::uint64_t nanosecondsOf(clockid_t clock) noexcept {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<std::uint64_t>(now.tv_nsec);
}
}  // namespace

std::uint64_t monotonicNanoseconds() noexcept { return nanosecondsOf(CLOCK_MONOTONIC); }
std::uint64_t wallNanoseconds() noexcept { return nanosecondsOf(CLOCK_REALTIME); }

TickScale::TickScale() : firstTicks_(Braid::ticks()), firstTime_(monotonicNanoseconds()) {
  while (monotonicNanoseconds() - firstTime_ < kFirstMeasurement) {
  }
  correct();
}

void TickScale::correct() noexcept {
  const std::uint64_t ticks = Braid::ticks() - firstTicks_;
  const std::uint64_t time = monotonicNanoseconds() - firstTime_;
  if (ticks != 0 && time != 0) nanosecondsPerTick_ = static_cast<double>(time) / static_cast<double>(ticks);
}

}  // namespace Counters
