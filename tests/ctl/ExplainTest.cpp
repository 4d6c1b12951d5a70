// tolmarctl explain over real programs: the client writes, the hardware agent refuses or is stopped.
#include "CtlFixture.h"

namespace {

class ExplainTest : public CtlTest {
 protected:
  void startAgent() {
    agent_ = started(P4RT_AGENT, path());
    ASSERT_TRUE(agent_->says("serving P4Runtime at")) << agent_->output();
  }
  std::unique_ptr<Program> client(const Strings& arguments) const {
    return started(P4RT_CLIENT, path(), arguments);
  }
  /// Without times and the mark of the slowest step, which differ from run to run.
  std::string explained(const std::string& key) const {
    std::string text = run({"explain", "l3IifTH3", key}).text;
    EXPECT_THAT(text, testing::HasSubstr("  <- slowest"));
    const std::pair<const char*, const char*> masks[] = {{"  <- slowest|TIME|\\+[0-9.]+ [mu]?s\\b", ""},
                                                         {" +", " "}};
    for (const auto& [pattern, mask] : masks) text = std::regex_replace(text, std::regex(pattern), mask);
    return text;
  }
  std::unique_ptr<Program> agent_;
};

TEST_F(ExplainTest, ShowsTheStepsOfTheLatestUpdateAndOfItsUndo) {
  startHardware({"--fail", "l3IifTH3:vrf=4095:7"});
  startAgent();
  EXPECT_EQ(client({"write", "insert", "l3IifTH3", "l3Iif=5", "vrf=10"})->exitCode(), 0);
  const std::string way = R"( row to the config table
 seen by the hardware agent
 answered in the status table
 completed seen by the agent
)";
  EXPECT_EQ(explained("l3Iif=5"), R"(l3IifTH3 l3Iif=5: programmed
 handle=# config genId=# vrf=10; status genId=#
batch 1 insert handle # genId #
 request taken by the agent
)" + way + " decided its batch\n");
  EXPECT_EQ(client({"write", "modify", "l3IifTH3", "l3Iif=5", "vrf=4095"})->exitCode(), 1);
  settle();
  EXPECT_EQ(explained("l3Iif=5"), R"(l3IifTH3 l3Iif=5: programmed
 handle=# config genId=# vrf=10; status genId=#
batch 2 modify handle # genId #
 request taken by the agent
)" + way + " decided its batch\nundo\n" +
                                      way);
  hardware_->signal(SIGSTOP);
  const auto waiting = client({"write", "modify", "l3IifTH3", "l3Iif=5", "vrf=11"});
  while (run({"diff"}).code == 0) {
  }
  EXPECT_EQ(explained("l3Iif=5"), R"(l3IifTH3 l3Iif=5: pending for AGE, undecided
 handle=# config genId=# vrf=11; status genId=#; before genId=# vrf=10
batch 3 modify handle # genId #
 request taken by the agent
 row to the config table
 seen not yet, or its trace is gone by the hardware agent
 answered not yet, or its trace is gone in the status table
 completed not yet, or its trace is gone seen by the agent
 decided not yet, or its trace is gone its batch
)");
  hardware_->signal(SIGCONT);
  EXPECT_EQ(waiting->exitCode(), 0);
}

}  // namespace
