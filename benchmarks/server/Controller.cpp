#include "Controller.h"

#include <algorithm>

#include "apps/p4/Pipeline.h"
#include "cairn/Exception.h"

namespace {

using namespace p4::v1;

const Wire::Pipeline& pipeline() {
  static const Wire::Pipeline made(Wire::outputTables());
  return made;
}

const Wire::Table& tableOf(const std::string& name) {
  for (const Wire::Table& table : pipeline().tables()) {
    if (table.name == name) return table;
  }
  throw Cairn::Exception("expected a table " + name + " in the pipeline, got none");
}

std::string value(std::size_t number) {
  if (number < 256) return {static_cast<char>(number)};
  return {static_cast<char>(number >> 8), static_cast<char>(number & 0xff)};
}

/// Entry `number`, from 1, of the table: its widest match field, or its priority, is that number.
void addUpdate(WriteRequest& request, Update::Type type, const Wire::Table& table, std::size_t number) {
  Update& update = *request.add_updates();
  update.set_type(type);
  TableEntry& entry = *update.mutable_entity()->mutable_table_entry();
  entry.set_table_id(table.id);
  const auto narrower = [](const Wire::Field& a, const Wire::Field& b) { return a.bits < b.bits; };
  const auto widest = std::max_element(table.matchFields.begin(), table.matchFields.end(), narrower);
  for (const Wire::Field& field : table.matchFields) {
    if (field.mask) continue;  // matches anything
    FieldMatch& match = *entry.add_match();
    match.set_field_id(field.id);
    match.mutable_exact()->set_value(value(&field == &*widest ? number : 1));
  }
  if (table.priority) entry.set_priority(static_cast<std::int32_t>(number));
  Action& action = *entry.mutable_action()->mutable_action();
  action.set_action_id(table.actionId);
  for (const Wire::Field& field : table.parameters) {
    Action::Param& parameter = *action.add_params();
    parameter.set_param_id(field.id);
    parameter.set_value(value(field.name == "vrf" ? number % 64 + 1 : 1));
  }
}

/// Updates of the entries from `first` on, beginning again behind the last that the table has room for.
WriteRequest requestOf(Update::Type type, const Wire::Table& table, std::size_t first, std::size_t updates) {
  WriteRequest request;
  request.set_device_id(1);
  request.mutable_election_id()->set_low(1);
  for (std::size_t i = 0; i < updates; ++i) addUpdate(request, type, table, (first + i) % table.capacity + 1);
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
  if (isNew) found->second = requestOf(Update::MODIFY, tableOf("l3IifTH3"), place * updates, updates);
  return found->second;
}

void Controller::fill(const std::string& name) {
  const Wire::Table& table = tableOf(name);
  start(requestOf(Update::INSERT, table, 0, table.capacity));
  finish();
}

std::size_t Controller::fillAll() {
  std::size_t entries = 0;
  for (const Wire::Table& table : pipeline().tables()) {
    fill(table.name);
    entries += table.capacity;
  }
  return entries;
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
