#pragma once

#include <grpcpp/grpcpp.h>

#include "apps/server/Device.h"
#include "apps/server/WriteMessages.h"
#include "p4/v1/p4runtime.grpc.pb.h"

namespace Server {

/// p4.v1.P4Runtime: makes one call object for each call. Requests to write are parsed on arenas.
class Service final : public p4::v1::P4Runtime::CallbackService {
 public:
  /// `device` is not owned.
  explicit Service(Device& device);

  grpc::ServerUnaryReactor* Write(grpc::CallbackServerContext* context, const p4::v1::WriteRequest* request,
                                  p4::v1::WriteResponse* response) override;
  grpc::ServerWriteReactor<p4::v1::ReadResponse>* Read(grpc::CallbackServerContext* context,
                                                       const p4::v1::ReadRequest* request) override;
  grpc::ServerUnaryReactor* SetForwardingPipelineConfig(
      grpc::CallbackServerContext* context, const p4::v1::SetForwardingPipelineConfigRequest* request,
      p4::v1::SetForwardingPipelineConfigResponse* response) override;
  grpc::ServerUnaryReactor* GetForwardingPipelineConfig(
      grpc::CallbackServerContext* context, const p4::v1::GetForwardingPipelineConfigRequest* request,
      p4::v1::GetForwardingPipelineConfigResponse* response) override;
  grpc::ServerBidiReactor<p4::v1::StreamMessageRequest, p4::v1::StreamMessageResponse>* StreamChannel(
      grpc::CallbackServerContext* context) override;
  grpc::ServerUnaryReactor* Capabilities(grpc::CallbackServerContext* context,
                                         const p4::v1::CapabilitiesRequest* request,
                                         p4::v1::CapabilitiesResponse* response) override;

 private:
  Device& device_;
  WriteMessages writeMessages_;
};

}  // namespace Server
