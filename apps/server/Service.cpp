#include "apps/server/Service.h"

#include "apps/server/ConfigCalls.h"
#include "apps/server/ReadCall.h"
#include "apps/server/StreamCall.h"
#include "apps/server/UnaryCall.h"
#include "apps/server/WriteCall.h"

namespace Server {

namespace {

constexpr const char* kApiVersion = "1.4.1";

}  // namespace

Service::Service(Device& device) : device_(device) { SetMessageAllocatorFor_Write(&writeMessages_); }

grpc::ServerUnaryReactor* Service::Write(grpc::CallbackServerContext*, const p4::v1::WriteRequest* request,
                                         p4::v1::WriteResponse*) {
  return new WriteCall(device_, *request);
}

grpc::ServerWriteReactor<p4::v1::ReadResponse>* Service::Read(grpc::CallbackServerContext* context,
                                                              const p4::v1::ReadRequest* request) {
  return new ReadCall(device_, context->c_call(), *request);
}

grpc::ServerUnaryReactor* Service::SetForwardingPipelineConfig(
    grpc::CallbackServerContext*, const p4::v1::SetForwardingPipelineConfigRequest* request,
    p4::v1::SetForwardingPipelineConfigResponse*) {
  return new SetConfigCall(device_, *request);
}

grpc::ServerUnaryReactor* Service::GetForwardingPipelineConfig(
    grpc::CallbackServerContext* context, const p4::v1::GetForwardingPipelineConfigRequest* request,
    p4::v1::GetForwardingPipelineConfigResponse* response) {
  return new GetConfigCall(device_, context->c_call(), *request, *response);
}

grpc::ServerBidiReactor<p4::v1::StreamMessageRequest, p4::v1::StreamMessageResponse>* Service::StreamChannel(
    grpc::CallbackServerContext* context) {
  return StreamCall::make(device_, context->c_call());
}

grpc::ServerUnaryReactor* Service::Capabilities(grpc::CallbackServerContext* context,
                                                const p4::v1::CapabilitiesRequest* request,
                                                p4::v1::CapabilitiesResponse* response) {
  grpc::ServerUnaryReactor* const reactor = context->DefaultReactor();
  response->set_p4runtime_api_version(kApiVersion);
  reactor->Finish(grpcStatus(device_.checkDevice(request->device_id())));
  return reactor;
}

}  // namespace Server
