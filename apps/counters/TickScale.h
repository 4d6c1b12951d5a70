#pragma once

#include <cstdint>

namespace Counters {

/// Turns differences of Braid::ticks() into nanoseconds. The length of a tick is measured: for a moment at
/// first, then over all the time that has passed.
class TickScale {
 public:
  /// Takes half a millisecond.
  TickScale();
  /// Measures again; to be called periodically.
  void correct() noexcept;

  std::uint64_t nanoseconds(std::uint64_t ticks) const noexcept {
    // Signed, as processors convert them.
    const auto signedTicks = static_cast<double>(static_cast<std::int64_t>(ticks));
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(signedTicks * nanosecondsPerTick_));
  }

 private:
  std::uint64_t firstTicks_;
  std::uint64_t firstTime_;
  double nanosecondsPerTick_ = 1;
};

/// CLOCK_MONOTONIC, which is one clock for all processes, in nanoseconds.
std::uint64_t monotonicNanoseconds() noexcept;
/// CLOCK_REALTIME, likewise.
std::uint64_t wallNanoseconds() noexcept;

}  // namespace Counters
