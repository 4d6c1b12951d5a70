#include "apps/server/ConfigCalls.h"

#include <utility>

namespace Server {

using Agent::Status;

SetConfigCall::SetConfigCall(Device& device, const p4::v1::SetForwardingPipelineConfigRequest& request)
    : PrimaryCall(device), request_(request) {
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
               end(outOfMemory());
             });
}

void SetConfigCall::set() {
  const Status status = admit(request_);
  if (!status.ok()) return finish(status);
  device_.config().set(std::move(checked_), [this](const Status& outcome) {
    release();
    attempt([&] { finish(outcome); });
  });
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
  attempt([this] {
    config_ = device_.config().inForce();
    if (!reserveMore(config_->ByteSizeLong())) return;
    StartSendInitialMetadata();  // brings the call back to a gRPC thread
  });
}

void GetConfigCall::OnSendInitialMetadataDone(bool) {
  attempt([this] {
    const Status status = answerGet(*config_, request_, response_);
    watch_.sending();
    if (!status.ok()) return finish(status);
    Finish(grpc::Status::OK);  // not end(): the answer may be long, so the request counts until it is sent
  });
}

}  // namespace Server
