// The whole road with real processes: agent, plugin and hardware agent over shared memory.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Program.h"
#include "tests/RuntimeFolder.h"

namespace {

using Strings = std::vector<std::string>;

class Road : public testing::Test {
 protected:
  Strings withFolder(const char* program, const Strings& options) const {
    Strings arguments = {program, "--runtime-folder", folder_.path()};
    arguments.insert(arguments.end(), options.begin(), options.end());
    return arguments;
  }
  std::string socket() const { return folder_.path() + "/agent.sock"; }

  std::unique_ptr<Program> hardware(const Strings& options = {}) const {
    auto program = std::make_unique<Program>(withFolder(HW_AGENT, options));
    EXPECT_TRUE(program->says("following the tables")) << program->output();
    return program;
  }
  /// An agent that serves scripts until it is stopped.
  std::unique_ptr<Program> agent(const Strings& options = {}) const {
    Strings all = {"--socket", socket(), "--timeout", kPatience};
    all.insert(all.end(), options.begin(), options.end());
    auto program = std::make_unique<Program>(withFolder(P4RT_AGENT, all));
    EXPECT_TRUE(program->says("serving")) << program->output();
    return program;
  }
  /// Begins to send a script to the agent.
  std::unique_ptr<Program> sending(const std::string& script) const {
    return std::make_unique<Program>(Strings{P4RT_AGENT, "--send", socket(), "-"}, script);
  }
  /// Sends a script and expects every result to be as written in it.
  std::string send(const std::string& script) const {
    const auto client = sending(script);
    EXPECT_EQ(client->exitCode(), 0) << client->output();
    return client->output();
  }
  /// Runs an agent for one script and expects this exit code; what it printed.
  std::string run(const std::string& script, int exitCode = 0, const Strings& options = {}) const {
    Strings all = {"--timeout", kPatience};
    all.insert(all.end(), options.begin(), options.end());
    all.emplace_back("-");
    Program program(withFolder(P4RT_AGENT, all), script);
    EXPECT_EQ(program.exitCode(), exitCode) << program.output();
    return program.output();
  }
  static void stop(Program& program, int number = SIGTERM, int exitCode = 0) {
    program.signal(number);
    EXPECT_EQ(program.exitCode(), exitCode) << program.output();
  }
  static std::string example(const char* name) {
    std::ifstream file(std::string(EXAMPLES) + "/" + name);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  /// Overwrites all rows of a table of l3IifTH3 and its index.
  void damage(const std::string& side) const {
    std::fstream file(folder_.path() + "/p4runtime/outputTables/tolmar/l3IifTH3Table/" + side + "/table",
                      std::ios::in | std::ios::out | std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (std::size_t at = 8192; at < bytes.size(); ++at) bytes[at] ^= 0x5a;
    file.seekp(0).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  }
  static bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
  }

  static constexpr const char* kPatience = "50";  // seconds; a busy machine is no failure

  RuntimeFolder folder_;
};

std::string inserts(int first, int last) {
  return "batch\nfor i in " + std::to_string(first) + ".." + std::to_string(last) +
         "\ninsert l3IifTH3 l3Iif={i} vrf=7\nend\nend\n";
}

TEST_F(Road, HardwareFirst_AnswersAllFourTables) {
  const auto hw = hardware({"--fail", "l3IifTH3:l3Iif=99:7"});
  EXPECT_TRUE(has(run(example("basic.script") + example("failures.script")), "passed: ")) << "passed";
  stop(*hw);
  EXPECT_TRUE(has(hw->output(), "stopped after 25 answers")) << hw->output();
}

TEST_F(Road, AgentFirst_IsAnsweredOnceTheHardwareComes) {
  const auto served = agent();
  const auto client = sending(inserts(1, 100) + example("basic.script"));
  const auto hw = hardware();
  EXPECT_EQ(client->exitCode(), 0) << client->output();
  EXPECT_TRUE(has(client->output(), "batch of 100: 100 OK, all as expected")) << client->output();
  stop(*served);
  stop(*hw);
}

TEST_F(Road, Capacity_EveryTableFullChangedAndFullAgain) {
  const auto hw = hardware({"--fail", "l3IifTH3:l3Iif=9999:7"});
  const std::string output = run(example("capacity.script"));
  EXPECT_TRUE(has(output, "passed: 34572 updates, 34572 answered, 13 failed as scripted, 0 lost")) << output;
  EXPECT_TRUE(has(output, "RESOURCE_EXHAUSTED: ")) << output;
  EXPECT_TRUE(has(output, "used 8192 of 8192")) << output;
}

TEST_F(Road, FaultsAndDelay_EveryUpdateIsAnsweredOnceWithItsOwnCode) {
  const auto hw = hardware({"--fail-every", "10:3", "--delay", "20"});
  const auto served = agent();
  const auto client = sending(inserts(1, 1000));
  EXPECT_EQ(client->exitCode(), 1);
  EXPECT_TRUE(has(client->output(), "batch of 1000: 900 OK, 100 HARDWARE_ERROR, 100 NOT as expected"))
      << client->output();
  send("batch\nfor i in 1..1000\ndelete l3IifTH3 l3Iif={i}\nend\nend\n");
  stop(*hw);
  EXPECT_TRUE(has(hw->output(), "stopped after 2000 answers")) << hw->output();
}

class RoadRestart : public Road, public testing::WithParamInterface<int> {};

TEST_P(RoadRestart, HardwareAgentBetweenTwoBatches) {
  const auto served = agent();
  {
    const auto hw = hardware();
    send(inserts(1, 500));
    stop(*hw, GetParam(), GetParam() == SIGKILL ? 128 + SIGKILL : 0);
  }
  const auto client = sending(
      "batch\nfor i in 1..100\nmodify l3IifTH3 l3Iif={i} vrf=8\nend\nfor i in 101..200\ndelete l3IifTH3 "
      "l3Iif={i}\nend\n" +
      std::string("for i in 501..600\ninsert l3IifTH3 l3Iif={i} vrf=9\nend\nend\n"));
  const auto hw = hardware();
  EXPECT_EQ(client->exitCode(), 0) << client->output();
  EXPECT_TRUE(has(client->output(), "batch of 300: 300 OK")) << client->output();
  send(inserts(101, 200));
  stop(*hw);
  EXPECT_TRUE(has(hw->output(), "stopped after 400 answers"))
      << "equal rows are left alone: " << hw->output();
}

TEST_P(RoadRestart, AgentKeepsItsTables) {
  const auto hw = hardware();
  {
    const auto served = agent();
    send(inserts(1, 300));
    stop(*served, GetParam(), GetParam() == SIGKILL ? 128 + SIGKILL : 0);
  }
  const auto served = agent();  // on the socket that a killed agent leaves behind
  const std::string output = send(
      "insert l3IifTH3 l3Iif=300 vrf=1 expect ALREADY_EXISTS\nmodify l3IifTH3 l3Iif=300 vrf=4711\nshow "
      "l3IifTH3\n"
      "batch\nfor i in 1..300\ndelete l3IifTH3 l3Iif={i}\nend\nend\nshow l3IifTH3\ninsert l3IifTH3 "
      "l3Iif=300\n");
  EXPECT_TRUE(has(output, "300 rows in l3IifTH3")) << output;
  EXPECT_TRUE(has(output, "vrf = 4711")) << output;
  EXPECT_TRUE(has(output, "0 rows in l3IifTH3")) << output;
}

INSTANTIATE_TEST_SUITE_P(By, RoadRestart, testing::Values(SIGTERM, SIGKILL),
                         [](const auto& tested) { return tested.param == SIGTERM ? "Sigterm" : "Sigkill"; });

TEST_F(Road, HardwareKilledInTheMiddleOfABatch_LosesNoAnswer) {
  const auto served = agent();
  auto hw = hardware();
  const auto client = sending(inserts(1, 8192));
  EXPECT_TRUE(client->says("of 8192 answered")) << client->output();
  stop(*hw, SIGKILL, 128 + SIGKILL);
  hw = hardware();
  EXPECT_EQ(client->exitCode(), 0) << client->output();
  EXPECT_TRUE(has(client->output(), "batch of 8192: 8192 OK")) << client->output();
}

TEST_F(Road, AgentKilledInTheMiddleOfABatch_GoesOnFromItsTables) {
  const auto hw = hardware();
  {
    const auto served = agent();
    const auto client = sending(inserts(1, 8192));
    EXPECT_TRUE(client->says("of 8192 answered")) << client->output();
    stop(*served, SIGKILL, 128 + SIGKILL);
  }
  const auto served = agent();
  const std::string shown = send("show l3IifTH3\n");
  const std::size_t after = shown.rfind(" rows in l3IifTH3");
  ASSERT_NE(after, std::string::npos) << shown;
  const int rows =
      std::stoi(shown.substr(shown.rfind('\n', after) + 1));  // the first so many: written in order
  EXPECT_GT(rows, 0);
  const std::string all = std::to_string(rows);
  send("batch\nfor i in 1.." + all + "\nmodify l3IifTH3 l3Iif={i} vrf=8\nend\nend\n" +
       inserts(rows + 1, 8192));
}

TEST_F(Road, NoHardware_IsDeadlineExceededAndGoesOnWhenItComes) {
  const auto served = agent({"--timeout", "0.1"});
  send(
      "insert l3IifTH3 l3Iif=1 vrf=1 expect DEADLINE_EXCEEDED\nmodify l3IifTH3 l3Iif=1 vrf=2 expect "
      "DEADLINE_EXCEEDED\n");
  stop(*served);
  const auto again = agent();
  const auto client = sending("modify l3IifTH3 l3Iif=1 vrf=3\ndelete l3IifTH3 l3Iif=1\n");
  const auto hw = hardware();
  EXPECT_EQ(client->exitCode(), 0) << client->output();
}

TEST_F(Road, AnswerThatNeverComes_IsGivenUpOnceTheHardwareHasRestarted) {
  const auto served = agent({"--timeout", "4"});
  auto hw = hardware();
  send("insert l3IifTH3 l3Iif=1 vrf=1\n");
  stop(*hw);
  const auto removal = sending("delete l3IifTH3 l3Iif=1 expect DEADLINE_EXCEEDED\n");
  EXPECT_EQ(removal->exitCode(), 0) << removal->output();
  damage("status");
  // Nothing is left of the entry in either table: the hardware agent cannot know that an answer is owed.
  hw = hardware();
  EXPECT_TRUE(hw->says("set aside")) << hw->output();
  send("insert l3IifTH3 l3Iif=1 vrf=1\n");
}

TEST_F(Road, DamagedTables_AreFollowedAgainWhenTheirWritersHaveReplacedThem) {
  auto served = agent();
  auto hw = hardware();
  send(inserts(1, 10));
  damage("status");
  send("modify l3IifTH3 l3Iif=1 vrf=2\n");  // the hardware agent meets the damage and replaces its table
  EXPECT_TRUE(hw->says("set aside")) << hw->output();
  stop(*hw);
  damage("config");
  hw = hardware();
  EXPECT_TRUE(has(hw->output(), "l3IifTH3: waiting for a sound table: ")) << hw->output();
  send(
      "insert l3IifTH3 l3Iif=11 expect INTERNAL\nmodify l3IifTH3 l3Iif=1 vrf=3 expect INTERNAL\n"
      "insert l3TunnelIpv4TH3 sip=192.0.2.1 dip=192.0.2.2 protocol=17 l4DestPort=4789 l4SrcPort=0\n");
  stop(*served);
  served = agent();
  EXPECT_TRUE(hw->says("l3IifTH3: followed again")) << hw->output();
  send(inserts(1, 10));
}

TEST_F(Road, Traces_GoToTheTerminalOnRequestAndToTheRingAlways) {
  const auto hw = hardware();
  const std::string script = "insert l3IifTH3 l3Iif=4711 vrf=12\n";
  const std::string output = run(script, 0, {"--trace", "VrfSm:7", "--trace", "PendingHwPogrammingSm:9"});
  EXPECT_TRUE(has(output, "handleL3IifTH3ConfigEntry add vrf 12 refCount 1")) << output;
  EXPECT_TRUE(has(output, "onStatusRow4711")) << output;
  std::ifstream file(folder_.path() + "/p4rt-agent.trace", std::ios::binary);
  const std::string ring{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_TRUE(has(ring, "pluginInit")) << "what came before the ring was set up";
  EXPECT_TRUE(has(ring, "onStatusRow"));
}

TEST_F(Road, MalformedLines_AreToldAndTheRestIsAttempted) {
  const auto hw = hardware();
  const std::string output =
      run("batch\ninsert l3IifTH3 l3Iif=1 vrf=1\ninsert l3IifTH3 l3Iif=2 vrf=70000\ninsrt l3IifTH3\ninsert "
          "l3IifTH3 l3Iif=3\nend\n",
          1);
  EXPECT_TRUE(has(output, "line 3: ")) << output;
  EXPECT_TRUE(has(output, "got \"70000\"")) << output;
  EXPECT_TRUE(has(output, "line 4: expected insert, modify, delete,")) << output;
  EXPECT_TRUE(has(output, "2 OK, 2 INVALID_ARGUMENT")) << output;
}

TEST_F(Road, Cleanup_RemovesTheTablesAndEndsWriting) {
  const auto hw = hardware();
  const std::string config = folder_.path() + "/p4runtime/outputTables/tolmar/l3IifTH3Table/config/table";
  const auto served = agent();
  send("insert l3IifTH3 l3Iif=1 vrf=1\n");
  EXPECT_EQ(::access(config.c_str(), F_OK), 0);
  send("cleanup\ninsert l3IifTH3 l3Iif=2 vrf=1 expect INTERNAL\n");
  EXPECT_NE(::access(config.c_str(), F_OK), 0);
  stop(*served);
}

struct Refusal {
  const char* name;
  Strings (*arguments)(const std::string& folder);
  const char* says;
  int exitCode = 1;
};

class RoadRefusal : public testing::TestWithParam<Refusal> {};

TEST_P(RoadRefusal, IsOneClearLine) {
  const RuntimeFolder folder;
  Program program(GetParam().arguments(folder.path()), "insert l3IifTH3 l3Iif=1 vrf=1\n");
  EXPECT_EQ(program.exitCode(), GetParam().exitCode);
  EXPECT_TRUE(program.output().find(GetParam().says) != std::string::npos) << program.output();
  EXPECT_EQ(std::count(program.output().begin(), program.output().end(), '\n'), 1) << program.output();
}

const Refusal kRefusals[] = {
    {"FolderRights_Agent",
     [](const std::string& folder) {
       ::chmod(folder.c_str(), 0750);
       return Strings{P4RT_AGENT, "-r", folder, "-"};
     },
     "expected rights 0700, got 0750"},
    {"FolderRights_Hardware",
     [](const std::string& folder) {
       ::chmod(folder.c_str(), 0777);
       return Strings{HW_AGENT, "-r", folder};
     },
     "expected rights 0700, got 0777"},
    {"FolderIsALink",
     [](const std::string& folder) {
       ::symlink("/tmp", (folder + "/link").c_str());
       return Strings{HW_AGENT, "-r", folder + "/link"};
     },
     "expected a directory, got a link"},
    {"PluginMissing",
     [](const std::string& folder) {
       return Strings{P4RT_AGENT, "-r", folder, "-p", folder + "/none.so", "-"};
     },
     "none.so"},
    {"PluginIsNoLibrary",
     [](const std::string& folder) {
       std::ofstream(folder + "/plugin.so") << "no library";
       return Strings{P4RT_AGENT, "-r", folder, "-p", folder + "/plugin.so", "-"};
     },
     "plugin.so"},
    {"ScriptMissing",
     [](const std::string& folder) {
       return Strings{P4RT_AGENT, "-r", folder, folder + "/none.script"};
     },
     "none.script: No such file or directory"},
    {"NobodyServes",
     [](const std::string& folder) {
       return Strings{P4RT_AGENT, "--send", folder + "/none.sock", "-"};
     },
     "none.sock: No such file or directory"},
    {"FaultOfUnknownTable",
     [](const std::string& folder) {
       return Strings{HW_AGENT, "-r", folder, "-f", "l3Iif:l3Iif=1:7"};
     },
     "--fail: expected a table (l3TunnelIpv4TH3, l3TunnelIpv6TH3, myStationTcamTH3, l3IifTH3), got "
     "\"l3Iif\""},
    {"SocketIsAFile",
     [](const std::string& folder) {
       std::ofstream(folder + "/socket") << "mine";
       return Strings{P4RT_AGENT, "-r", folder, "-s", folder + "/socket"};
     },
     "expected a socket, got another file"},
    {"Usage_NoScript",
     [](const std::string& folder) {
       return Strings{P4RT_AGENT, "-r", folder};
     },
     "expected a script (\"-\" for standard input) or --socket, got neither", 2},
    {"Usage_Timeout",
     [](const std::string&) {
       return Strings{P4RT_AGENT, "-t", "0", "-"};
     },
     "--timeout: expected seconds from 0.001 to 3600, got \"0\"", 2},
    {"Usage_Trace",
     [](const std::string&) {
       return Strings{P4RT_AGENT, "--trace", "VrfSm:32", "-"};
     },
     "--trace: expected HANDLE:LEVEL with a level from 0 to 31, got \"VrfSm:32\"", 2},
    {"Usage_UnknownOption",
     [](const std::string&) {
       return Strings{P4RT_AGENT, "--fast", "-"};
     },
     "expected an option of --help, got --fast", 2},
    {"Usage_MissingValue",
     [](const std::string&) {
       return Strings{HW_AGENT, "--delay"};
     },
     "expected a value after --delay, got none", 2},
    {"Usage_Delay",
     [](const std::string&) {
       return Strings{HW_AGENT, "--delay", "1s"};
     },
     "--delay: expected milliseconds from 0 to 3600000, got \"1s\"", 2},
    {"Usage_Fault",
     [](const std::string&) {
       return Strings{HW_AGENT, "--fail", "l3IifTH3:l3Iif=1"};
     },
     "--fail: expected TABLE:FIELD=VALUE[,FIELD=VALUE...]:CODE", 2},
};
INSTANTIATE_TEST_SUITE_P(Of, RoadRefusal, testing::ValuesIn(kRefusals),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(Road, SecondWriter_IsRefusedWithThePidOfTheFirstWhichGoesOn) {
  const auto hw = hardware();
  const auto served = agent();
  Program secondHardware(withFolder(HW_AGENT, {}));
  EXPECT_EQ(secondHardware.exitCode(), 1);
  EXPECT_TRUE(has(secondHardware.output(), std::to_string(hw->pid()))) << secondHardware.output();
  const std::string refused = run("insert l3IifTH3 l3Iif=1 vrf=1\n", 1);
  EXPECT_TRUE(has(refused, std::to_string(served->pid()))) << refused;
  const RuntimeFolder other;
  Program secondServer({P4RT_AGENT, "--runtime-folder", other.path(), "--socket", socket()});
  EXPECT_EQ(secondServer.exitCode(), 1);
  EXPECT_TRUE(has(secondServer.output(), "another process serves it")) << secondServer.output();
  send(inserts(1, 10));
}

}  // namespace
