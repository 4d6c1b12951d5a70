// The commands beside show and diff, over real segments and traces.
#include <csignal>
#include <cstdlib>

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
  /// Starts a command that runs until it is stopped.
  std::unique_ptr<Program> start(const Strings& arguments) const {
    Strings all = {TOLMARCTL, "-r", path()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return std::make_unique<Program>(all);
  }
  void kill() {
    hardware_->signal(SIGKILL);
    EXPECT_EQ(hardware_->exitCode(), 128 + SIGKILL);
  }
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
  const auto all = runIn(path(), {"trace"});
  EXPECT_EQ(all.code, 0);
  EXPECT_THAT(all.text,
              ContainsRegex("Z ctl_tests.[0-9]+. ./test:1 trace: agent says first\n(.*\n)*"
                            ".* hw-agent.[0-9]+. ./apps/hw/Programmer:[0-9]+ answerPresent: handle 17.*\n"
                            "(.*\n)*.*agent says second\n(.*\n)*.*hw-agent.*handle " +
                            handle));
  EXPECT_THAT(runIn(path(), {"trace", "--handle", handle}).text,
              AllOf(HasSubstr("answerPresent: handle " + handle), Not(HasSubstr("says"))));
  EXPECT_EQ(run({"trace", "--since", "2100-01-01"}).text, "");
  EXPECT_EQ(run({"trace", "--since", "1h"}).text, run({"trace"}).text);
  EXPECT_THAT(run({"trace", "--since", "soon"}).text, HasSubstr("expected a time such as"));
  const auto follower = start({"trace", "--follow"});
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
  const auto watch = start({"watch", "l3IifTH3"});
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
  const auto later = start({"watch", "l3IifTH3"});
  EXPECT_TRUE(later->says("watching 1 tables"));
  const Vesta::Layout layout(Vesta::shapeOf<Key, TolmarHwLib::L3IifTH3StatusEntry>(8192));
  for (const unsigned slot : {0u, 1u}) damage(segment("status"), layout.slotAt(slot) * 8 + 20);
  put(2, 30, 1);  // the hardware agent detects the damage and replaces the segment
  EXPECT_TRUE(later->says("l3IifTH3 status another segment\n"));
}

TEST_F(ToolsTest, Check_SaysWhatIsWrongAndWhatToDo) {
  startHardware();
  openConfig();
  for (const unsigned key : {1u, 2u, 3u}) put(key, key == 3 ? 20 : 10);
  settle();
  { Agent::BeforeImages images(path() + "/p4rt-agent.undo", {.batches = 8, .records = 8, .rowBytes = 200}); }
  Server::StateFile(path(), Server::kElectionIdsFile).replace("");
  const auto fine = run({"check"});
  EXPECT_THAT(fine.text,
              AllOf(HasSubstr("ok    " + l3Iif("config") + "/table: 3 of 8192 rows, p4rt-agent PID running"),
                    HasSubstr("ok    hw-agent.trace: 6 messages since TIME\n"),
                    HasSubstr("ok    p4rt-agent.undo: 0 undecided updates\n"),
                    HasSubstr("ok    p4rt-agent.election: 0 bytes\n"),
                    HasSubstr("VRF 10: 2 references by rows\nVRF 20: 1 references by rows\n")));
  EXPECT_EQ(fine.code, 0);
  hardware_->signal(SIGSTOP);
  EXPECT_THAT(run({"check"}).text, HasSubstr("hw-agent PID stopped by a signal\n      kill -CONT "));
  kill();
  const std::string status = segment("status");
  const std::string trace = path() + "/hw-agent.trace";
  const std::string undo = path() + "/p4rt-agent.undo";
  const std::string election = path() + "/p4rt-agent.election";
  const struct {
    std::string file;
    std::size_t at;
    std::string text;
  } rows[] = {
      {status, Vesta::kStateAt * 8,
       l3Iif("status") + "/table: state: found 0x.*\n      start hw-agent: it replaces"},
      {status, Vesta::kMembersAt * 8,
       l3Iif("status") + "/table: member count at word .*\n      start hw-agent: it"},
      {status, 0, l3Iif("status") + "/table: header: expected magic .*\n      start hw-agent: it replaces"},
      {trace, 9, "hw-agent.trace: trace ring FOLDER/hw-agent.trace: unknown layout version\n      remove it"},
      {undo, 40, "p4rt-agent.undo: FOLDER/p4rt-agent.undo: damaged header\n      restart the agent"},
      {election, 14,
       "p4rt-agent.election: FOLDER/.*; remove the file to start without the highest election ids"},
  };
  for (const auto& row : rows) {
    damage(row.file, row.at);
    const auto before = files();
    EXPECT_THAT(run({"check"}).text, ContainsRegex("FAULT " + row.text));
    EXPECT_EQ(files(), before);
    damage(row.file, row.at);
  }
  std::filesystem::remove(status);
  EXPECT_THAT(run({"check"}).text,
              HasSubstr("FAULT " + l3Iif("status") + "/table: missing\n      start hw-agent,"));
  EXPECT_EQ(run({"check"}).code, 1);
  std::filesystem::permissions(undo, std::filesystem::perms(0644));
  EXPECT_THAT(run({"check"}).text, HasSubstr("FAULT p4rt-agent.undo: mode: expected 0600, found 0644\n"));
}

TEST_F(ToolsTest, Clean_KeepsWhatMayBeNeeded) {
  startHardware();
  openConfig();
  put(1, 10);
  settle();
  const std::string status = segment("status");
  const auto leave = [&] {
    for (const char* const ending : {".retired.1", ".report.7"}) {
      std::filesystem::copy_file(status, status + ending, std::filesystem::copy_options::overwrite_existing);
    }
  };
  leave();
  std::filesystem::create_hard_link(status, status + ".retired.2");
  std::ofstream(path() + "/kept.retired.1") << "not of a table";
  const auto before = files();
  const std::string name = l3Iif("status") + "/table";
  EXPECT_EQ(run({"clean", "--dry-run"}).code, 0);
  EXPECT_THAT(run({"clean", "--dry-run"}).text,
              AllOf(HasSubstr("would remove " + name + ".report.7\nwould remove " + name + ".retired.1\n"),
                    HasSubstr("would remove 2 files, ")));
  EXPECT_EQ(files().size(), before.size());
  EXPECT_THAT(run({"clean"}).text, HasSubstr("removed 2 files, "));
  auto after = before;
  after.erase(status + ".retired.1");
  after.erase(status + ".report.7");
  EXPECT_EQ(files().size(), after.size());
  put(2, 10);
  settle();
  kill();
  leave();
  damage(status, Vesta::kMembersAt * 8);
  EXPECT_THAT(run({"clean"}).text,
              AllOf(HasSubstr("kept 3 files of " + l3Iif("status") + ": the table is damaged: member"),
                    HasSubstr("removed 0 files")));
}

TEST_F(ToolsTest, Report_HasEveryFile) {
  startHardware();
  openConfig();
  put(1, 10);
  settle();
  kill();
  const RuntimeFolder target;
  const std::string archive = target.path() + "/report.tar.gz";
  EXPECT_EQ(runIn(path(), {"report", "-o", archive}).text, archive + "\n");
  output("tar -C " + target.path() + " --strip-components=1 -xzf " + archive);
  EXPECT_EQ(output("cd " + target.path() + "/files && find . -type f | sort | xargs sha256sum"),
            output("cd " + path() + " && find . -type f | sort | xargs sha256sum"));
  EXPECT_THAT(
      output("cat " + target.path() + "/{versions,check,trace}.txt " + target.path() + "/tables.json"),
      AllOf(HasSubstr("segment layout 5\n"), HasSubstr("killed\n      start hw-agent"),
            HasSubstr("answerPresent: handle "), HasSubstr("\"state\": \"programmed\"")));
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
