// Both agents and the calls of one controller in one thread, without gRPC's part: each allocation of the
// calls can be made to fail.
#include <gtest/gtest.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

#include <deque>

#include "BothPrograms.h"
#include "apps/p4/P4Info.h"
#include "apps/server/ConfigCalls.h"
#include "apps/server/ReadCall.h"
#include "apps/server/StreamCall.h"
#include "apps/server/WriteCall.h"
#include "tests/p4/Entries.h"

namespace {

using namespace Server;
using namespace p4::v1;
using namespace std::chrono_literals;

/// What gRPC does with a call: keeps what the reactor asks for until the test has it happen.
template <class Base, class Reactor>
class Fake : public Base {
 public:
  explicit Fake(Reactor* made) : made_(made) { this->BindReactor(made); }
  void Finish(grpc::Status status) override { end = std::move(status); }
  void SendInitialMetadata() override { isMetadataWanted_ = true; }
  void proceed() {
    if (std::exchange(isMetadataWanted_, false)) made_->OnSendInitialMetadataDone(true);
    if constexpr (requires { made_->OnWriteDone(true); }) {
      while (std::exchange(isWritten_, false)) made_->OnWriteDone(true);
    }
    if (end && !std::exchange(isDone_, true)) made_->OnDone();
  }

  std::optional<grpc::Status> end;

 protected:
  Reactor* made_;  // not owned; gone with OnDone()
  bool isWritten_ = false;

 private:
  bool isMetadataWanted_ = false;
  bool isDone_ = false;
  grpc::internal::ServerReactor* reactor() override { return made_; }
  void CallOnDone() override {}
};

using Unary = Fake<grpc::ServerCallbackUnary, grpc::ServerUnaryReactor>;
struct Reading : Fake<grpc::ServerCallbackWriter<ReadResponse>, grpc::ServerWriteReactor<ReadResponse>> {
  using Fake::Fake;
  void Write(const ReadResponse*, grpc::WriteOptions) override { isWritten_ = true; }
  void WriteAndFinish(const ReadResponse*, grpc::WriteOptions, grpc::Status) override {}
};
using StreamReactor = grpc::ServerBidiReactor<StreamMessageRequest, StreamMessageResponse>;
struct Streaming
    : Fake<grpc::ServerCallbackReaderWriter<StreamMessageRequest, StreamMessageResponse>, StreamReactor> {
  using Fake::Fake;
  void Read(StreamMessageRequest* place) override { wanted = place; }
  void Write(const StreamMessageResponse* response, grpc::WriteOptions) override {
    heard = response->arbitration().status().code();
    isWritten_ = true;
  }
  void WriteAndFinish(const StreamMessageResponse*, grpc::WriteOptions, grpc::Status) override {}
  void proceed() {
    while (std::exchange(isWritten_, false)) made_->OnWriteDone(true);
    if (end && std::exchange(wanted, nullptr) != nullptr) made_->OnReadDone(false);
    Fake::proceed();
  }
  void say(std::uint64_t id) {
    wanted->Clear();
    wanted->mutable_arbitration()->set_device_id(1);
    wanted->mutable_arbitration()->mutable_election_id()->set_low(id);
    wanted = nullptr;
    made_->OnReadDone(true);
  }
  StreamMessageRequest* wanted = nullptr;
  std::optional<int> heard;
};

class Calls : public BothPrograms {
 public:
  using BothPrograms::BothPrograms;
  ~Calls() {
    device_.stop();
    for (Streaming& stream : streams_) stream.proceed();
  }

  /// The call's code. One that could not be made at all is RESOURCE_EXHAUSTED: gRPC answers it then.
  template <class Call, class Make>
  int code(const Make& make) {
    Armed armed(*this);
    decltype(make()) reactor = nullptr;
    if (!succeeds([&] { reactor = make(); })) return 8;
    Call call(reactor);
    while (!call.end) advance(call);
    call.proceed();
    return call.end->error_code();
  }
  /// Becomes primary with that id; false when the stream has ended instead.
  bool lead(std::uint64_t id) {
    Armed armed(*this);
    StreamReactor* reactor = nullptr;
    if (!succeeds([&] { reactor = StreamCall::make(device_, nullptr); })) return false;
    auto& stream = streams_.emplace_back(reactor);
    while (!stream.end && stream.wanted == nullptr) advance(stream);
    if (stream.end) return false;
    if (!succeeds([&] { stream.say(id); })) stream.say(id);  // for the message, which is gRPC's
    while (!stream.end && !stream.heard) advance(stream);
    return !stream.end;
  }
  Device& device() { return device_; }

 private:
  template <class Call>
  void advance(Call& call) {
    call.proceed();
    step(10ms);
  }

  Device device_{
      loop_,
      agent_.core(),
      [this](std::vector<Agent::Update> updates, Agent::Atomicity atomicity, Agent::AgentCore::Done done) {
        agent_.submit(std::move(updates), atomicity, std::move(done));
      },
      {.arbitration = {}, .runtimeFolder = folder_.path(), .details = {}}};
  std::deque<Streaming> streams_;
};

// For each allocation of the calls: at most one of them fails, all are ended, and nothing is left of them.
TEST(CallsOutOfMemory, EndOneRequestAndNoMore) {
#ifdef __SANITIZE_ADDRESS__
  const __lsan::ScopedDisabler ignoring;  // protobuf leaks when an allocation fails
#endif
  WriteRequest write;
  ReadRequest read;
  SetForwardingPipelineConfigRequest set;
  GetForwardingPipelineConfigRequest get;
  GetForwardingPipelineConfigResponse got;
  write.set_device_id(1), read.set_device_id(1), set.set_device_id(1), get.set_device_id(1);
  Entries::Random random;
  for (const Wire::Table& table : Entries::pipeline().tables()) {
    *write.add_updates() = Entries::updateOf(Entries::randomEntry(table, random));
  }
  write.add_updates();
  read.add_entities()->mutable_table_entry();
  set.set_action(SetForwardingPipelineConfigRequest::VERIFY_AND_COMMIT);
  *set.mutable_config()->mutable_p4info() = Wire::p4InfoOf(Entries::pipeline());
  bool failed = true;
  for (std::size_t nth = 1; failed; nth += 1 + nth / 12) {
    SCOPED_TRACE(nth);
    Calls calls(nth);
    Device& device = calls.device();
    int refused = 0;
    std::uint64_t id = 1;
    for (; !calls.lead(id); ++id) ++refused;
    write.mutable_election_id()->set_low(id);
    set.mutable_election_id()->set_low(id);
    const auto expect = [&refused](int expected, int code) {
      refused += code == expected ? 0 : 1;
      EXPECT_TRUE(code == expected || code == 8) << code;
    };
    expect(2, calls.code<Unary>([&] { return new WriteCall(device, write); }));
    expect(0, calls.code<Reading>([&] { return new ReadCall(device, nullptr, read); }));
    expect(0, calls.code<Unary>([&] { return new SetConfigCall(device, set); }));
    expect(0, calls.code<Unary>([&] { return new GetConfigCall(device, nullptr, get, got); }));
    EXPECT_EQ(device.requestsInFlight(), 0u);
    EXPECT_LE(refused, 1);
    failed = calls.failed();
  }
}

}  // namespace
