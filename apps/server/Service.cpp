#include "apps/server/Service.h"

#include "apps/server/ConfigCalls.h"
#include "apps/server/ReadCall.h"
#include "apps/server/StreamCall.h"
#include "apps/server/UnaryCall.h"
#include "apps/server/WriteCall.h"

namespace Server {

namespace {

constexpr const char* kApiVersion = "1.4.1";

/// The messages of one Write, parsed, read and freed as a whole.
class WriteHolder final : public grpc::MessageHolder<p4::v1::WriteRequest, p4::v1::WriteResponse> {
 public:
  WriteHolder() : arena_(options()) {
    set_request(google::protobuf::Arena::CreateMessage<p4::v1::WriteRequest>(&arena_));
    set_response(google::protobuf::Arena::CreateMessage<p4::v1::WriteResponse>(&arena_));
  }
  void Release() override { delete this; }

 private:
  static google::protobuf::ArenaOptions options() {
    google::protobuf::ArenaOptions options;
    options.start_block_size = 2048;
    options.max_block_size = std::size_t{256} << 10;
    return options;
  }
  google::protobuf::Arena arena_;
};

}  // namespace

grpc::MessageHolder<p4::v1::WriteRequest, p4::v1::WriteResponse>* Service::WriteMessages::AllocateMessages() {
  return new WriteHolder;
}

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
