#include "apps/client/Connection.h"

#include <grpcpp/create_channel_posix.h>
#include <grpcpp/grpcpp.h>
#include <unistd.h>

#include <fstream>
#include <optional>
#include <sstream>
#include <utility>

#include "apps/client/UnixConnection.h"
#include "cairn/Exception.h"
#include "google/rpc/status.pb.h"
#include "p4/v1/p4runtime.grpc.pb.h"

namespace Client {

namespace {

using namespace p4::v1;

/// For the trailer with one error for each update, which the default of 8192 bytes would replace by an error.
constexpr int kMaxMetadataBytes = 256 << 20;
constexpr int kAttempts = 10;                   // to become primary, where another client is faster
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

bool isBelow(const Uint128& a, const Uint128& b) {
  return std::pair(a.high(), a.low()) < std::pair(b.high(), b.low());
}

Uint128 following(Uint128 id) {
  id.set_low(id.low() + 1);
  if (id.low() == 0) id.set_high(id.high() + 1);
  return id;
}

std::string textOf(const Uint128& id) {
  return (id.high() == 0 ? "" : std::to_string(id.high()) + ".") + std::to_string(id.low());
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

/// A stream on which the client takes part in the arbitration of one role.
class Candidacy {
 public:
  Candidacy(P4Runtime::Stub& stub, const Target& target) : stream_(stub.StreamChannel(&context_)) {
    request_.mutable_arbitration()->set_device_id(target.device);
    if (!target.role.empty()) request_.mutable_arbitration()->mutable_role()->set_name(target.role);
  }
  ~Candidacy() { context_.TryCancel(); }
  Candidacy(const Candidacy&) = delete;
  Candidacy& operator=(const Candidacy&) = delete;

  /// The highest id that the server knows. To be called first, while nothing else is reported here.
  Uint128 highestId() {
    stream_->Write(request_);
    MasterArbitrationUpdate notice;
    if (!read(notice)) refuse("StreamChannel", status_);
    return notice.election_id();
  }
  /// Whether the client is primary with that id; it waits for a takeover.
  bool wins(const Uint128& id) {
    *request_.mutable_arbitration()->mutable_election_id() = id;
    stream_->Write(request_);
    MasterArbitrationUpdate notice;
    while (read(notice)) {
      if (notice.status().code() == grpc::OK) return true;
      highest_ = notice.election_id();
      if (!isBelow(highest_, id)) return false;  // otherwise the server had not read the request yet
    }
    // Another controller has the same id.
    if (status_.error_code() == grpc::INVALID_ARGUMENT) return false;
    refuse("StreamChannel", status_);
  }
  /// Why wins() was false.
  std::string reason() const {
    return status_.ok() ? "the highest seen is " + textOf(highest_) : status_.error_message();
  }

 private:
  bool read(MasterArbitrationUpdate& notice) {
    StreamMessageResponse response;
    const bool isRead = stream_->Read(&response);
    if (isRead) {
      notice = response.arbitration();
    } else {
      status_ = stream_->Finish();
    }
    return isRead;
  }

  grpc::ClientContext context_;
  std::unique_ptr<grpc::ClientReaderWriter<StreamMessageRequest, StreamMessageResponse>> stream_;
  StreamMessageRequest request_;
  Uint128 highest_;
  grpc::Status status_;
};

}  // namespace

class Connection::Grpc {
 public:
  explicit Grpc(const Target& target) : stub(P4Runtime::NewStub(channelTo(target))) {}

  std::unique_ptr<P4Runtime::Stub> stub;
  std::optional<Candidacy> candidacy;
  Uint128 electionId;
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
  const int attempts = target_.electionId ? 1 : kAttempts;
  for (int i = 0; i < attempts; ++i) {
    Candidacy& candidacy = grpc_->candidacy.emplace(*grpc_->stub, target_);
    if (target_.electionId) {
      grpc_->electionId.set_low(*target_.electionId);
    } else {
      grpc_->electionId = following(candidacy.highestId());
    }
    if (candidacy.wins(grpc_->electionId)) return;
  }
  throw Cairn::Exception("expected to become primary with election id " + textOf(grpc_->electionId) +
                         ", got " + grpc_->candidacy->reason());
}

std::vector<Outcome> Connection::write(std::vector<Update> updates, Atomicity atomicity) {
  WriteRequest request;
  request.set_device_id(target_.device);
  request.set_role(target_.role);
  *request.mutable_election_id() = grpc_->electionId;
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
