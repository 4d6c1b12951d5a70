// An agent, a hardware agent and controllers over gRPC, and short texts for updates, entries and outcomes.
#pragma once

#include <gmock/gmock.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <sstream>

#include "apps/counters/CounterView.h"
#include "apps/p4/P4Info.h"
#include "google/rpc/status.pb.h"
#include "p4/v1/p4runtime.grpc.pb.h"
#include "tests/RuntimeFolder.h"
#include "tests/end_to_end/Program.h"
#include "tests/p4/Entries.h"

using namespace p4::v1;
using Set = SetForwardingPipelineConfigRequest;
using Strings = std::vector<std::string>;

/// A controller on a connection and a stream of its own.
class Controller {
 public:
  explicit Controller(
      const std::string& address,
      const std::shared_ptr<grpc::ChannelCredentials>& credentials = grpc::InsecureChannelCredentials()) {
    grpc::ChannelArguments arguments;
    arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
    arguments.SetInt(GRPC_ARG_MAX_METADATA_SIZE, 4 << 20);
    stub = P4Runtime::NewStub(grpc::CreateCustomChannel(address, credentials, arguments));
    stream = stub->StreamChannel(&streamContext);
  }
  ~Controller() { streamContext.TryCancel(); }

  /// Sends an election id and returns what is heard next.
  std::string say(std::uint64_t id, std::uint64_t device = 1, std::uint64_t high = 0) {
    StreamMessageRequest request;
    request.mutable_arbitration()->set_device_id(device);
    request.mutable_arbitration()->mutable_election_id()->set_low(id);
    request.mutable_arbitration()->mutable_election_id()->set_high(high);
    stream->Write(request);
    return hear();
  }
  /// The next notice: its code and the highest id; or "end" and the stream's code.
  std::string hear() {
    StreamMessageResponse response;
    if (!stream->Read(&response)) return "end " + std::to_string(stream->Finish().error_code());
    const auto& notice = response.arbitration();
    if (response.has_error()) return "error " + std::to_string(response.error().canonical_code());
    return std::to_string(notice.status().code()) + " " + std::to_string(notice.election_id().low());
  }

  std::unique_ptr<P4Runtime::Stub> stub;
  grpc::ClientContext streamContext;
  std::unique_ptr<grpc::ClientReaderWriter<StreamMessageRequest, StreamMessageResponse>> stream;
};

/// A call that is in progress while the test does something else.
struct Pending {
  grpc::ClientContext context;
  std::future<std::string> outcome;
};

/// "+5=9" inserts entry 5 of l3IifTH3 with VRF 9, "~5=9" modifies and "-5" removes it; "+5=9:text" has that
/// metadata. "?" has no entity.
inline Update update(const std::string& text) {
  Update made;
  made.set_type(text[0] == '+' ? Update::INSERT : text[0] == '~' ? Update::MODIFY : Update::DELETE);
  if (text[0] == '?') return made;
  std::istringstream in(text.substr(1));
  std::uint16_t key = 0;
  std::uint16_t vrf = 1;
  char sign = 0;
  in >> key >> sign >> vrf;
  TableEntry& entry = *made.mutable_entity()->mutable_table_entry();
  entry = Entries::filledEntry(Entries::pipeline().tables()[3], [&](const Wire::Field& field) {
    const int number = field.name == "l3Iif" ? key : field.name == "vrf" ? vrf : 1;
    const std::string value{static_cast<char>(number >> 8), static_cast<char>(number & 0xff)};
    return value;
  });
  if (text[0] == '-') entry.clear_action();
  if (const std::size_t colon = text.find(':'); colon != std::string::npos) {
    entry.set_metadata(text.substr(colon + 1));
  }
  return made;
}

/// The entry of such an update, "5=9:text".
inline std::pair<int, std::string> textOf(const TableEntry& entry) {
  const auto number = [](const std::string& bytes) {
    int value = 0;
    for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
    return value;
  };
  const int key = number(entry.match(0).exact().value());
  std::string text =
      std::to_string(key) + "=" + std::to_string(number(entry.action().action().params(9).value()));
  return {key, entry.metadata().empty() ? text : text + ":" + entry.metadata()};
}

class P4RuntimeTest : public testing::Test {
 protected:
  void startHardware(const Strings& more = {}) {
    Strings all = {HW_AGENT, "-r", folder_.path(), "--fail", "l3IifTH3:l3Iif=99:7"};
    all.insert(all.end(), more.begin(), more.end());
    hardware_ = std::make_unique<Program>(all);
    ASSERT_TRUE(hardware_->says("following the tables"));
  }
  void startAgent(const Strings& more = {}) {
    Strings all = {P4RT_AGENT, "-r", folder_.path(), "--timeout", "0.5"};
    all.insert(all.end(), more.begin(), more.end());
    agent_ = std::make_unique<Program>(all);
    ASSERT_TRUE(agent_->says("serving P4Runtime at " + address().substr(5)));
  }
  std::string address() const { return "unix:" + folder_.path() + "/p4runtime.sock"; }

  static WriteRequest request(const Strings& updates, std::uint64_t id = 1, int atomicity = 0,
                              std::uint64_t device = 1) {
    WriteRequest made;
    made.set_device_id(device);
    made.mutable_election_id()->set_low(id);
    made.set_atomicity(static_cast<WriteRequest::Atomicity>(atomicity));
    for (const std::string& text : updates) *made.add_updates() = update(text);
    return made;
  }
  /// Hardware, agent and a controller that is primary with election id 1.
  void start(const Strings& ofAgent = {}, const Strings& ofHardware = {}) {
    startHardware(ofHardware);
    startAgent(ofAgent);
    primary_ = std::make_unique<Controller>(address());
    ASSERT_EQ(primary_->say(1), "0 1");
  }
  /// Ends the agent and starts another.
  void restart(int signal) {
    agent_->signal(signal);
    EXPECT_EQ(primary_->hear(), "end 14");
    EXPECT_EQ(agent_->exitCode(), signal == SIGKILL ? 128 + SIGKILL : 0) << agent_->output();
    startAgent();
    primary_ = std::make_unique<Controller>(address());
  }
  /// Writes more than fits in the buffers between agent and client.
  Strings fill() {
    Strings updates;
    for (int key = 1000; key < 9192; ++key) {
      updates.push_back("+" + std::to_string(key) + "=1:" + std::string(900, 'm'));
    }
    EXPECT_EQ(write(updates), "0");
    return updates;
  }
  using AgentView = Counters::CounterView<Counters::AgentCounts>;
  AgentView counters() const { return AgentView(folder_.path() + "/p4rt-agent.counters"); }
  using Reader = grpc::ClientReader<ReadResponse>;
  std::unique_ptr<Reader> startRead(grpc::ClientContext& context) {
    ReadRequest all;
    all.set_device_id(1);
    all.add_entities()->mutable_table_entry();
    return primary_->stub->Read(&context, all);
  }
  std::unique_ptr<Pending> startWrite(const Strings& updates) {
    auto made = std::make_unique<Pending>();
    made->outcome =
        std::async(std::launch::async, [this, &context = made->context, asked = request(updates)] {
          WriteResponse response;
          return outcome(primary_->stub->Write(&context, asked, &response));
        });
    return made;
  }
  /// The outcome of a Set of the whole pipeline, or of one without l3IifTH3.
  std::string set(Set::Action action, bool isWhole = true) {
    Set request;
    request.set_device_id(1);
    request.mutable_election_id()->set_low(1);
    request.set_action(action);
    auto& info = *request.mutable_config()->mutable_p4info();
    info = Wire::p4InfoOf(Entries::pipeline());
    if (!isWhole) {
      info.mutable_tables()->RemoveLast();
      info.mutable_actions()->RemoveLast();
    }
    grpc::ClientContext context;
    SetForwardingPipelineConfigResponse response;
    return outcome(primary_->stub->SetForwardingPipelineConfig(&context, request, &response));
  }
  static std::string endOf(Reader& reader) {
    for (ReadResponse response; reader.Read(&response);) continue;
    return outcome(reader.Finish());
  }

  /// The call's code, then, if it has details, the code of each update ("13/7" with the hardware's).
  std::string write(const Strings& updates, std::uint64_t id = 1, int atomicity = 0) {
    return write(*primary_, request(updates, id, atomicity));
  }
  static std::string write(Controller& controller, const WriteRequest& request) {
    grpc::ClientContext context;
    WriteResponse response;
    return outcome(controller.stub->Write(&context, request, &response));
  }
  static std::string outcome(const grpc::Status& status) {
    std::string text = std::to_string(status.error_code());
    google::rpc::Status details;
    details.ParseFromString(status.error_details());
    for (const auto& detail : details.details()) {
      Error error;
      EXPECT_TRUE(detail.UnpackTo(&error));
      EXPECT_EQ(error.canonical_code() == 0, error.message().empty());
      EXPECT_EQ(error.code() == 0, error.space().empty());
      text += " " + std::to_string(error.canonical_code());
      if (error.code() != 0) text += "/" + std::to_string(error.code());
    }
    return text;
  }
  /// Of l3IifTH3: "5=9:text" for each entry in order of the keys, then the outcome.
  std::string read(const Strings& keys = {}) { return read(*primary_, keys); }
  static std::string read(Controller& controller, const Strings& keys = {}) {
    ReadRequest request;
    request.set_device_id(1);
    for (const std::string& key : keys) *request.add_entities() = update(key).entity();
    if (keys.empty()) request.add_entities()->mutable_table_entry();
    grpc::ClientContext context;
    const auto reader = controller.stub->Read(&context, request);
    std::map<int, std::string> entries;
    for (ReadResponse response; reader->Read(&response);) {
      for (const Entity& entity : response.entities()) {
        EXPECT_TRUE(entries.insert(textOf(entity.table_entry())).second) << "each entry once";
      }
    }
    std::string all;
    for (const auto& [key, text] : entries) all += text + " ";
    return all + outcome(reader->Finish());
  }

  RuntimeFolder folder_{"/dev/shm"};
  std::unique_ptr<Program> hardware_;
  std::unique_ptr<Program> agent_;
  std::unique_ptr<Controller> primary_;
};
