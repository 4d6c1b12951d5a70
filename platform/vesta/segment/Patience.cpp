#include "vesta/segment/Patience.h"

#include <sched.h>

namespace Vesta {

UnsettledException::~UnsettledException() = default;

void Patience::again(const char* what) {
  constexpr unsigned kTriesPerYield = 64;  // a write takes less time than these
  if (++tries_ % kTriesPerYield != 0) return;
  const auto now = std::chrono::steady_clock::now();
  if (tries_ == kTriesPerYield) {
    end_ = now + bound_;
  } else if (now >= end_) {
    throw UnsettledException(std::string(what) + " kept changing for " + std::to_string(bound_.count()) +
                             " ms");
  }
  sched_yield();
}

}  // namespace Vesta
