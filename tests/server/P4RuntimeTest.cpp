// What controllers see of an agent, with real processes and real gRPC.
#include <fstream>
#include <set>

#include "apps/counters/CounterView.h"
#include "apps/p4/P4Info.h"
#include "tests/server/P4RuntimeFixture.h"

namespace {

TEST_F(P4RuntimeTest, Write_CodesOfCallsAndUpdates) {
  startHardware();
  startAgent();
  Controller controller(socket());
  EXPECT_EQ(write(controller, {"+1=1"}), "7") << "no primary yet";
  controller.say(1);
  EXPECT_EQ(controller.hear(), "0 1");
  const struct {
    Strings updates;
    std::uint64_t id;
    int atomicity;
    std::uint64_t device;
    const char* outcome;
  } rows[] = {
      {{"+1=1", "+2=2:two"}, 1, 0, 1, "0"},
      {{}, 1, 0, 1, "0"},
      {{"+1=5", "~3=1", "-4", "+5=5", "?", "+99=1"}, 1, 0, 1, "2 6 5 5 0 3 13/7"},
      {{"~1=5", "+99=1"}, 1, 1, 1, "2 10 13/7"},
      {{"~1=5", "+2=1", "+6=6"}, 1, 1, 1, "2 10 6 10"},
      {{"~1=7", "+6=6"}, 1, 1, 1, "0"},
      {{"+7=7", "+7=8"}, 1, 0, 1, "2 3 3"},
      {{"+7=7"}, 1, 2, 1, "12"},
      {{"+7=7"}, 1, 9, 1, "12"},
      {{"+7=7"}, 2, 0, 1, "7"},
      {{"+7=7"}, 1, 0, 2, "5"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(write(controller, row.updates, row.id, row.atomicity, row.device), row.outcome);
  }
  EXPECT_EQ(read(controller), "1=7 2=2:two 5=5 6=6 0");
  EXPECT_EQ(read(controller, {"-2", "-3", "-2", "?"}), "2=2:two 2 0 0 0 3");
}

TEST_F(P4RuntimeTest, Arbitration_BackupsTakeOverAndBrokenStreamsEnd) {
  startHardware();
  startAgent();
  auto first = std::make_unique<Controller>(socket());
  Controller second(socket());
  first->say(5);
  EXPECT_EQ(first->hear(), "0 5");
  second.say(3);
  EXPECT_EQ(second.hear(), "6 5");
  StreamMessageRequest packet;
  packet.mutable_packet()->set_payload("x");
  first->stream->Write(packet);
  EXPECT_EQ(first->hear(), "error 12");
  EXPECT_EQ(write(second, {"+1=1"}, 3), "7");
  EXPECT_EQ(write(second, {"+1=1"}, 5), "0") << "the id counts, not the connection";
  second.say(6);
  EXPECT_EQ(second.hear(), "0 6");
  EXPECT_EQ(first->hear(), "6 6");
  EXPECT_EQ(write(*first, {"~1=2"}, 5), "7");
  first->say(6);
  EXPECT_EQ(first->hear(), "end 3") << "another controller's id";
  Controller other(socket());
  other.say(1, 2);
  EXPECT_EQ(other.hear(), "end 5");
  first = std::make_unique<Controller>(socket());
  first->say(4);
  EXPECT_EQ(first->hear(), "6 6");
  second.stream->WritesDone();
  EXPECT_EQ(first->hear(), "5 6");
  EXPECT_EQ(write(*first, {"~1=2"}, 6), "7");
}

TEST_F(P4RuntimeTest, Restart_KeepsEntriesMetadataAndTheHighestId) {
  startHardware();
  for (const int signal : {SIGTERM, SIGKILL}) {
    startAgent();
    {
      Controller controller(socket());
      controller.say(9);
      EXPECT_EQ(controller.hear(), "0 9");
      EXPECT_EQ(write(controller, {signal == SIGTERM ? "+1=1:kept" : "~1=2:new"}, 9), "0");
      agent_->signal(signal);
      EXPECT_EQ(controller.hear(), "end 14");
    }
    EXPECT_EQ(agent_->exitCode(), signal == SIGTERM ? 0 : 128 + SIGKILL) << agent_->output();
    startAgent();
    Controller controller(socket());
    EXPECT_EQ(read(controller), signal == SIGTERM ? "1=1:kept 0" : "1=2:new 0");
    controller.say(8);
    EXPECT_EQ(controller.hear(), "5 9") << "below the highest";
    agent_->signal(SIGTERM);
    EXPECT_EQ(agent_->exitCode(), 0) << agent_->output();
  }
}

// What the hardware refuses leaves no trace; its faults are those of the file when it was last told to read
// it.
TEST_F(P4RuntimeTest, Refusal_IsUndoneAndFaultsChangeWhileTheHardwareAgentRuns) {
  const std::string faults = folder_.path() + "/faults";
  std::ofstream(faults) << "# none yet\n";
  startHardware({"--faults", faults});
  startAgent();
  Controller controller(socket());
  controller.say(1);
  EXPECT_EQ(controller.hear(), "0 1");
  EXPECT_EQ(write(controller, {"+1=1:one", "+2=2"}), "0");
  const std::string bad =
      "the faults stay as they were: faults file " + faults + ", line 2: expected a field";
  const struct {
    const char* file;
    std::string says;
    const char* write;
    const char* outcome;
    const char* read;
  } rows[] = {{"l3IifTH3:vrf=4095:7  # on any entry\n", "read the faults file again", "~1=4095:new", "2 13/7",
               "1=1:one 2=2 0"},
              {"\nl3IifTH3:wrf=1:9\n", bad, "~2=4095", "2 13/7", "1=1:one 2=2 0"},
              {"", "read the faults file again", "~1=4095", "0", "1=4095 2=2 0"},
              {"l3IifTH3:l3Iif=3,vrf=1:8\n", "read the faults file again", "+3=1", "2 13/8", "1=4095 2=2 0"}};
  for (const auto& row : rows) {
    std::ofstream(faults) << row.file;
    hardware_->signal(SIGHUP);
    ASSERT_TRUE(hardware_->saysNext(row.says));
    EXPECT_EQ(write(controller, {row.write}), row.outcome);
    EXPECT_EQ(read(controller), row.read);
  }
}

TEST_F(P4RuntimeTest, Example_ControllerInPythonRunsAgainAndAgain) {
  startHardware();
  startAgent();
  for (int i = 0; i < 2; ++i) {
    Program example(
        {"/usr/bin/env", "PYTHONPATH=" PYTHON_STUBS, "/usr/bin/python3", CONTROLLER, "unix:" + socket()});
    EXPECT_EQ(example.exitCode(), 0);
    EXPECT_THAT(example.output(), testing::MatchesRegex("update 4: error 11: .*vrf.*\n"
                                                        "4 of 4 entries were read back as written\n"));
  }
}

/// A call that is in progress while the test does something else.
template <class Response>
struct Pending {
  template <class Start>
  explicit Pending(const Start& start) : call(start(&context, &queue)) {
    call->Finish(&response, &status, nullptr);
  }
  grpc::Status wait() {
    void* tag = nullptr;
    bool done = false;
    EXPECT_TRUE(queue.Next(&tag, &done) && done);
    return status;
  }
  grpc::ClientContext context;
  grpc::CompletionQueue queue;
  Response response;
  grpc::Status status;
  std::unique_ptr<grpc::ClientAsyncResponseReader<Response>> call;
};

SetForwardingPipelineConfigRequest configOf(SetForwardingPipelineConfigRequest::Action action) {
  SetForwardingPipelineConfigRequest made;
  made.set_device_id(1);
  made.mutable_election_id()->set_low(1);
  made.set_action(action);
  *made.mutable_config()->mutable_p4info() = Wire::p4InfoOf(Entries::pipeline());
  return made;
}

// The hardware agent is stopped: the commit waits for it, and the primary's Write for the commit.
TEST_F(P4RuntimeTest, Commit_DelaysWritesOfThePrimaryAndNoRefusals) {
  startHardware();
  startAgent({"--timeout", "30"});
  Controller controller(socket());
  controller.say(1);
  EXPECT_EQ(controller.hear(), "0 1");
  EXPECT_EQ(write(controller, {"+1=1"}), "0");
  hardware_->signal(SIGSTOP);
  const auto commit = configOf(SetForwardingPipelineConfigRequest::VERIFY_AND_COMMIT);
  Pending<SetForwardingPipelineConfigResponse> committing([&](auto* context, auto* queue) {
    return controller.stub->AsyncSetForwardingPipelineConfig(context, commit, queue);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));  // nothing shows that it has begun
  const WriteRequest insertion = request({"+2=2"});
  Pending<WriteResponse> waiting(
      [&](auto* context, auto* queue) { return controller.stub->AsyncWrite(context, insertion, queue); });
  EXPECT_EQ(write(controller, {"+2=2"}, 2), "7");
  EXPECT_EQ(write(controller, {"+2=2"}, 1, 2), "12");
  hardware_->signal(SIGCONT);
  EXPECT_EQ(outcome(committing.wait()), "0");
  EXPECT_EQ(outcome(waiting.wait()), "0");
  EXPECT_EQ(read(controller), "2=2 0");
}

// A removal that is out of time may still be undone: until then its entry is there.
TEST_F(P4RuntimeTest, Commit_CountsEntriesWhoseRemovalIsUndecided) {
  startHardware();
  startAgent();
  Controller controller(socket());
  controller.say(1);
  EXPECT_EQ(controller.hear(), "0 1");
  const auto set = [&controller](const SetForwardingPipelineConfigRequest& request) {
    grpc::ClientContext context;
    SetForwardingPipelineConfigResponse response;
    return outcome(controller.stub->SetForwardingPipelineConfig(&context, request, &response));
  };
  EXPECT_EQ(write(controller, {"+1=1"}), "0");
  hardware_->signal(SIGSTOP);
  EXPECT_EQ(write(controller, {"-1"}), "2 4");
  EXPECT_EQ(set(configOf(SetForwardingPipelineConfigRequest::VERIFY_AND_COMMIT)), "4");
  auto narrow = configOf(SetForwardingPipelineConfigRequest::RECONCILE_AND_COMMIT);
  narrow.mutable_config()->mutable_p4info()->mutable_tables()->RemoveLast();
  narrow.mutable_config()->mutable_p4info()->mutable_actions()->RemoveLast();
  EXPECT_EQ(set(narrow), "3");
  hardware_->signal(SIGCONT);
  EXPECT_EQ(set(configOf(SetForwardingPipelineConfigRequest::VERIFY_AND_COMMIT)), "0");
  EXPECT_EQ(set(narrow), "0");
  EXPECT_EQ(read(controller), "0");
}

TEST_F(P4RuntimeTest, Counters_FollowRequestsAndTheirUpdates) {
  startHardware();
  startAgent();
  Controller controller(socket());
  controller.say(1);
  EXPECT_EQ(controller.hear(), "0 1");
  EXPECT_EQ(write(controller, {"+1=9", "+99=9"}), "2 0 13/7");
  EXPECT_EQ(write(controller, {"-1"}, 2), "7");
  EXPECT_EQ(read(controller), "1=9 0");
  Counters::CounterView<Counters::AgentCounts> view(folder_.path() + "/p4rt-agent.counters");
  while (view.words().server.requests < 3 || view.words().vrfs == 0) view.read();
  const auto& server = view.words().server;
  const auto& table = view.words().tables[3];
  EXPECT_EQ(server.requests, 3u);
  EXPECT_EQ(server.rejections, 1u);
  EXPECT_EQ(server.streams, 1u);
  EXPECT_EQ(server.connections, 1u);
  EXPECT_GT(server.requestBytes, 100u);
  EXPECT_EQ(server.requestsInFlight + server.bytesInFlight + server.batchesInFlight, 0u);
  EXPECT_EQ(table.completions[0] + table.completions[7], 3u) << "that of the undo, too";
  EXPECT_EQ(table.highWater, 2u);
  EXPECT_EQ(view.words().hardwareProcess, static_cast<std::uint64_t>(hardware_->pid()));
  EXPECT_EQ(view.words().vrfReferences[0], std::uint64_t{9} << 32 | 1);
}

// One request at a time: another is refused until the Read whose client does not read has been given up.
TEST_F(P4RuntimeTest, Stalled_ReaderIsGivenUpAndHoldsNobodyUp) {
  startHardware();
  startAgent({"--timeout", "30", "--client-timeout", "0.5", "--max-requests", "1"});
  Controller controller(socket());
  fill(controller);
  grpc::ClientContext context;
  const auto stalled = startRead(controller, context);
  while (read(controller, {"-1"}) != "8") continue;
  while (read(controller, {"-1"}) == "8") continue;
  EXPECT_EQ(endOf(*stalled), "4");
}

// The hardware agent does not answer and a client does not read: an update stays undecided until its time has
// run out, the rest of an answer unsent.
TEST_F(P4RuntimeTest, Stop_AnswersWhatIsInFlight) {
  startHardware();
  startAgent({"--timeout", "3"});
  Controller controller(socket());
  fill(controller);
  hardware_->signal(SIGSTOP);
  const WriteRequest removal = request({"-1000"});
  Pending<WriteResponse> pending(
      [&](auto* context, auto* queue) { return controller.stub->AsyncWrite(context, removal, queue); });
  EXPECT_EQ(read(controller, {"-1000"}), "1000=1:" + std::string(900, 'm') + " 0") << "undecided";
  grpc::ClientContext context;
  const auto stalled = startRead(controller, context);
  stalled->WaitForInitialMetadata();
  agent_->signal(SIGTERM);
  EXPECT_EQ(controller.hear(), "end 14");
  EXPECT_EQ(outcome(pending.wait()), "2 4");
  EXPECT_EQ(agent_->exitCode(), 0) << agent_->output();
  EXPECT_EQ(endOf(*stalled), "14");
}

TEST_F(P4RuntimeTest, Entries_AreReadAsWrittenAlsoAfterARestart) {
  startHardware();
  startAgent({"--timeout", "30"});
  WriteRequest insertions = request({});
  Entries::Random random;
  std::set<std::string> keys;
  std::set<std::string> written;
  for (const Wire::Table& table : Entries::pipeline().tables()) {
    for (int i = 0; i < 100; ++i) {
      TableEntry entry = Entries::randomEntry(table, random);
      TableEntry key = entry;
      key.clear_action();
      key.clear_metadata();
      if (!keys.insert(key.SerializeAsString()).second) continue;
      written.insert(entry.SerializeAsString());
      *insertions.add_updates() = Entries::updateOf(entry);
    }
  }
  for (const bool isFirst : {true, false}) {
    Controller controller(socket());
    if (isFirst) {
      controller.say(1);
      EXPECT_EQ(controller.hear(), "0 1");
      EXPECT_EQ(write(controller, insertions), "0");
    }
    grpc::ClientContext context;
    const auto reader = startRead(controller, context);
    std::set<std::string> found;
    for (ReadResponse response; reader->Read(&response);) {
      for (const Entity& entity : response.entities()) found.insert(entity.table_entry().SerializeAsString());
    }
    EXPECT_EQ(outcome(reader->Finish()), "0");
    EXPECT_EQ(found, written);
    agent_->signal(SIGTERM);
    EXPECT_EQ(agent_->exitCode(), 0) << agent_->output();
    if (isFirst) startAgent();
  }
}

TEST_F(P4RuntimeTest, Connections_AreServedUpToTheLimit) {
  startAgent({"--max-connections", "2"});
  Controller first(socket());
  auto second = std::make_unique<Controller>(socket());
  for (Controller* const each : {&first, second.get()}) EXPECT_EQ(read(*each), "0");
  const auto another = [this] { return ask("unix:" + socket(), grpc::InsecureChannelCredentials()); };
  EXPECT_EQ(another(), 14);
  second.reset();
  while (another() != 0) continue;
  EXPECT_EQ(read(first), "0");
}

// One self-signed certificate is the server's, the client's and the authority of both.
TEST_F(P4RuntimeTest, Tls_OverTcpWithAndWithoutClientCertificate) {
  const std::string cert = folder_.path() + "/cert.pem";
  const std::string key = folder_.path() + "/key.pem";
  Program openssl({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key,
                   "-out", cert, "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:127.0.0.1"});
  ASSERT_EQ(openssl.exitCode(), 0) << openssl.output();
  const std::string address = "127.0.0.1:" + std::to_string(freePort());
  const auto contents = [](const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  };
  const grpc::SslCredentialsOptions server{contents(cert), {}, {}};
  const grpc::SslCredentialsOptions mutual{contents(cert), contents(key), contents(cert)};
  const struct {
    Strings options;
    int plain;
    int withoutCertificate;
    int withCertificate;
  } rows[] = {{{}, 0, 14, 14},
              {{"--tls-cert", cert, "--tls-key", key}, 14, 0, 0},
              {{"--tls-cert", cert, "--tls-key", key, "--tls-client-ca", cert}, 14, 14, 0}};
  for (const auto& row : rows) {
    Strings options = row.options;
    options.insert(options.end(), {"--listen", address});
    agent_.reset();
    startAgent(options);
    EXPECT_EQ(ask(address, grpc::InsecureChannelCredentials()), row.plain);
    EXPECT_EQ(ask(address, grpc::SslCredentials(server)), row.withoutCertificate);
    EXPECT_EQ(ask(address, grpc::SslCredentials(mutual)), row.withCertificate);
    const RuntimeFolder other("/dev/shm");
    Program second({P4RT_AGENT, "-r", other.path(), "--listen", address});
    EXPECT_EQ(second.exitCode(), 1);
    EXPECT_THAT(second.output(), testing::HasSubstr(address + ": Address already in use"));
  }
}

// One request's error details and many entries' answers exceed what fits in one message or trailer.
TEST_F(P4RuntimeTest, Large_RequestsAndAnswersAreWhole) {
  startHardware();
  startAgent({"--timeout", "30"});
  Controller controller(socket());
  const Strings updates = fill(controller);
  EXPECT_EQ(write(controller, Strings(200'000, "?")), "8") << "short ones, but memory for each";
  std::string refused = "2";
  for (std::size_t i = 0; i < updates.size(); ++i) refused += " 6";
  EXPECT_EQ(write(controller, updates), refused);
  EXPECT_EQ(write(controller, {"+1=1"}), "2 8");
  std::string all;
  for (const std::string& text : updates) all += text.substr(1) + " ";
  EXPECT_EQ(read(controller), all + "0");
}

}  // namespace
