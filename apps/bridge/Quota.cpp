#include "apps/bridge/Quota.h"

#include <fmt/format.h>

#include <algorithm>

namespace Bridge {

Agent::Status Quota::take(std::size_t bytes, Share& share) {
  std::unique_lock lock(mutex_);
  ++counts_.requests;
  counts_.bytes += bytes;
  if (requests_ >= maxRequests_ || bytes > maxBytes_ - std::min(bytes_, maxBytes_)) {
    const std::size_t requestsInFlight = requests_;
    const std::size_t bytesInFlight = bytes_;
    lock.unlock();
    return refusal(bytes, requestsInFlight, bytesInFlight);
  }
  ++requests_;
  bytes_ += bytes;
  lock.unlock();
  share = Share(this, bytes);
  return {};
}

Agent::Status Quota::grow(Share& share, std::size_t bytes) {
  std::unique_lock lock(mutex_);
  if (requests_ > 1 && bytes > maxBytes_ - std::min(bytes_, maxBytes_)) {
    const std::size_t requestsInFlight = requests_;
    const std::size_t bytesInFlight = bytes_;
    lock.unlock();
    return refusal(bytes, requestsInFlight, bytesInFlight);
  }
  bytes_ += bytes;
  share.bytes_ += bytes;
  return {};
}

Agent::Status Quota::refusal(std::size_t bytes, std::size_t requestsInFlight,
                             std::size_t bytesInFlight) const {
  return {Agent::StatusCode::resourceExhausted,
          fmt::format(
              "expected room for a request of {} bytes, got {} of {} requests and {} of {} bytes in flight",
              bytes, requestsInFlight, maxRequests_, bytesInFlight, maxBytes_)};
}

void Quota::give(std::size_t requests, std::size_t bytes) noexcept {
  const std::lock_guard lock(mutex_);
  requests_ -= requests;
  bytes_ -= bytes;
}

void Quota::rejected() noexcept {
  const std::lock_guard lock(mutex_);
  ++counts_.rejected;
}

Quota::Counts Quota::counts() const {
  const std::lock_guard lock(mutex_);
  return counts_;
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
