#include "apps/server/ConfigCalls.h"

#include <fmt/format.h>

#include <utility>

namespace Server {

using Agent::Status;
using Agent::StatusCode;

SetConfigCall::SetConfigCall(Device& device, const p4::v1::SetForwardingPipelineConfigRequest& request)
    : UnaryCall(device), request_(request) {
  if (!reserve(request)) return;
  checked_ = std::as_const(device).config().check(request);
  post();
}

void SetConfigCall::run() {
  if (isCancelled()) return finish({StatusCode::cancelled, "the client has cancelled the request"});
  const Status known = device_.checkDevice(request_.device_id());
  if (known.ok() && request_.role_id() != 0) {
    return finish(
        {StatusCode::notFound, fmt::format("expected a role's name, got the number {}", request_.role_id())});
  }
  Arbitration::Ticket ticket = nullptr;
  const Status status =
      device_.arbitration().admit(request_.device_id(), request_.role(),
                                  electionIdOf(request_.has_election_id(), request_.election_id()), ticket);
  if (!status.ok()) return finish(status);
  device_.config().set(std::move(checked_), [this, ticket](const Status& outcome) {
    device_.arbitration().finished(ticket);
    finish(outcome);
  });
}

GetConfigCall::GetConfigCall(Device& device, const p4::v1::GetForwardingPipelineConfigRequest& request,
                             p4::v1::GetForwardingPipelineConfigResponse& response)
    : UnaryCall(device), request_(request), response_(response) {
  const Status status = device.checkDevice(request.device_id());
  if (!status.ok()) {
    finish(status);
  } else if (reserve(request)) {
    post();
  }
}

void GetConfigCall::run() {
  config_ = device_.config().inForce();
  StartSendInitialMetadata();  // brings the call back to a gRPC thread
}

void GetConfigCall::OnSendInitialMetadataDone(bool) { finish(answerGet(*config_, request_, response_)); }

}  // namespace Server
