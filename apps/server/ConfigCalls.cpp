#include "apps/server/ConfigCalls.h"

#include <fmt/format.h>

#include <utility>

namespace Server {

using Agent::Status;
using Agent::StatusCode;

SetConfigCall::SetConfigCall(Device& device, const p4::v1::SetForwardingPipelineConfigRequest& request)
    : UnaryCall(device), request_(request) {
  attempt([this] {
    if (!reserve(request_)) return;
    checked_ = std::as_const(device_).config().check(request_);
    post();
  });
}

void SetConfigCall::run() noexcept {
  withMemory([this] { set(); },
             [this] {
               release();
               Finish(outOfMemory());
             });
}

void SetConfigCall::set() {
  if (isCancelled()) return finish({StatusCode::cancelled, "the client has cancelled the request"});
  const Status known = device_.checkDevice(request_.device_id());
  if (known.ok() && request_.role_id() != 0) {
    return finish(
        {StatusCode::notFound, fmt::format("expected a role's name, got the number {}", request_.role_id())});
  }
  Arbitration::Ticket ticket;
  const Status status =
      device_.arbitration().admit(request_.device_id(), request_.role(),
                                  electionIdOf(request_.has_election_id(), request_.election_id()), ticket);
  if (!status.ok()) return finish(status);
  ticket_ = ticket;
  device_.config().set(std::move(checked_), [this](const Status& outcome) {
    release();
    attempt([&] { finish(outcome); });
  });
}

void SetConfigCall::release() noexcept {
  if (ticket_) device_.arbitration().finished(*ticket_);
  ticket_.reset();
}

GetConfigCall::GetConfigCall(Device& device, grpc_call* call,
                             const p4::v1::GetForwardingPipelineConfigRequest& request,
                             p4::v1::GetForwardingPipelineConfigResponse& response)
    : UnaryCall(device), request_(request), response_(response), watch_(device.stalledCalls(), call) {
  attempt([this] {
    const Status status = device_.checkDevice(request_.device_id());
    if (!status.ok()) return finish(status);
    if (reserve(request_)) post();
  });
}

void GetConfigCall::run() noexcept {
  config_ = device_.config().inForce();
  StartSendInitialMetadata();  // brings the call back to a gRPC thread
}

void GetConfigCall::OnSendInitialMetadataDone(bool) {
  attempt([this] {
    const Status status = answerGet(*config_, request_, response_);
    watch_.sending();
    finish(status);
  });
}

}  // namespace Server
