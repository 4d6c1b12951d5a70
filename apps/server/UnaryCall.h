#pragma once

#include <grpcpp/grpcpp.h>

#include <atomic>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "apps/server/Device.h"
#include "apps/server/OutOfMemory.h"

namespace Server {

grpc::Status grpcStatus(const Agent::Status& status);
/// The status of a request without memory. Its text is short, so that it takes none.
inline grpc::Status outOfMemory() { return {grpc::StatusCode::RESOURCE_EXHAUSTED, "out of memory"}; }
/// The status of a request whose elements have these outcomes: OK, or UNKNOWN with one error for each.
grpc::Status statusOf(Device& device, std::span<const Agent::UpdateStatus> outcomes,
                      std::string_view what = "updates");
/// The bytes in flight that a request of so many updates or other elements counts with: its own, and 512 for
/// each element, as a message and as what is made of it. 8 million empty ones in 16 MB would take 4.6 GB.
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
  /// The same for more bytes that the call is about to hold.
  bool reserveMore(std::size_t bytes) { return granted(device_.quota().grow(share_, bytes)); }
  /// Has run() called on the loop's thread, or finishes the call when the loop takes no more work.
  void post();
  /// Runs `step`, whose last action may be to finish the call; without memory for it, the call ends.
  template <class Step>
  void attempt(const Step& step) noexcept {
    withMemory(step, [this] { end(outOfMemory()); });
  }
  void finish(const Agent::Status& status) {
    if (!status.ok()) device_.quota().rejected();
    end(grpcStatus(status));
  }
  /// Answers. From here on the request no longer counts as one in flight: gRPC is done with a call later,
  /// when its own thread gets a processor, and a client that has its answer may send the next request before.
  void end(grpc::Status status) {
    share_.answered();
    Finish(std::move(status));
  }
  /// The client has cancelled the call or is gone.
  bool isCancelled() const noexcept { return isCancelled_.load(std::memory_order_relaxed); }

  Device& device_;

 private:
  bool granted(const Agent::Status& status) {
    if (!status.ok()) finish(status);
    return status.ok();
  }
  void OnCancel() override { isCancelled_.store(true, std::memory_order_relaxed); }
  void OnDone() override { delete this; }

  Bridge::Quota::Share share_;
  std::atomic<bool> isCancelled_{false};
};

/// A call that needs a primary controller. All of it on the loop's thread.
class PrimaryCall : public UnaryCall {
 protected:
  using UnaryCall::UnaryCall;

  /// Whether the request's controller is primary, and its client still there. With OK the call counts as a
  /// write in flight until release().
  template <class Request>
  Agent::Status admit(const Request& request) {
    return admit(request.device_id(), request.role_id(), request.role(),
                 electionIdOf(request.has_election_id(), request.election_id()));
  }
  void release() noexcept;
  Agent::Status cancelled() const {
    return {Agent::StatusCode::cancelled, "the client has cancelled the request"};
  }

  std::optional<Arbitration::Ticket> ticket_;  // set while the call counts

 private:
  Agent::Status admit(std::uint64_t device, std::uint64_t roleId, const std::string& role,
                      const std::optional<ElectionId>& id);
};

}  // namespace Server
