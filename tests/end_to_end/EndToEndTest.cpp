// The end-to-end path with real processes: agent, plugin and hardware agent over shared memory.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <thread>

#include "Program.h"
#include "tests/RuntimeFolder.h"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using Strings = std::vector<std::string>;

class EndToEnd : public testing::Test {
 protected:
  using Running = std::unique_ptr<Program>;

  Running start(const char* program, const Strings& options) const {
    Strings arguments = {program, "--runtime-folder", runtime_};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return std::make_unique<Program>(arguments);
  }
  std::string socket() const { return folder_.path() + "/agent.sock"; }

  Running hardware(const Strings& options = {}) const {
    auto program = start(HW_AGENT, options);
    EXPECT_TRUE(program->says("following the tables")) << program->output();
    return program;
  }
  /// An agent that serves until it is stopped.
  Running agent(const char* timeout = kPatience, const Strings& more = {}) const {
    Strings options = {"--p4runtime-socket", socket(), "--timeout", timeout};
    options.insert(options.end(), more.begin(), more.end());
    auto program = start(P4RT_AGENT, options);
    EXPECT_TRUE(program->says("serving")) << program->output();
    return program;
  }
  /// Begins to run a script against the agent.
  Running sending(const std::string& script) const { return client({"run", "-"}, script); }
  Running client(const Strings& words, const std::string& input = "") const {
    Strings arguments = {P4RT_CLIENT, "--address", socket()};
    arguments.insert(arguments.end(), words.begin(), words.end());
    return std::make_unique<Program>(arguments, input);
  }
  /// Expects a program to end as it should; what it printed.
  static std::string ended(const Running& program, int exitCode = 0) {
    EXPECT_EQ(program->exitCode(), exitCode) << program->output();
    return program->output();
  }
  /// Runs a script and expects every result to be as written in it.
  std::string send(const std::string& script) const { return ended(sending(script)); }
  static std::string stop(const Running& program, int signal = SIGTERM) {
    program->signal(signal);
    return ended(program, signal == SIGKILL ? 128 + SIGKILL : 0);
  }
  static std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static std::string example(const char* name) { return contents(std::string(EXAMPLES) + "/" + name); }
  /// The file of a table of l3IifTH3.
  std::string table(const std::string& side) const {
    return runtime_ + "/p4runtime/outputTables/tolmar/l3IifTH3Table/" + side + "/table";
  }
  /// Overwrites the rows and the index of a table of l3IifTH3, in place as its users have it mapped.
  void damage(const std::string& side) const {
    std::string bytes = contents(table(side)).substr(8192);
    for (char& byte : bytes) byte ^= 0x5a;
    std::fstream(table(side), std::ios::in | std::ios::out | std::ios::binary).seekp(8192) << bytes;
  }
  /// Waits until the status table of l3IifTH3 has seen so many changes.
  void waitForAnswers(std::uint64_t count) const {
    std::ifstream file(table("status"), std::ios::binary);
    for (std::uint64_t first = 0, last = 0; last - first < count; std::this_thread::yield()) {
      file.seekg(40).read(reinterpret_cast<char*>(&first), sizeof first);
      file.seekg(4096).read(reinterpret_cast<char*>(&last), sizeof last);
      file.sync();
    }
  }
  static constexpr const char* kPatience = "50";  // seconds; a busy machine is no failure

  RuntimeFolder folder_;
  std::string runtime_ = folder_.path() + "/run";
};

int occurrences(const std::string& text, const std::string& part) {
  int count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != text.npos; at += part.size()) ++count;
  return count;
}

std::string inserts(int first, int last) {
  return "load insert l3IifTH3 " + std::to_string(first) + ".." + std::to_string(last) + " vrf=7\n";
}

TEST_F(EndToEnd, AllFourTables_AreAnsweredFilledChangedAndFilledAgain) {
  const auto hw = hardware({"--fail", "l3IifTH3:l3Iif=99:7", "--fail", "l3IifTH3:l3Iif=9999:7", "--fail",
                            "l3TunnelIpv6TH3:sip=2001:DB8::1,l4DestPort=6081:65535"});
  const std::string tunnel =
      "l3TunnelIpv6TH3 sip=2001:db8::1 dip=2001:db8::2 protocol=17 l4DestPort=6081 l4SrcPort=0";
  const auto served = agent();
  const std::string results = folder_.path() + "/results";
  EXPECT_THAT(ended(client({"run", "-", "--results", results},
                           example("failures.script") + example("basic.script") + "insert " + tunnel +
                               " expect HARDWARE_ERROR 65535\ndelete " + tunnel + " expect NOT_FOUND\n")),
              AllOf(HasSubstr("OUT_OF_RANGE: "),
                    HasSubstr("expected each key once in a batch, got it more than once"),
                    HasSubstr("standard input:14: field \"colour\" of l3IifTH3: expected one of l3Iif, ")));
  EXPECT_THAT(contents(results),
              HasSubstr(R"({"script":"standard input","line":8,"update":"insert","table":)"
                        R"("l3IifTH3","key":{"l3Iif":"99"},"code":"INTERNAL","hardwareCode":7,)"));
  EXPECT_THAT(send(example("capacity.script")),
              AllOf(HasSubstr("passed: 34573 updates, 34573 answered, 13 failed as scripted, 0 lost"),
                    HasSubstr("RESOURCE_EXHAUSTED: table is full: used 8192 of 8192")));
  EXPECT_THAT(stop(hw), HasSubstr("stopped after 34592 answers"));
  // Two clients have been primary; a controller that counts its ids has the next.
  EXPECT_THAT(ended(client({"--election-id", "1", "write", "delete", "l3IifTH3", "l3Iif=99"}), 1),
              HasSubstr("expected to become primary with election id 1, got the highest seen is 2"));
  ended(client({"--election-id", "3", "run", "-"}, "print became primary"));
}

TEST_F(EndToEnd, FaultsAndDelay_EveryUpdateIsAnsweredOnceWithItsOwnCode) {
  const auto hw = hardware({"--fail-every", "10:3", "--delay", "20"});
  const auto served = agent();
  const std::string loaded = ended(client({"load", "insert", "l3IifTH3", "1..1000", "--batch", "300"}), 1);
  EXPECT_THAT(loaded, HasSubstr("1000 updates: 100 HARDWARE_ERROR, 900 OK, "));
  EXPECT_EQ(occurrences(loaded, ": HARDWARE_ERROR 3: "), 20);
  stop(hw);
  // What is read can be run again.
  const auto again = hardware();
  const std::string saved = ended(client({"read"}));
  EXPECT_EQ(occurrences(saved, "insert l3IifTH3 l3Iif="), 900);
  send("batch\n" + std::regex_replace(saved, std::regex("insert"), "delete") + "end\n");
  send("batch\n" + saved + "end\n");
  EXPECT_EQ(ended(client({"read"})).size(), saved.size()) << "in any order";
}

class Restart : public EndToEnd, public testing::WithParamInterface<int> {};

TEST_P(Restart, Hardware_LosesNoAnswerAndLeavesEqualRowsAlone) {
  const auto served = agent();
  auto hw = hardware();
  const auto inserting = sending(inserts(1, 8000));
  waitForAnswers(4000);
  stop(hw, GetParam());
  hw = hardware();
  ended(inserting);
  stop(hw, GetParam());
  const auto changing = sending(
      "batch\nload modify l3IifTH3 1..100 vrf=8\nload delete l3IifTH3 101..200\nend\n" + inserts(9001, 9100));
  hw = hardware();
  ended(changing);
  send(inserts(101, 200) + "delete l3IifTH3 l3Iif=1 expect OK\n");
  EXPECT_THAT(stop(hw), HasSubstr("stopped after 401 answers"));
}

TEST_P(Restart, Agent_KeepsWhatWasDecidedAndUndoesTheRest) {
  const auto hw = hardware();
  {
    const auto served = agent();
    send(inserts(1, 100));
    const auto writing = sending(inserts(101, 8192));
    waitForAnswers(300);
    hw->signal(SIGSTOP);  // with some of the answers given
    served->signal(GetParam());
    hw->signal(SIGCONT);
    ended(served, GetParam() == SIGKILL ? 128 + SIGKILL : 0);
    EXPECT_THAT(ended(writing, GetParam() == SIGKILL ? 1 : 0),
                HasSubstr(GetParam() == SIGKILL ? "batch of 8092: 8092 LOST" : "batch of 8092: 8092 OK"));
  }
  const auto served = agent();  // on the socket that a killed agent leaves behind
  const int rows = GetParam() == SIGKILL ? 100 : 8192;
  EXPECT_THAT(send("read l3IifTH3\n"), HasSubstr("  " + std::to_string(rows) + " entries\n"));
  send("load delete l3IifTH3 1.." + std::to_string(rows) + "\n" + inserts(1, 8192));
}

INSTANTIATE_TEST_SUITE_P(By, Restart, testing::Values(SIGTERM, SIGKILL),
                         [](const auto& tested) { return tested.param == SIGTERM ? "Sigterm" : "Sigkill"; });

TEST_F(EndToEnd, AgentFirst_IsDeadlineExceededAndGoesOnWhenTheHardwareComes) {
  const auto served = agent("0.1");
  EXPECT_THAT(served->output(), HasSubstr("no hardware agent runs"));
  const std::string late = send(
      "insert l3IifTH3 l3Iif=1 vrf=1 expect DEADLINE_EXCEEDED\nmodify l3IifTH3 l3Iif=1 vrf=2 expect "
      "DEADLINE_EXCEEDED\n");
  EXPECT_EQ(occurrences(late, "no answer in time: no hardware agent runs"), 2);
  stop(served);
  const auto again = agent();
  const auto changing = sending("modify l3IifTH3 l3Iif=1 vrf=3 expect NOT_FOUND\n" + example("basic.script"));
  const auto hw = hardware();
  ended(changing);
  EXPECT_THAT(stop(hw), HasSubstr("stopped after 20 answers"));
}

TEST_F(EndToEnd, AnswerThatNeverComes_IsGivenUpOnceTheHardwareHasRestarted) {
  const auto served = agent("4");
  auto hw = hardware();
  send("insert l3IifTH3 l3Iif=1 vrf=1\n");
  stop(hw);
  send("delete l3IifTH3 l3Iif=1 expect DEADLINE_EXCEEDED\n");
  damage("status");
  hw = hardware();  // which cannot know of the outstanding answer: neither table has anything of the entry
  EXPECT_TRUE(hw->says("retired")) << hw->output();
  send("insert l3IifTH3 l3Iif=1 vrf=1 expect ALREADY_EXISTS\n");  // the removal has been undone
}

// Nobody reads what the client prints, so that it takes nothing more, and what is sent to it fills its
// socket.
TEST_F(EndToEnd, StoppedClient_DoesNotHoldUpTheEndOfTheAgent) {
  const auto hw = hardware();
  const auto served = agent("5");
  send(inserts(1, 8192));
  const auto reading = client({"read"});
  EXPECT_TRUE(reading->says("insert"));
  reading->signal(SIGSTOP);
  const auto begin = std::chrono::steady_clock::now();
  stop(served);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST_F(EndToEnd, DamagedTables_AreFollowedAgainWhenTheirWritersHaveReplacedThem) {
  auto served = agent();
  auto hw = hardware();
  send(inserts(1, 10));
  damage("status");
  send("modify l3IifTH3 l3Iif=1 vrf=2\n");  // the hardware agent detects the damage and replaces its table
  EXPECT_TRUE(hw->says("retired")) << hw->output();
  stop(served);
  damage("status");
  served = agent();  // the hardware agent has nothing to write: the agent reports the damage
  send("modify l3IifTH3 l3Iif=1 vrf=3\n");
  stop(hw);
  damage("config");
  hw = hardware();  // it reports the damage
  EXPECT_THAT(hw->output(), HasSubstr("l3IifTH3: waiting for an intact table: "));
  EXPECT_TRUE(hw->says("l3IifTH3: followed again")) << hw->output();
  send(inserts(1, 10));
  stop(hw);
  damage("config");  // nobody reports it; the agent itself reads it first
  const std::string refused =
      send("insert l3IifTH3 l3Iif=11 expect INTERNAL\nmodify l3IifTH3 l3Iif=1 vrf=3 expect INTERNAL\n");
  EXPECT_EQ(occurrences(refused, "INTERNAL: l3IifTH3: the config table is damaged; start the agent again"),
            2);
  hw = hardware();
  send("insert l3TunnelIpv4TH3 sip=192.0.2.1 dip=192.0.2.2 protocol=17 l4DestPort=4789 l4SrcPort=0\n");
  stop(served);
  served = agent();
  send(inserts(1, 10));
}

// By somebody else, under both processes: one writes the table and the other reads it. Twice, with updates in
// between that are answered somehow.
TEST_F(EndToEnd, TruncatedTables_EndNeitherProcess) {
  const auto hw = hardware();
  int first = 1;
  for (const char* side : {"config", "status"}) {
    for (const std::uintmax_t size : {0u, 20000u}) {
      SCOPED_TRACE(side + (" at size " + std::to_string(size)));
      const auto served = agent("1");
      send(inserts(first, first + 99));
      for (int i = 0; i < 2; ++i, first += 200) {
        std::filesystem::resize_file(table(side), size);
        const auto writing = sending(inserts(first + 100, first + 199));
        EXPECT_LE(writing->exitCode(), 1);
        EXPECT_THAT(writing->output(), HasSubstr("batch of 100: ")) << served->output();
      }
      stop(served);
      const auto again = agent();
      send(inserts(first, first + 99));
      first += 100;
      stop(again);
    }
  }
  stop(hw);
}

TEST_F(EndToEnd, RemovedFiles_AreRefusedUntilARestartAndSecondProcessesAlways) {
  const std::string folder = "/p4runtime/outputTables/tolmar/l3IifTH3Table/";
  const struct {
    std::string removed;  // in the runtime folder
    bool rowsLost;
  } rows[] = {{folder + "config/table", true},
              {folder + "status/table", false},
              {folder + "config/table.lock", false},
              {"", true}};
  for (const auto& [removed, rowsLost] : rows) {
    SCOPED_TRACE(removed);
    runtime_ += "1";
    const auto hw = hardware();
    auto served = agent();
    const auto counters = contents(runtime_ + "/hw-agent.counters").substr(0, 4096);
    EXPECT_THAT(ended(start(HW_AGENT, {}), 1), HasSubstr("process " + std::to_string(hw->pid())));
    EXPECT_EQ(contents(runtime_ + "/hw-agent.counters").substr(0, 4096), counters) << "still its pid";
    send(inserts(1, 3));
    std::filesystem::remove_all(runtime_ + removed);
    EXPECT_TRUE(hw->says(": the file " + runtime_)) << hw->output();
    EXPECT_TRUE(served->says("l3IifTH3: the file " + runtime_)) << served->output();
    const std::string modify = "modify l3IifTH3 l3Iif=1 vrf=8 expect INTERNAL\n";
    if (removed.empty()) {
      EXPECT_THAT(ended(sending(modify), 1), HasSubstr("the election id could not be stored: "));
    } else {
      EXPECT_THAT(send(modify), AllOf(HasSubstr("INTERNAL: l3IifTH3: the file " + runtime_),
                                      HasSubstr("was removed or replaced; start the agent again")));
      EXPECT_THAT(ended(start(P4RT_AGENT, {}), 1),
                  HasSubstr("is in use by process " + std::to_string(served->pid())));
    }
    stop(served);
    served = agent();
    send(rowsLost ? inserts(1, 3) : "modify l3IifTH3 l3Iif=1 vrf=8\n");
  }
}

TEST_F(EndToEnd, NoSpace_IsNoReasonNotToStartAndLoggedOnce) {
  stop(hardware());
  {
    const auto served = agent();
    stop(served);
  }
  // No file can become longer than 256 KiB, as if there was no space left for a trace ring.
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const rlimit small{256 << 10, before.rlim_max};
  const auto signalled = std::signal(SIGXFSZ, SIG_IGN);  // as in the programs that this one starts
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const auto hw = hardware();
  const auto served = agent("1");
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  std::signal(SIGXFSZ, signalled);
  for (const auto* program : {&hw, &served}) {
    EXPECT_THAT((*program)->output(), HasSubstr("continuing without a trace file: "));
  }
  send(inserts(1, 3));
  damage("status");  // which cannot be replaced either, however often the hardware agent tries it
  send("modify l3IifTH3 l3Iif=1 vrf=9 expect DEADLINE_EXCEEDED\n");
  EXPECT_EQ(occurrences(stop(hw), "l3IifTH3: waiting for an intact table: "), 1) << hw->output();
}

TEST_F(EndToEnd, TracesAndCleanup_TheRingsRemainAndTheTablesDoNot) {
  const auto hw = hardware();
  const auto served = agent(kPatience, {"--trace", "VrfSm:7", "--trace", "PendingHwPogrammingSm:9"});
  EXPECT_THAT(send("insert l3IifTH3 l3Iif=4711 vrf=12\nprint \x9b\x1b[31m\n"), HasSubstr("\n??[31m\n"));
  EXPECT_THAT(ended(start(P4RT_AGENT, {"--cleanup"}), 1), HasSubstr("is in use by process "));
  EXPECT_THAT(stop(served), AllOf(HasSubstr("handleL3IifTH3ConfigEntry add vrf 12 refCount 1"),
                                  HasSubstr("onStatusRow4711"),
                                  ContainsRegex("[0-9-]{10}T[0-9:.]{12}Z info p4rt-agent: VrfSm/7 ")));
  EXPECT_THAT(contents(runtime_ + "/p4rt-agent.trace"),
              AllOf(HasSubstr("pluginInit"), HasSubstr("doMountsComplete"), HasSubstr("onStatusRow"),
                    HasSubstr("4711")));
  EXPECT_THAT(ended(start(P4RT_AGENT, {"--cleanup"})), HasSubstr("removed the tables in "));
  EXPECT_THAT(contents(runtime_ + "/hw-agent.trace"), HasSubstr("answerPresent"));
  EXPECT_EQ(contents(table("config")), "");
  EXPECT_NE(contents(table("status")), "");
  for (const char* const file : {"undo", "metadata"}) {
    EXPECT_FALSE(std::filesystem::exists(runtime_ + "/p4rt-agent." + file));
  }
  EXPECT_TRUE(std::filesystem::exists(runtime_ + "/p4rt-agent.election"));
}

struct Refusal {
  int exitCode;
  const char* program;
  const char* arguments;  // "@" stands for the test's folder, here and in the message
  const char* says;
};
const Refusal kRefusals[] = {
    {1, P4RT_AGENT, "-r @/open", "expected mode 0700, got 0755"},
    {1, P4RT_AGENT, "-r @/link//./", "runtime folder @/link: expected a directory, got a link"},
    {1, P4RT_AGENT, "-r @ -p @/file", "plugin library \"@/file\": "},
    {1, P4RT_AGENT, "-r @ -p lib.so", "plugin library \"./lib.so\": expected a plugin, found none in it"},
    {1, P4RT_AGENT, "-r @ --p4runtime-socket @/file", "expected a socket or nothing, got another file"},
    {1, P4RT_CLIENT, "run @", "script @: Is a directory"},
    {1, P4RT_CLIENT, "-r @ read", "socket @/p4runtime.sock: No such file or directory"},
    {1, P4RT_AGENT, "-r @ -l here",
     "expected ADDRESS:PORT such as 127.0.0.1:9559 or [::1]:9559, got \"here\""},
    {1, P4RT_AGENT, "-r @ -l 0.0.0.0:0", "expected a loopback address, TLS or --insecure, got 0.0.0.0:0"},
    {2, HW_AGENT, "-r @/new -f l3Iif:l3Iif=1:7",
     "--fail: expected a table (l3TunnelIpv4TH3, l3TunnelIpv6TH3, myStationTcamTH3, l3IifTH3), got "
     "\"l3Iif\""},
    {2, HW_AGENT, "-r @/new -f l3IifTH3:if=1:7", "--fail: expected a field of l3IifTH3, got \"if\""},
    {2, HW_AGENT, "-r @/new -f l3IifTH3:l3Iif=x:7",
     "column \"l3Iif\": expected a decimal or 0x number from 0 to 18446744073709551615"},
    {2, P4RT_AGENT, "--tls-cert a", "expected --tls-cert and --tls-key, got one of them"},
    {2, P4RT_AGENT, "--tls-cert a --tls-key b",
     "expected --listen beside --tls-cert: the Unix socket is not encrypted"},
    {2, P4RT_AGENT, "--plugin ''", "--plugin: expected a value, got an empty one"},
    {2, P4RT_AGENT, "--insecure=", "--insecure: expected no value, got \"\""},
    {2, P4RT_AGENT, "-V=x", "--version: expected no value, got \"x\""},
    {2, P4RT_AGENT, "--p4info=", "--p4info: expected a value, got an empty one"},
    {2, P4RT_CLIENT, "--role= read", "--role: expected a value, got an empty one"},
    {2, P4RT_AGENT, "-d 0", "--device-id: expected a number from 1 to 18446744073709551615, got \"0\""},
    {2, P4RT_AGENT, "--trace VrfSm:32", "with a level from 0 to 31, got \"VrfSm:32\""},
    {2, P4RT_AGENT, "-r @ --trace VrfSM:7",
     "expected a trace handle (PendingHwPogrammingSm, VrfSm, TolmarP4RuntimePlugin) or \"*\", got"},
    {2, P4RT_AGENT, "--fast", "expected options of --help: The following argument was not expected: --fast"},
    {2, P4RT_CLIENT, "", "expected run, write, read or load, got nothing"},
    {2, P4RT_CLIENT, "load insert l3IifTH3", "expected VERB TABLE FIRST..LAST after load, got 2 words"},
    {2, P4RT_CLIENT, "--tls-cert a read", "expected --tls-cert and --tls-key, got one of them"},
    {2, HW_AGENT, "--delay", "expected options of --help: --delay: 1 required"},
    {2, HW_AGENT, "--busy-poll -1", "--busy-poll: expected microseconds from 0 to 1000000, got \"-1\""},
    {2, HW_AGENT, "--fail l3IifTH3:7", "--fail: expected TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE, got"},
    {2, HW_AGENT, "--fail l3IifTH3::7", "expected at least one FIELD=VALUE, got \"l3IifTH3::7\""},
    {2, HW_AGENT, "--fail l3IifTH3:vrf=1,l3Iif=2,vrf=2:3",
     "--fail: expected each field once, got \"vrf\" more than once"},
    {2, HW_AGENT, "--fail l3IifTH3:l3Iif=1,:7", "--fail: expected FIELD=VALUE, got \"\""},
    {2, HW_AGENT, "--fail l3IifTH3:l3Iif=1:65536", "expected a code from 1 to 65535, got \"65536\""}};

TEST_F(EndToEnd, Refusals_AreOneClearLine) {
  std::ofstream(folder_.path() + "/file") << "no library, no socket";
  std::filesystem::create_directory(folder_.path() + "/open");
  std::filesystem::permissions(folder_.path() + "/open", std::filesystem::perms{0755});
  std::filesystem::create_symlink("/tmp", folder_.path() + "/link");
  std::filesystem::create_symlink(NO_PLUGIN, folder_.path() + "/lib.so");
  const auto inFolder = [this](std::string text) {
    for (std::size_t at = 0; (at = text.find('@', at)) != text.npos;) text.replace(at, 1, folder_.path());
    return text;
  };
  for (const auto& [exitCode, name, arguments, says] : kRefusals) {
    const std::string command = "cd @ && exec " + std::string(name) + " " + arguments;
    Program program({"/bin/sh", "-c", inFolder(command)});
    EXPECT_EQ(program.exitCode(), exitCode) << says;
    std::string output = program.output();
    if (const std::size_t end = output.find("no hardware agent runs"); end != output.npos) {
      output.erase(0, output.find('\n', end) + 1);
    }
    EXPECT_THAT(output, HasSubstr(inFolder(says)));
    EXPECT_EQ(output.find('\n'), output.size() - 1) << output;
  }
  EXPECT_FALSE(std::filesystem::exists(folder_.path() + "/new"));
}

TEST_F(EndToEnd, CopiedBuild_LoadsItsOwnLibraries) {
  const std::filesystem::path built = std::filesystem::path(P4RT_AGENT).parent_path();
  std::filesystem::copy(built, folder_.path() + "/bin");
  for (const char* const program : {"/bin/p4rt-agent", "/bin/hw-agent"}) {
    Program listing({"/usr/bin/env", "LD_TRACE_LOADED_OBJECTS=1", folder_.path() + program});
    EXPECT_TRUE(listing.says(folder_.path() + "/bin/libtolmar.so")) << listing.output();
  }
}

}  // namespace
