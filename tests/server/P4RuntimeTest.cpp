// What controllers see of an agent, with real processes and real gRPC.
#include <fstream>
#include <set>

#include "tests/server/P4RuntimeFixture.h"

namespace {

TEST_F(P4RuntimeTest, Write_CodesOfCallsAndUpdates) {
  start();
  const struct {
    Strings updates;
    std::uint64_t id;
    int atomicity;
    const char* outcome;
  } rows[] = {
      {{"+1=1", "+2=2:two"}, 1, 0, "0"},
      {{}, 1, 0, "0"},
      {{"+1=5", "~3=1", "-4", "+5=5", "?", "+99=1"}, 1, 0, "2 6 5 5 0 3 13/7"},
      {{"~1=5", "+99=1"}, 1, 1, "2 10 13/7"},
      {{"~1=5", "+2=1", "+6=6"}, 1, 1, "2 10 6 10"},
      {{"~1=7", "+6=6"}, 1, 1, "0"},
      {{"+7=7", "+7=8"}, 1, 0, "2 3 3"},
      {{"+7=7"}, 1, 2, "12"},
      {{"+7=7"}, 1, 9, "12"},
      {{"+7=7"}, 2, 0, "7"},
  };
  for (const auto& row : rows) EXPECT_EQ(write(row.updates, row.id, row.atomicity), row.outcome);
  EXPECT_EQ(write(*primary_, request({"+7=7"}, 1, 0, 2)), "5") << "another device";
  EXPECT_EQ(read(), "1=7 2=2:two 5=5 6=6 0");
  EXPECT_EQ(read({"-2", "-3", "-2", "?"}), "2=2:two 2 0 0 0 3");
}

TEST_F(P4RuntimeTest, Arbitration_IsHeardOnEachStream) {
  start();
  Controller second(address());
  EXPECT_EQ(second.say(0), "6 1");
  EXPECT_EQ(write(second, request({"+1=1"}, 1)), "0") << "the id counts, not the connection";
  StreamMessageRequest packet;
  packet.mutable_packet()->set_payload("x");
  second.stream->Write(packet);
  EXPECT_EQ(second.hear(), "error 12");
  EXPECT_EQ(second.say(6), "0 6");
  EXPECT_EQ(primary_->hear(), "6 6");
  EXPECT_EQ(write({"~1=2"}), "7");
  EXPECT_EQ(primary_->say(6), "end 3") << "another controller's id";
  primary_ = std::make_unique<Controller>(address());
  EXPECT_EQ(primary_->say(1, 2), "end 5") << "another device";
  primary_ = std::make_unique<Controller>(address());
  EXPECT_EQ(primary_->say(4), "6 6");
  second.stream->WritesDone();
  EXPECT_EQ(primary_->hear(), "5 6");
  EXPECT_EQ(write({"~1=2"}, 6), "7");
}

// What the hardware refuses leaves no trace. Its faults are those that the file had at the last SIGHUP.
TEST_F(P4RuntimeTest, Refusal_IsUndoneAndFaultsChangeWhileTheHardwareAgentRuns) {
  const std::string faults = folder_.path() + "/faults";
  std::ofstream(faults) << "# none yet\n";
  start({}, {"--faults", faults});
  EXPECT_EQ(write({"+1=1:one", "+2=2"}), "0");
  const std::string done = "read the faults file again";
  const std::string bad =
      "the faults stay as they were: faults file " + faults + ", line 2: expected a field";
  const struct {
    const char* file;
    std::string says;
    const char* write;
    const char* outcome;
    const char* read;
  } rows[] = {
      {"l3IifTH3:vrf=4095:7  # on any entry\n", done, "~1=4095:new", "2 13/7", "1=1:one 2=2 0"},
      {"\nl3IifTH3:wrf=1:9\n", bad, "~2=4095", "2 13/7", "1=1:one 2=2 0"},
      {"", done, "~1=4095", "0", "1=4095 2=2 0"},
      {"l3IifTH3:l3Iif=3,vrf=1:8\n", done, "+3=1", "2 13/8", "1=4095 2=2 0"},
  };
  for (const auto& row : rows) {
    std::ofstream(faults) << row.file;
    hardware_->signal(SIGHUP);
    ASSERT_TRUE(hardware_->saysNext(row.says));
    EXPECT_EQ(write({row.write}), row.outcome);
    EXPECT_EQ(read(), row.read);
  }
}

TEST_F(P4RuntimeTest, Example_ControllerInPythonRunsAgainAndAgain) {
  startHardware();
  startAgent();
  for (const auto& [high, low] : {std::pair<std::uint64_t, std::uint64_t>{0, 0}, {7, ~std::uint64_t{0}}}) {
    Controller other(address());
    EXPECT_EQ(other.say(low, 1, high).substr(2), std::to_string(low));
    Program example({"/usr/bin/env", "PYTHONPATH=" PYTHON_STUBS, "/usr/bin/python3", CONTROLLER, address()});
    EXPECT_EQ(example.exitCode(), 0);
    EXPECT_THAT(example.output(), testing::MatchesRegex("update 4: error 11: .*vrf.*\n"
                                                        "4 of 4 entries were read back as written\n"));
  }
}

// The hardware agent is stopped: the commit waits for it, and the primary's Writes for the commit.
TEST_F(P4RuntimeTest, Commit_DelaysWritesOfThePrimaryAndNoRefusals) {
  start({"--timeout", "30"});
  EXPECT_EQ(write({"+1=1"}), "0");
  hardware_->signal(SIGSTOP);
  auto committing = std::async(std::launch::async, [this] { return set(Set::VERIFY_AND_COMMIT); });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));  // nothing shows that it has begun
  const auto waiting = startWrite({"+2=2"});
  const auto cancelled = startWrite({"+3=3"});
  EXPECT_EQ(write({"+2=2"}, 2), "7");
  EXPECT_EQ(write({"+2=2"}, 1, 2), "12");
  cancelled->context.TryCancel();
  EXPECT_EQ(cancelled->outcome.get(), "1");
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // nor that the agent knows of it
  hardware_->signal(SIGCONT);
  EXPECT_EQ(committing.get(), "0");
  EXPECT_EQ(waiting->outcome.get(), "0");
  EXPECT_EQ(write({"+3=4"}), "0") << "a Write that waits is dropped with its client";
  EXPECT_EQ(read(), "2=2 3=4 0");
}

TEST_F(P4RuntimeTest, Cancelled_WriteIsCarriedOnOnceItHasBeenEntered) {
  start({"--timeout", "30"});
  hardware_->signal(SIGSTOP);
  const auto entered = startWrite({"+1=1"});
  AgentView view = counters();
  while (view.words().tables[3].writes[0] == 0) view.read();
  entered->context.TryCancel();
  EXPECT_EQ(entered->outcome.get(), "1");
  hardware_->signal(SIGCONT);
  while (read() != "1=1 0") continue;
}

// A removal that is out of time may still be undone: until then its entry is there.
TEST_F(P4RuntimeTest, Commit_CountsEntriesWhoseRemovalIsUndecided) {
  start();
  EXPECT_EQ(write({"+1=1"}), "0");
  hardware_->signal(SIGSTOP);
  EXPECT_EQ(write({"-1"}), "2 4");
  EXPECT_EQ(set(Set::VERIFY_AND_COMMIT), "4");
  EXPECT_EQ(set(Set::RECONCILE_AND_COMMIT, false), "3");
  hardware_->signal(SIGCONT);
  EXPECT_EQ(set(Set::VERIFY_AND_COMMIT), "0");
  EXPECT_EQ(set(Set::RECONCILE_AND_COMMIT, false), "0");
  EXPECT_EQ(read(), "0");
}

TEST_F(P4RuntimeTest, Counters_FollowRequestsAndTheirUpdates) {
  start();
  EXPECT_EQ(write({"+1=9", "+99=9"}), "2 0 13/7");
  EXPECT_EQ(write({"-1"}, 2), "7");
  EXPECT_EQ(read(), "1=9 0");
  AgentView view = counters();
  const auto isComplete = [](const auto& words) {  // words are copied one after another, at two moments
    const auto& server = words.server;
    return server.requests >= 3 && server.requestsInFlight == 0 && server.connections != 0 && words.vrfs != 0;
  };
  while (!isComplete(view.words())) view.read();
  const auto& server = view.words().server;
  const auto& table = view.words().tables[3];
  EXPECT_EQ(server.requests, 3u);
  EXPECT_EQ(server.rejections, 1u);
  EXPECT_EQ(server.streams + server.connections, 2u);
  EXPECT_GT(server.requestBytes, 100u);
  EXPECT_EQ(server.requestsInFlight + server.bytesInFlight + server.batchesInFlight, 0u);
  EXPECT_EQ(server.shortenedTexts, 0u);
  EXPECT_EQ(table.completions[0] + table.completions[7], 3u) << "that of the undo, too";
  EXPECT_EQ(table.highWater, 2u);
  EXPECT_EQ(view.words().hardwareProcess, static_cast<std::uint64_t>(hardware_->pid()));
  EXPECT_EQ(view.words().vrfReferences[0], std::uint64_t{9} << 32 | 1);
}

// One request at a time: another is refused until the Read whose client does not read has been given up.
TEST_F(P4RuntimeTest, Stalled_ReaderIsGivenUpAndHoldsNobodyUp) {
  start({"--timeout", "30", "--client-timeout", "0.5", "--max-requests", "1"});
  fill();
  grpc::ClientContext context;
  const auto stalled = startRead(context);
  while (read({"-1"}) != "8") continue;
  while (read({"-1"}) == "8") continue;
  EXPECT_EQ(endOf(*stalled), "4");
}

// The hardware agent does not answer and a client does not read: an update stays undecided until its time has
// run out, the rest of an answer unsent.
TEST_F(P4RuntimeTest, Stop_AnswersWhatIsInFlight) {
  start({"--timeout", "3"});
  fill();
  hardware_->signal(SIGSTOP);
  const auto pending = startWrite({"-1000"});
  EXPECT_EQ(read({"-1000"}), "1000=1:" + std::string(900, 'm') + " 0") << "undecided";
  grpc::ClientContext context;
  const auto stalled = startRead(context);
  stalled->WaitForInitialMetadata();
  agent_->signal(SIGTERM);
  EXPECT_EQ(primary_->hear(), "end 14");
  EXPECT_EQ(pending->outcome.get(), "2 14");
  EXPECT_EQ(agent_->exitCode(), 0) << agent_->output();
  EXPECT_EQ(endOf(*stalled), "14");
  hardware_->signal(SIGCONT);
  startAgent();
  EXPECT_EQ(read({"-1000"}), "1000=1:" + std::string(900, 'm') + " 0") << "undone";
}

TEST_F(P4RuntimeTest, Entries_AreReadAsWrittenAlsoAfterRestarts) {
  start({"--timeout", "30"});
  WriteRequest insertions = request({});
  Entries::Random random;
  std::set<std::string> keys;
  std::set<std::string> written;
  for (const Wire::Table& table : Entries::pipeline().tables()) {
    for (int i = 0; i < 100; ++i) {
      const TableEntry entry = Entries::randomEntry(table, random);
      TableEntry key = entry;
      key.clear_action();
      key.clear_metadata();
      if (!keys.insert(key.SerializeAsString()).second) continue;
      written.insert(entry.SerializeAsString());
      *insertions.add_updates() = Entries::updateOf(Entries::disguised(entry, random));
    }
  }
  EXPECT_EQ(write(*primary_, insertions), "0");
  for (const int signal : {SIGTERM, SIGKILL, SIGTERM}) {
    grpc::ClientContext context;
    const auto reader = startRead(context);
    std::set<std::string> found;
    for (ReadResponse response; reader->Read(&response);) {
      for (const Entity& entity : response.entities()) found.insert(entity.table_entry().SerializeAsString());
    }
    EXPECT_EQ(outcome(reader->Finish()), "0");
    EXPECT_EQ(found, written);
    restart(signal);
    EXPECT_EQ(primary_->say(0), "5 1") << "below the highest";
    EXPECT_EQ(primary_->say(1), "0 1");
  }
}

TEST_F(P4RuntimeTest, Connections_AreServedUpToTheLimit) {
  startAgent({"--max-connections", "2"});
  Controller first(address());
  auto second = std::make_unique<Controller>(address());
  for (Controller* const each : {&first, second.get()}) EXPECT_EQ(read(*each), "0");
  const auto another = [this] {
    Controller one(address());
    return read(one);
  };
  EXPECT_EQ(another(), "14");
  second.reset();
  while (another() != "0") continue;  // with the descriptor of the second
  EXPECT_EQ(read(first), "0");
  for (AgentView view = counters(); view.words().server.connectionsRefused == 0; view.read()) continue;
}

// One self-signed certificate is the server's, the client's and the authority of both.
TEST_F(P4RuntimeTest, Tls_OverTcpWithAndWithoutClientCertificate) {
  const std::string cert = folder_.path() + "/cert.pem";
  const std::string key = folder_.path() + "/key.pem";
  // An address that no other test uses: all of 127.0.0.0/8 is this machine.
  const int number = ::getpid();
  const std::string host = "127." + std::to_string(number >> 16) + "." + std::to_string(number >> 8 & 255) +
                           "." + std::to_string(number & 255);
  Program openssl({"/usr/bin/openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key,
                   "-out", cert, "-subj", "/CN=localhost", "-addext", "subjectAltName=IP:" + host});
  ASSERT_EQ(openssl.exitCode(), 0) << openssl.output();
  const auto contents = [](const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
  };
  const auto plain = grpc::InsecureChannelCredentials();
  const auto server = grpc::SslCredentials({contents(cert), {}, {}});
  const auto mutual = grpc::SslCredentials({contents(cert), contents(key), contents(cert)});
  const struct {
    Strings options;
    const char* outcomes;  // without TLS, without a certificate of the client, with one
  } rows[] = {{{}, "0 14 14 "},
              {{"--tls-cert", cert, "--tls-key", key}, "14 0 0 "},
              {{"--tls-cert", cert, "--tls-key", key, "--tls-client-ca", cert}, "14 14 0 "}};
  for (const auto& row : rows) {
    Strings options = row.options;
    options.insert(options.end(), {"--listen", host + ":9559"});
    agent_.reset();
    startAgent(options);
    std::string outcomes;
    for (const auto& credentials : {plain, server, mutual}) {
      Controller one(host + ":9559", credentials);
      outcomes += read(one) + " ";
    }
    EXPECT_EQ(outcomes, row.outcomes);
    const RuntimeFolder other("/dev/shm");
    Program second({P4RT_AGENT, "-r", other.path(), "--listen", host + ":9559"});
    EXPECT_EQ(second.exitCode(), 1);
    EXPECT_THAT(second.output(), testing::HasSubstr(host + ":9559: Address already in use"));
  }
}

// One request's error details and many entries' answers exceed what fits in one message or trailer.
TEST_F(P4RuntimeTest, Large_RequestsAndAnswersAreWhole) {
  start({"--timeout", "30"});
  const Strings updates = fill();
  EXPECT_EQ(write(Strings(200'000, "?")), "8") << "short ones, but memory for each";
  std::string refused = "2";
  std::string all;
  for (const std::string& text : updates) {
    refused += " 6";
    all += text.substr(1) + " ";
  }
  EXPECT_EQ(write(updates), refused);
  EXPECT_EQ(write({"+1=1"}), "2 8");
  EXPECT_EQ(read(), all + "0");
  WriteRequest ofNoTable = request(Strings(1000, "?"));
  for (Update& each : *ofNoTable.mutable_updates()) each.mutable_entity()->mutable_table_entry();
  EXPECT_EQ(write(*primary_, ofNoTable).substr(0, 5), "2 3 3");
  for (AgentView view = counters(); view.words().server.shortenedTexts != 1000; view.read()) continue;
}

}  // namespace
