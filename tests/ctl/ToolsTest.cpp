// The commands beside show and diff, over real segments and traces.
#include <thread>

#include "CtlFixture.h"
#include "apps/server/StateFile.h"
#include "skein/Skein.h"

namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

class ToolsTest : public CtlTest {
 protected:
  /// A message in the trace of the agent, which the test plays.
  void trace(const std::string& text) const {
    static constinit const Skein::Site site{"./test", 1, "trace", "agent says %s"};
    Skein::message(site, text);
  }
  /// Changes one byte of a file in place.
  static void damage(const std::string& file, std::size_t at) {
    std::fstream stream(file, std::ios::in | std::ios::out | std::ios::binary);
    const int byte = stream.seekg(static_cast<std::streamoff>(at)).get();
    stream.seekp(static_cast<std::streamoff>(at)).put(static_cast<char>(byte ^ 0x10));
  }
  void checkSays(int code, const Strings& patterns) const {
    const auto found = run({"check"});
    EXPECT_EQ(found.code, code);
    for (const std::string& pattern : patterns) EXPECT_THAT(found.text, ContainsRegex(pattern));
  }
  static std::string output(const std::string& command) {
    Program program({"/bin/bash", "-c", command});
    EXPECT_EQ(program.exitCode(), 0) << program.output();
    return program.output();
  }
};

TEST_F(ToolsTest, Trace_MergesProcessesDeadAndAlive) {
  EXPECT_EQ(run({"trace"}).code, 2);
  startHardware();
  openConfig();
  Skein::ringIs(path() + "/p4rt-agent.trace", 16 * 1024);
  trace("first");
  put(1, 10);
  settle();
  kill();
  startHardware();
  trace("second");
  put(2, 10);
  settle();
  const auto handle = std::to_string(kStart + 2000);
  EXPECT_THAT(runIn(path(), {"trace"}).text,
              ContainsRegex("Z ctl_tests.[0-9]+. ./test:1 trace: agent says first\n(.*\n)*"
                            ".* hw-agent.[0-9]+. ./apps/hw/Programmer:[0-9]+ answerPresent: handle 17.*\n"
                            "(.*\n)*.*agent says second\n(.*\n)*.*hw-agent.*handle " +
                            handle));
  EXPECT_THAT(runIn(path(), {"trace", "--handle", handle}).text,
              AllOf(HasSubstr("answerPresent: handle " + handle), Not(HasSubstr("says"))));
  EXPECT_EQ(run({"trace", "--since", "2100-01-01"}), (Result{0, ""}));
  EXPECT_EQ(run({"trace", "--since", "1h"}), run({"trace"}));
  const auto follower = started(TOLMARCTL, path(), {"trace", "--follow"});
  EXPECT_TRUE(follower->says("agent says second"));
  trace("third");
  EXPECT_TRUE(follower->says("agent says third"));
  kill();
  startHardware();
  put(3, 10);
  EXPECT_TRUE(follower->says("handle " + std::to_string(kStart + 3000))) << "of the new process";
  follower->signal(SIGTERM);
  EXPECT_EQ(follower->exitCode(), 128 + SIGTERM);
  const std::string text = follower->output();
  EXPECT_EQ(text.find("says second"), text.rfind("says second")) << "each message once";
  damage(path() + "/hw-agent.trace.old", 20);
  const auto partly = run({"trace"});
  EXPECT_EQ(partly.code, 2);
  EXPECT_THAT(partly.text, AllOf(HasSubstr("hw-agent.trace.old: damaged header"), HasSubstr("says third")));
}

TEST_F(ToolsTest, Watch_ShowsChangesOfBothSides) {
  openConfig();
  const auto watch = started(TOLMARCTL, path(), {"watch", "l3IifTH3"});
  EXPECT_TRUE(watch->says("watching 1 tables"));
  put(1, 10);
  EXPECT_TRUE(watch->says("l3IifTH3 config added l3Iif=1 genId=1790000000000001000"));
  startHardware({"--fail", "l3IifTH3:l3Iif=1:7"});
  EXPECT_TRUE(watch->says("l3IifTH3 status added l3Iif=1 "));
  EXPECT_TRUE(watch->says(" errorCode=7\n"));
  put(1, 20, 1);
  EXPECT_TRUE(watch->says("changed l3Iif=1 genId=1790000000000001000->1790000000000001001 vrf=10->20\n"));
  remove(1);
  EXPECT_TRUE(watch->says("l3IifTH3 config removed l3Iif=1\n"));
  EXPECT_TRUE(watch->says("l3IifTH3 status removed l3Iif=1\n")) << "once its readers have handled it";
  put(2, 20);
  settle();
  const auto later = started(TOLMARCTL, path(), {"watch", "l3IifTH3"});
  EXPECT_TRUE(later->says("watching 1 tables"));
  const Vesta::Layout layout(Vesta::shapeOf<Key, TolmarHwLib::L3IifTH3StatusEntry>(8192));
  for (const unsigned slot : {0u, 1u}) damage(segment("status"), layout.slotAt(slot) * 8 + 20);
  put(2, 30, 1);  // the hardware agent detects the damage and replaces the segment
  EXPECT_TRUE(later->says("l3IifTH3 status another segment\n"));
}

TEST_F(ToolsTest, Check_SaysWhatIsWrongAndWhatToDo) {
  startWith({1, 2, 3});
  { Agent::BeforeImages images(path() + "/p4rt-agent.undo", {.batches = 8, .records = 8, .rowBytes = 200}); }
  Server::StateFile(path(), Server::kElectionIdsFile).replace("");
  checkSays(0,
            {"ok    p4.*l3IifTH3Table/config/table: 3 of 8192 rows, p4rt-agent PID running\n",
             "ok    p4.*l3IifTH3Table/status/table: 3 of 8192 rows, hw-agent PID running\n",
             "ok    hw-agent.counters: hw-agent .* running for ",
             "ok    hw-agent.trace: 6 messages since TIME\n", "ok    p4rt-agent.undo: 0 undecided updates\n",
             "ok    p4rt-agent.election: 0 bytes\n", "ok    VRF 10: 3 references by rows\n",
             "note  p4rt-agent.counters: missing\n      restart p4rt-agent, which creates it\n"});
  hardware_->signal(SIGSTOP);
  checkSays(0, {"note  .*hw-agent PID stopped by a signal\n      kill -CONT "});
  kill();
  checkSays(0, {"note  hw-agent.counters: .* is not running\n      start hw-agent\n"});
  const std::string status = segment("status");
  const std::string undo = path() + "/p4rt-agent.undo";
  const std::string counters = path() + "/hw-agent.counters";
  const struct {
    std::string file;
    std::size_t at;
    std::string text;
  } rows[] = {
      {status, Vesta::kStateAt * 8,
       l3Iif("status") + "/table: state: found 0x.*\n +start hw-agent: it replaces"},
      {status, Vesta::kMembersAt * 8, "/table: member count at word .*\n +start hw-agent: it"},
      {status, 0, "/table: header: expected magic .*\n +start hw-agent: it replaces"},
      {path() + "/hw-agent.trace", 9, "hw-agent.trace: .*: unknown layout version\n +remove it"},
      {undo, 40, "p4rt-agent.undo: FOLDER/p4rt-agent.undo: damaged header\n +restart the agent"},
      {counters, 0, "hw-agent.counters: .* does not begin with .*\n +restart hw-agent, which re-creates it"},
      {counters, 8, "hw-agent.counters: .*: layout version: expected 1, found 17\n"},
      {path() + "/p4rt-agent.election", 14,
       "p4rt-agent.election: FOLDER/.*; remove the file to start without"},
  };
  for (const auto& row : rows) {
    damage(row.file, row.at);
    const auto before = files();
    checkSays(1, {"FAULT .*" + row.text});
    EXPECT_EQ(files(), before);
    damage(row.file, row.at);
  }
  std::filesystem::resize_file(counters, 8192);
  std::filesystem::remove(status);
  std::filesystem::permissions(undo, std::filesystem::perms(0644));
  checkSays(1, {"FAULT hw-agent.counters: .*: bytes: expected [0-9]+, found 8192\n",
                "FAULT " + l3Iif("status") + "/table: missing\n      start hw-agent,",
                "FAULT p4rt-agent.undo: mode: expected 0600, found 0644\n"});
}

TEST_F(ToolsTest, Check_ComparesReferencesToVrfs) {
  startWith({1, 2});
  put(3, 20);
  auto& agent = playAgent();
  const auto lineOf = [&](std::uint64_t vrf10, std::uint64_t vrf20) {
    agent.vrfs.set(2);
    agent.vrfReferences[0].set(std::uint64_t{20} << 32 | vrf20);
    agent.vrfReferences[1].set(std::uint64_t{10} << 32 | vrf10);
    const auto found = run({"check"});
    return std::to_string(found.code) + found.text.substr(found.text.find("\nok    VRF 10"));
  };
  EXPECT_EQ(lineOf(3, 1),
            "0\nok    VRF 10: 2 references by rows, 3 by p4rt-agent\n"
            "ok    VRF 20: 1 references by rows, 1 by p4rt-agent\n0 faults\n");
  EXPECT_THAT(lineOf(2, 0),
              HasSubstr("ok    VRF 20: 1 references by rows, 0 by p4rt-agent when it last copied"));
  const std::jthread beating([&](const std::stop_token& stop) {
    for (; !stop.stop_requested(); std::this_thread::yield())
      agent.heartbeat.set(Counters::monotonicNanoseconds());
  });
  EXPECT_EQ(lineOf(2, 0),
            "1\nok    VRF 10: 2 references by rows, 2 by p4rt-agent\n"
            "FAULT VRF 20: 1 references by rows, 0 by p4rt-agent\n"
            "      restart p4rt-agent, which then counts the rows\n1 faults\n");
}

TEST_F(ToolsTest, Clean_KeepsWhatMayBeNeeded) {
  startWith({1});
  const std::string status = segment("status");
  const auto leave = [&] {
    for (const char* const ending : {".retired.1", ".report.7"}) {
      std::filesystem::copy_file(status, status + ending, std::filesystem::copy_options::overwrite_existing);
    }
  };
  leave();
  std::filesystem::create_hard_link(status, status + ".retired.2");
  std::ofstream(path() + "/kept.retired.1") << "not of a table";
  auto kept = files();
  const std::string name = l3Iif("status") + "/table";
  const auto dry = run({"clean", "--dry-run"});
  EXPECT_EQ(dry.code, 0);
  EXPECT_THAT(dry.text, HasSubstr("would remove " + name + ".report.7\nwould remove " + name +
                                  ".retired.1\nwould remove 2 files, "));
  EXPECT_EQ(files().size(), kept.size());
  EXPECT_THAT(run({"clean"}).text, HasSubstr("removed 2 files, "));
  for (const char* const ending : {".retired.1", ".report.7"}) kept.erase(status + ending);
  EXPECT_EQ(files().size(), kept.size());
  put(2, 10);
  settle();
  kill();
  leave();
  damage(status, Vesta::kMembersAt * 8);
  EXPECT_THAT(run({"clean"}).text,
              AllOf(HasSubstr("kept 3 files of " + l3Iif("status") + ": the table is damaged: member"),
                    HasSubstr("removed 0 files")));
  damage(status, 0);
  for (const char* const side : {"status", "config"}) {
    startHardware();
    EXPECT_THAT(run({"metrics"}).text,
                HasSubstr("\ntolmar_damage_reports_total{program=\"hw-agent\",table=\"l3IifTH3\"} 1\n"))
        << side;
    kill();
    damage(segment("config"), Vesta::kMembersAt * 8);
  }
}

TEST_F(ToolsTest, Report_HasEveryFile) {
  startWith({1});
  kill();
  const RuntimeFolder target;
  const std::string archive = target.path() + "/report.tar.gz";
  EXPECT_EQ(runIn(path(), {"report", "-o", archive}).text, archive + "\n");
  output("tar -C " + target.path() + " --strip-components=1 -xzf " + archive);
  EXPECT_EQ(output("cd " + target.path() + "/files && find . -type f | sort | xargs sha256sum"),
            output("cd " + path() + " && find . -type f | sort | xargs sha256sum"));
  EXPECT_THAT(output("cat " + target.path() + "/{versions,check,trace,metrics}.txt " + target.path() +
                     "/tables.json"),
              AllOf(HasSubstr("segment layout 5\n"), HasSubstr("killed\n      start hw-agent"),
                    HasSubstr("answerPresent: handle "), HasSubstr("\ntolmar_hw_seen_total{"),
                    HasSubstr("\"state\": \"programmed\"")));
  EXPECT_EQ(runIn(path(), {"report", "-o", archive}).code, 2) << "there is one of this name";
}

TEST_F(ToolsTest, Help_FitsAScreenAndCompletionKnowsEveryCommand) {
  const auto main = runIn(path(), {"--help"});
  std::string commands;
  std::smatch found;
  std::string rest = main.text.substr(main.text.find("Subcommands:\n"));
  for (; std::regex_search(rest, found, std::regex("\n  ([a-z]+) ")); rest = found.suffix()) {
    commands += found[1].str() + "\n";
  }
  EXPECT_THAT(commands, MatchesRegex("show\n(.*\n)*clean\n"));
  const auto completed = [](const std::string& words) {
    return output(
        "source " COMPLETION "; COMP_WORDS=(tolmarctl " + words +
        " ''); COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _tolmarctl; printf '%s\\n' \"${COMPREPLY[@]}\"");
  };
  EXPECT_EQ(completed("-r report -r = top"), completed(""));
  const std::string all = completed("");
  EXPECT_THAT(all, HasSubstr(commands));
  std::istringstream names(commands);
  for (std::string command; std::getline(names, command);) {
    const auto help = runIn(path(), {command, "--help"});
    EXPECT_EQ(help.code, 0);
    EXPECT_LE(std::count(help.text.begin(), help.text.end(), '\n'), 24) << help.text;
    EXPECT_FALSE(std::regex_search(help.text, std::regex("[^\n]{80}"))) << help.text;
    const std::string options = completed(command);
    rest = help.text.substr(help.text.find("Options:\n"));
    for (; std::regex_search(rest, found, std::regex("\n  [^ ]*(--[a-z-]+)")); rest = found.suffix()) {
      EXPECT_THAT(options, HasSubstr(found[1].str() + "\n")) << command;
    }
  }
  EXPECT_LE(std::count(main.text.begin(), main.text.end(), '\n'), 24) << main.text;
}

}  // namespace
