#pragma once

#include "apps/server/UnaryCall.h"

namespace Server {

/// A SetForwardingPipelineConfig: the long check of the config on gRPC's thread, the rest on the loop's.
class SetConfigCall final : public PrimaryCall {
 public:
  SetConfigCall(Device& device, const p4::v1::SetForwardingPipelineConfigRequest& request);

 private:
  void run() noexcept override;
  void set();

  const p4::v1::SetForwardingPipelineConfigRequest& request_;
  CheckedPipeline checked_;
};

class GetConfigCall final : public UnaryCall {
 public:
  GetConfigCall(Device& device, grpc_call* call, const p4::v1::GetForwardingPipelineConfigRequest& request,
                p4::v1::GetForwardingPipelineConfigResponse& response);

 private:
  void run() noexcept override;
  void OnSendInitialMetadataDone(bool sent) override;

  const p4::v1::GetForwardingPipelineConfigRequest& request_;
  p4::v1::GetForwardingPipelineConfigResponse& response_;
  StalledCalls::Watch watch_;
  std::shared_ptr<const PipelineConfig::Config> config_;
};

}  // namespace Server
