#include "apps/client/Connection.h"

#include <grpcpp/create_channel_posix.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "apps/client/UnixConnection.h"
#include "cairn/Exception.h"
#include "google/rpc/status.pb.h"
#include "p4/v1/p4runtime.grpc.pb.h"

namespace Client {

namespace {

using namespace p4::v1;

/// For the trailer with one error for each update, which the default of 8192 bytes would replace by an error.
constexpr int kMaxMetadataBytes = 256 << 20;
constexpr std::chrono::seconds kShortCall{10};  // of calls that wait for nothing

std::string contentsOf(const std::string& path) {
  if (path.empty()) return "";
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  if (!file || contents.str().empty()) {
    throw Cairn::Exception("expected a file in PEM, got " + path + ", which cannot be read");
  }
  return contents.str();
}

std::shared_ptr<grpc::ChannelCredentials> credentialsOf(const Target& target) {
  if (target.tlsCa.empty()) return grpc::InsecureChannelCredentials();
  return grpc::SslCredentials(
      {contentsOf(target.tlsCa), contentsOf(target.tlsKey), contentsOf(target.tlsCert)});
}

std::shared_ptr<grpc::Channel> channelTo(const Target& target) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_MAX_METADATA_SIZE, kMaxMetadataBytes);
  arguments.SetMaxReceiveMessageSize(-1);
  // A server that is stopped or cut off is given up within 20 seconds.
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIME_MS, 10'000);
  arguments.SetInt(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, 10'000);
  arguments.SetInt(GRPC_ARG_HTTP2_MAX_PINGS_WITHOUT_DATA, 0);
  if (target.address.find('/') != std::string::npos) {
    return grpc::CreateCustomInsecureChannelFromFd(
        "localhost", connectedTo(target.address, ::geteuid(), target.wait), arguments);
  }
  const auto channel = grpc::CreateCustomChannel(target.address, credentialsOf(target), arguments);
  const auto patience = std::max<std::chrono::milliseconds>(target.wait, kShortCall);
  if (!channel->WaitForConnected(std::chrono::system_clock::now() + patience)) {
    throw Cairn::Exception("no connection to " + target.address + (target.tlsCa.empty() ? "" : " over TLS"));
  }
  return channel;
}

std::uint64_t wallClockNanoseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

Outcome outcomeOf(int code, const std::string& message) { return {code, 0, message}; }

[[noreturn]] void refuse(const char* call, const grpc::Status& status) {
  throw Cairn::Exception(std::string(call) + ": " + textOf(outcomeOf(status.error_code(), "")) + ": " +
                         status.error_message());
}

/// Whether a call that failed without details may have reached the updates all the same. Of the other codes,
/// the server sends no update on its way.
bool mayHaveBeenApplied(grpc::StatusCode code) {
  return code == grpc::UNAVAILABLE || code == grpc::CANCELLED || code == grpc::DEADLINE_EXCEEDED ||
         code == grpc::UNKNOWN || code == grpc::INTERNAL;
}

std::vector<Outcome> outcomesOf(const grpc::Status& status, std::size_t count) {
  if (status.ok()) return std::vector<Outcome>(count);
  google::rpc::Status details;
  std::vector<Outcome> outcomes;
  if (details.ParseFromString(status.error_details())) {
    for (const auto& detail : details.details()) {
      p4::v1::Error error;
      if (!detail.UnpackTo(&error)) break;
      const bool ofHardware = !error.space().empty();
      outcomes.push_back({error.canonical_code(), ofHardware ? static_cast<std::uint32_t>(error.code()) : 0,
                          error.message()});
    }
  }
  if (outcomes.size() == count) return outcomes;
  const std::string text = textOf(outcomeOf(status.error_code(), "")) + ": " + status.error_message();
  return std::vector<Outcome>(count, mayHaveBeenApplied(status.error_code())
                                         ? outcomeOf(Outcome::kLost, text)
                                         : outcomeOf(status.error_code(), status.error_message()));
}

}  // namespace

class Connection::Grpc {
 public:
  explicit Grpc(const Target& target) : stub(P4Runtime::NewStub(channelTo(target))) {}
  ~Grpc() { streamContext.TryCancel(); }

  std::unique_ptr<P4Runtime::Stub> stub;
  grpc::ClientContext streamContext;
  std::unique_ptr<grpc::ClientReaderWriter<StreamMessageRequest, StreamMessageResponse>> stream;
};

Connection::Connection(Target target) : target_(std::move(target)), grpc_(std::make_unique<Grpc>(target_)) {}
Connection::~Connection() = default;

p4::config::v1::P4Info Connection::p4Info() {
  GetForwardingPipelineConfigRequest request;
  request.set_device_id(target_.device);
  request.set_response_type(GetForwardingPipelineConfigRequest::P4INFO_AND_COOKIE);
  GetForwardingPipelineConfigResponse response;
  grpc::ClientContext context;
  context.set_deadline(std::chrono::system_clock::now() + kShortCall);
  const grpc::Status status = grpc_->stub->GetForwardingPipelineConfig(&context, request, &response);
  if (!status.ok()) refuse("GetForwardingPipelineConfig", status);
  return response.config().p4info();
}

void Connection::becomePrimary() {
  if (!target_.electionId) target_.electionId = wallClockNanoseconds();
  grpc_->stream = grpc_->stub->StreamChannel(&grpc_->streamContext);
  StreamMessageRequest request;
  MasterArbitrationUpdate& arbitration = *request.mutable_arbitration();
  arbitration.set_device_id(target_.device);
  arbitration.mutable_election_id()->set_low(*target_.electionId);
  if (!target_.role.empty()) arbitration.mutable_role()->set_name(target_.role);
  grpc_->stream->Write(request);
  StreamMessageResponse response;
  if (!grpc_->stream->Read(&response)) refuse("StreamChannel", grpc_->stream->Finish());
  const MasterArbitrationUpdate& notice = response.arbitration();
  if (response.has_arbitration() && notice.status().code() == 0) return;
  const std::string got = response.has_arbitration()
                              ? "the highest seen is " + std::to_string(notice.election_id().low())
                              : response.error().message();
  throw Cairn::Exception("expected to become primary with election id " +
                         std::to_string(*target_.electionId) + ", got " + got);
}

std::vector<Outcome> Connection::write(std::vector<Update> updates, Atomicity atomicity) {
  WriteRequest request;
  request.set_device_id(target_.device);
  request.set_role(target_.role);
  request.mutable_election_id()->set_low(target_.electionId.value_or(0));
  request.set_atomicity(atomicity == Atomicity::rollbackOnError ? WriteRequest::ROLLBACK_ON_ERROR
                                                                : WriteRequest::CONTINUE_ON_ERROR);
  request.mutable_updates()->Reserve(static_cast<int>(updates.size()));
  for (Update& update : updates) *request.add_updates() = std::move(update);
  WriteResponse response;
  grpc::ClientContext context;
  return outcomesOf(grpc_->stub->Write(&context, request, &response), updates.size());
}

void Connection::read(const std::vector<TableEntry>& wanted,
                      const std::function<void(const TableEntry&)>& use) {
  ReadRequest request;
  request.set_device_id(target_.device);
  request.set_role(target_.role);
  for (const TableEntry& entry : wanted) *request.add_entities()->mutable_table_entry() = entry;
  grpc::ClientContext context;
  const auto reader = grpc_->stub->Read(&context, request);
  for (ReadResponse response; reader->Read(&response);) {
    for (const Entity& entity : response.entities()) {
      if (entity.has_table_entry()) use(entity.table_entry());
    }
  }
  const grpc::Status status = reader->Finish();
  if (status.ok()) return;
  for (const Outcome& outcome : outcomesOf(status, wanted.size())) {
    if (!outcome.ok()) throw Cairn::Exception("read: " + textOf(outcome) + ": " + outcome.message);
  }
}

}  // namespace Client
