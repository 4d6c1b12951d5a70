#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <unordered_set>

struct grpc_call;

namespace Server {

/// Ends calls whose clients do not take what is sent to them, so that they hold no memory and no room among
/// the requests in flight for ever. gRPC would wait for them as long as their connections live.
///
/// Thread safety: all calls on any thread.
class StalledCalls {
 public:
  using Clock = std::chrono::steady_clock;

  explicit StalledCalls(Clock::duration timeout) : timeout_(timeout) {}
  StalledCalls(const StalledCalls&) = delete;
  StalledCalls& operator=(const StalledCalls&) = delete;

  /// One call, to be ended before gRPC is done with it.
  class Watch {
   public:
    /// Neither is owned. Throws std::bad_alloc.
    Watch(StalledCalls& calls, grpc_call* call);
    ~Watch() { end(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// A message is being sent: the time-out begins.
    void sending() noexcept;
    /// The client has taken it.
    void sent() noexcept;
    void end() noexcept;

   private:
    friend class StalledCalls;
    StalledCalls& calls_;
    grpc_call* call_;
    Clock::time_point since_ = Clock::time_point::max();
  };

  /// Ends with DEADLINE_EXCEEDED those that have been sending since before the time-out.
  void check(Clock::time_point now);
  /// Ends those that are sending with UNAVAILABLE.
  void endAll();

 private:
  void endSince(Clock::time_point limit, int code, const char* text);

  Clock::duration timeout_;
  std::mutex mutex_;
  std::unordered_set<Watch*> watches_;  // guarded by mutex_, as are their members
};

}  // namespace Server
