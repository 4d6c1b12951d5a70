#pragma once

#include <chrono>
#include <string>

#include "cairn/Exception.h"

namespace Vesta {

constexpr std::chrono::milliseconds kDefaultYieldTime{2000};

/// A row kept changing for longer than the yield time; it is not damaged.
class UnsettledException : public Cairn::Exception {
 public:
  using Exception::Exception;
  ~UnsettledException() override;
};

/// Bounds the retries of a read that a writer keeps disturbing.
class Patience {
 public:
  explicit Patience(std::chrono::milliseconds bound) noexcept : bound_(bound) {}

  /// Waits a little before the next try; throws UnsettledException once the bound is passed.
  void again(const char* what);

 private:
  std::chrono::milliseconds bound_;
  std::chrono::steady_clock::time_point end_{};
  unsigned tries_ = 0;
};

}  // namespace Vesta
