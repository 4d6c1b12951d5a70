#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>

#include "apps/core/Status.h"

namespace Bridge {

/// Bounds the requests in flight: by number from their arrival to their answer, and by their bytes until the
/// memory is free again.
///
/// Thread safety: all calls on any thread.
class Quota {
 public:
  Quota(std::size_t maxRequests, std::size_t maxBytes) : maxRequests_(maxRequests), maxBytes_(maxBytes) {}
  Quota(const Quota&) = delete;
  Quota& operator=(const Quota&) = delete;

  /// What one request holds of the quota; given back with it.
  class Share {
   public:
    Share() = default;
    Share(Share&& other) noexcept
        : quota_(std::exchange(other.quota_, nullptr)), requests_(other.requests_), bytes_(other.bytes_) {}
    Share& operator=(Share&& other) noexcept {
      std::swap(quota_, other.quota_);
      std::swap(requests_, other.requests_);
      std::swap(bytes_, other.bytes_);
      return *this;
    }
    ~Share() {
      if (quota_ != nullptr) quota_->give(requests_, bytes_);
    }
    /// The request has its answer: only its bytes still count.
    void answered() noexcept {
      if (quota_ != nullptr) quota_->give(std::exchange(requests_, 0), 0);
    }

   private:
    friend class Quota;
    Share(Quota* quota, std::size_t bytes) : quota_(quota), requests_(1), bytes_(bytes) {}

    Quota* quota_ = nullptr;    // not owned
    std::size_t requests_ = 0;  // 0 or 1
    std::size_t bytes_ = 0;
  };

  /// Gives `share` its part, or refuses with RESOURCE_EXHAUSTED and the numbers. A request of more bytes than
  /// the whole quota is never granted, so the quota has to be larger than the longest message.
  Agent::Status take(std::size_t bytes, Share& share);
  /// Adds to a part what its request holds meanwhile, or refuses as take() does. A request that is alone is
  /// never refused: tables and pipeline config bound what it can hold.
  Agent::Status grow(Share& share, std::size_t bytes);

  /// Counts a request that is answered with an error as a whole.
  void rejected() noexcept;

  std::size_t requests() const;
  std::size_t bytes() const;
  /// Since the start.
  struct Counts {
    std::uint64_t requests = 0;  ///< that asked for their part
    std::uint64_t bytes = 0;     ///< of these
    std::uint64_t rejected = 0;
  };
  Counts counts() const;

 private:
  Agent::Status refusal(std::size_t bytes, std::size_t requestsInFlight, std::size_t bytesInFlight) const;
  void give(std::size_t requests, std::size_t bytes) noexcept;

  const std::size_t maxRequests_;
  const std::size_t maxBytes_;
  mutable std::mutex mutex_;
  std::size_t requests_ = 0;  // guarded by mutex_, as the next two
  std::size_t bytes_ = 0;
  Counts counts_;
};

}  // namespace Bridge
