#include "apps/bridge/Quota.h"

#include <fmt/format.h>

namespace Bridge {

Agent::Status Quota::take(std::size_t bytes, Share& share) {
  std::size_t requestsInFlight = 0;
  std::size_t bytesInFlight = 0;
  {
    const std::lock_guard lock(mutex_);
    if (requests_ < maxRequests_ && bytes <= maxBytes_ - bytes_) {
      ++requests_;
      bytes_ += bytes;
      share = Share(this, bytes);
      return {};
    }
    requestsInFlight = requests_;
    bytesInFlight = bytes_;
  }
  return {Agent::StatusCode::resourceExhausted,
          fmt::format(
              "expected room for a request of {} bytes, got {} of {} requests and {} of {} bytes in flight",
              bytes, requestsInFlight, maxRequests_, bytesInFlight, maxBytes_)};
}

void Quota::give(std::size_t bytes) noexcept {
  const std::lock_guard lock(mutex_);
  --requests_;
  bytes_ -= bytes;
}

std::size_t Quota::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

std::size_t Quota::bytes() const {
  const std::lock_guard lock(mutex_);
  return bytes_;
}

}  // namespace Bridge
