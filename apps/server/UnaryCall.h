#pragma once

#include <grpcpp/grpcpp.h>

#include <atomic>
#include <optional>
#include <span>
#include <string_view>

#include "apps/server/Device.h"
#include "apps/server/OutOfMemory.h"

namespace Server {

grpc::Status grpcStatus(const Agent::Status& status);
/// The status of a request without memory. Its text is short, so that it takes none.
inline grpc::Status outOfMemory() { return {grpc::StatusCode::RESOURCE_EXHAUSTED, "out of memory"}; }
/// The status of a request whose elements have these outcomes: OK, or UNKNOWN with one error for each.
grpc::Status statusOf(Device& device, std::span<const Agent::UpdateStatus> outcomes,
                      std::string_view what = "updates");
/// What a request of so many updates or other elements takes of the bytes in flight. An element takes memory
/// of its own, as a message and as what is made of it: 8 million in 16 MB would take 4.6 GB.
std::size_t bytesOf(const google::protobuf::MessageLite& request, int elements);
std::optional<ElectionId> electionIdOf(bool isSet, const p4::v1::Uint128& id);

/// A call with one request and one answer, which goes to the loop in between. Made on a gRPC thread; gone
/// when gRPC is done with it.
class UnaryCall : public grpc::ServerUnaryReactor, protected Bridge::Work {
 protected:
  explicit UnaryCall(Device& device) : device_(device) {}

  /// False when the request, of so many updates, finds no room among those in flight; the call is finished
  /// then.
  bool reserve(const google::protobuf::MessageLite& request, int updates = 0);
  /// Has run() called on the loop's thread, or finishes the call when the loop takes no more work.
  void post();
  /// Runs `step`, whose last action may be to finish the call; without memory for it, the call ends.
  template <class Step>
  void attempt(const Step& step) noexcept {
    withMemory(step, [this] { Finish(outOfMemory()); });
  }
  void finish(const Agent::Status& status) {
    if (!status.ok()) device_.quota().rejected();
    Finish(grpcStatus(status));
  }
  /// The client has cancelled the call or is gone.
  bool isCancelled() const noexcept { return isCancelled_.load(std::memory_order_relaxed); }

  Device& device_;

 private:
  void OnCancel() override { isCancelled_.store(true, std::memory_order_relaxed); }
  void OnDone() override { delete this; }

  Bridge::Quota::Share share_;
  std::atomic<bool> isCancelled_{false};
};

}  // namespace Server
