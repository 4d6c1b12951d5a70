#include "Controller.h"

#include "apps/p4/Pipeline.h"
#include "cairn/Exception.h"

namespace {

using namespace p4::v1;

constexpr std::size_t kEntries = 8192;

const Wire::Table& table() {
  static const Wire::Pipeline pipeline(Wire::outputTables());
  for (const Wire::Table& each : pipeline.tables()) {
    if (each.name == "l3IifTH3") return each;
  }
  throw Cairn::Exception("expected a table l3IifTH3 in the pipeline, got none");
}

std::string value(std::size_t number) {
  if (number < 256) return {static_cast<char>(number)};
  return {static_cast<char>(number >> 8), static_cast<char>(number & 0xff)};
}

void addUpdate(WriteRequest& request, Update::Type type, std::size_t key) {
  Update& update = *request.add_updates();
  update.set_type(type);
  TableEntry& entry = *update.mutable_entity()->mutable_table_entry();
  entry.set_table_id(table().id);
  FieldMatch& match = *entry.add_match();
  match.set_field_id(1);
  match.mutable_exact()->set_value(value(key));
  Action& action = *entry.mutable_action()->mutable_action();
  action.set_action_id(table().actionId);
  for (const Wire::Field& field : table().parameters) {
    Action::Param& parameter = *action.add_params();
    parameter.set_param_id(field.id);
    parameter.set_value(field.name == "vrf" ? value(key % 64 + 1) : value(1));
  }
}

WriteRequest requestOf(Update::Type type, std::size_t firstKey, std::size_t updates) {
  WriteRequest request;
  request.set_device_id(1);
  request.mutable_election_id()->set_low(1);
  for (std::size_t i = 0; i < updates; ++i) addUpdate(request, type, (firstKey + i) % kEntries + 1);
  return request;
}

}  // namespace

struct Controller::Call {
  grpc::ClientContext context;
  WriteResponse response;
  grpc::Status status;
  std::unique_ptr<grpc::ClientAsyncResponseReader<WriteResponse>> reader;
};

Controller::Controller(const std::string& socket, Arbitration arbitration) {
  grpc::ChannelArguments arguments;
  arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
  arguments.SetInt(GRPC_ARG_MAX_METADATA_SIZE, 4 << 20);
  stub_ = P4Runtime::NewStub(
      grpc::CreateCustomChannel("unix:" + socket, grpc::InsecureChannelCredentials(), arguments));
  if (arbitration == Arbitration::none) return;
  stream_ = stub_->StreamChannel(&streamContext_);
  StreamMessageRequest claim;
  claim.mutable_arbitration()->set_device_id(1);
  claim.mutable_arbitration()->mutable_election_id()->set_low(1);
  StreamMessageResponse answer;
  if (!stream_->Write(claim) || !stream_->Read(&answer) || answer.arbitration().status().code() != 0) {
    throw Cairn::Exception("the server at " + socket + " does not make the benchmark primary");
  }
}

Controller::~Controller() { streamContext_.TryCancel(); }

const WriteRequest& Controller::request(std::size_t updates, std::size_t place) {
  const auto [found, isNew] = requests_.try_emplace({updates, place});
  if (isNew) found->second = requestOf(Update::MODIFY, place * updates, updates);
  return found->second;
}

void Controller::insert(std::size_t entries) {
  start(requestOf(Update::INSERT, 0, entries));
  finish();
}

void Controller::modify(std::size_t count, std::size_t updates, std::size_t inFlight) {
  std::size_t started = 0;
  for (std::size_t done = 0; done < count; ++done) {
    for (; started < count && started < done + inFlight; ++started) {
      start(request(updates, started % inFlight));
    }
    finish();
  }
}

void Controller::start(const Request& request) {
  auto call = std::make_unique<Call>();
  call->reader = stub_->AsyncWrite(&call->context, request, &answers_);
  Call& started = *call.release();  // finish() owns it
  started.reader->Finish(&started.response, &started.status, &started);
}

void Controller::finish() {
  void* tag = nullptr;
  bool ok = false;
  answers_.Next(&tag, &ok);
  const std::unique_ptr<Call> call(static_cast<Call*>(tag));
  if (!call->status.ok()) {
    throw Cairn::Exception("expected OK, got " + std::to_string(call->status.error_code()) + " " +
                           call->status.error_message());
  }
}
