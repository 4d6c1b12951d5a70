// tolmarctl top and metrics over the counters of a real hardware agent, and of an agent that the test plays.
#include <httplib.h>

#include <nlohmann/json.hpp>

#include "CtlFixture.h"

namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

class MetricsTest : public CtlTest {
 protected:
  void playBusyAgent() {
    auto& words = playAgent();
    words.server.requests.set(11);
    words.failures.set(1);
    auto& failure = words.lastFailures[1];
    failure.number.set(1);
    failure.time.set(1'790'000'000'000'000'000);
    failure.handle.set(kStart + 7);
    failure.what.set(std::uint64_t{4} << 32 | 13u << 16 | 9u);
    failure.check.set(Counters::failureCheck(1, failure.time.value(), kStart + 7, failure.what.value()));
    auto& table = words.tables[3];
    table.capacity.set(8192);
    table.used.set(4096);
    table.highWater.set(5000);
    table.writes[0].set(6000);
    table.completions[0].set(5990);
    table.completions[9].set(10);
    for (int i = 0; i < 100; ++i) table.answerTimes.add(i == 99 ? 3'000'000 : 20'000);
  }
};

TEST_F(MetricsTest, Text_HasTheCountersOfBothPrograms) {
  startWith({1, 2, 99}, {"--fail", "l3IifTH3:l3Iif=99:7"});
  remove(2);
  settle();
  playBusyAgent();
  const std::string text = run({"metrics"}).text;
  for (const char* const line : {
           "\ntolmar_up{program=\"hw-agent\"} 1\n",
           "\ntolmar_table_used{table=\"l3IifTH3\"} 4096\n",
           "\ntolmar_table_high_water{table=\"l3IifTH3\"} 5000\n",
           "\ntolmar_writes_total{table=\"l3IifTH3\",type=\"insert\"} 6000\n",
           "\ntolmar_completions_total{table=\"l3IifTH3\",code=\"9\"} 10\n",
           "\ntolmar_answer_seconds_count{table=\"l3IifTH3\"} 100\n",
           "\ntolmar_answer_seconds_bucket{table=\"l3IifTH3\",le=\"3.2768e-05\"} 99\n",
           "\ntolmar_answer_seconds_bucket{table=\"l3IifTH3\",le=\"0.004194304\"} 100\n",
           "\ntolmar_answer_seconds_bucket{table=\"l3IifTH3\",le=\"+Inf\"} 100\n",
           "\ntolmar_hw_answers_total{table=\"l3IifTH3\",code=\"7\"} 1\n",
           "\ntolmar_hw_removals_total{table=\"l3IifTH3\"} 1\n",
           "\ntolmar_hw_seen_total{table=\"l3IifTH3\"} 4\n",
           "\ntolmar_hw_answer_seconds_count{table=\"l3IifTH3\"} 4\n",
       }) {
    EXPECT_THAT(text, HasSubstr(line));
  }
  // The alert rules and the dashboard ask for nothing else.
  for (const char* const name : {"/alerts.yml", "/grafana-dashboard.json"}) {
    std::ifstream file(std::string(CONTRIB) + name);
    const std::string rules(std::istreambuf_iterator<char>(file), {});
    const std::regex metric("tolmar_[a-z_]+");
    std::sregex_iterator at(rules.begin(), rules.end(), metric);
    EXPECT_GE(std::distance(at, {}), 10);
    for (; at != std::sregex_iterator(); ++at) EXPECT_THAT(text, HasSubstr("\n" + at->str()));
  }
  const auto once = run({"top", "--once", "--interval", "0.05"});
  EXPECT_EQ(once.code, 0);
  EXPECT_THAT(once.text,
              HasSubstr("l3IifTH3         ##########..........  4096 of 8192    5000        0        0"
                        "      0  20.48us  20.48us  3.015ms  3.015ms\n"));
  EXPECT_THAT(once.text, HasSubstr("TIME l3IifTH3 handle=# INTERNAL code=9\n"));
  agent_.reset();
  EXPECT_EQ(run({"top", "--once", "--interval", "0.05"}).code, 1);
}

TEST_F(MetricsTest, Page_ShowsTheCountersAndWhetherBothProgramsLive) {
  const auto server = started(TOLMARCTL, path(), {"metrics", "--listen", "127.0.0.1:0"});
  ASSERT_TRUE(server->says("/\n")) << server->output();
  std::string address = server->output().substr(server->output().find("http"));
  address.resize(address.find("/\n"));
  httplib::Client client(address);
  const auto second = run({"metrics", "--listen", address.substr(7)});
  EXPECT_THAT(std::to_string(second.code) + second.text, HasSubstr("2tolmarctl: cannot listen at 127.0.0.1"));
  const auto get = [&client](const char* at) {
    const auto result = client.Get(at);
    return result ? std::to_string(result->status) + " " + result->body : std::string("no answer");
  };
  EXPECT_THAT(get("/healthz"), HasSubstr("503 runtime folder " + path() + ": no counters: "));
  startWith({1});
  EXPECT_THAT(get("/healthz"), HasSubstr("503 p4rt-agent: counter file "));
  playBusyAgent();
  EXPECT_EQ(get("/healthz"), "200 ok\n");
  EXPECT_THAT(get("/metrics"), HasSubstr("\ntolmar_hw_answers_total{table=\"l3IifTH3\",code=\"0\"} 1\n"));
  EXPECT_THAT(get("/"), testing::StartsWith("200 <!doctype html>\n"));
  EXPECT_THAT(get("/"), Not(ContainsRegex("(src|href)=|https?://[^w]"))) << "nothing from elsewhere";
  const auto data = nlohmann::json::parse(client.Get("/data.json")->body);
  const auto& table = data["tables"][3];
  EXPECT_EQ(table["name"], "l3IifTH3");
  EXPECT_EQ(table["used"].dump() + table["completed"].dump() + table["failed"].dump(), "4096599010");
  EXPECT_EQ(table["answerTimes"].dump(), "[[20480,99],[3014656,1]]");
  EXPECT_EQ(data["server"]["requests"], 11);
  EXPECT_EQ(data["failures"][0]["status"].dump() + data["failures"][0]["handle"].dump(),
            R"("INTERNAL""1790000000000000007")");
  EXPECT_EQ(data["programs"][1]["pid"], hardware_->pid());
  hardware_->signal(SIGSTOP);
  for (std::string health = "200"; health.starts_with("200"); health = get("/healthz")) {
    agent_->words().heartbeat.set(Counters::monotonicNanoseconds());
  }
  EXPECT_THAT(get("/healthz"),
              ContainsRegex("503 hw-agent .pid [0-9]+. has been silent for 2.* s: it hangs"));
  EXPECT_THAT(run({"check"}).text, ContainsRegex("note  hw-agent.counters: hw-agent .* it hangs or was "
                                                 "stopped\n      kill -CONT [0-9]+ if"));
  kill();
  EXPECT_THAT(get("/healthz"), ContainsRegex("503 hw-agent .pid [0-9]+. is not running\n"));
  // The words of a file that is cut short are not those of the program.
  ASSERT_EQ(::truncate((path() + "/p4rt-agent.counters").c_str(), 4096), 0);
  EXPECT_THAT(get("/data.json"), HasSubstr("truncated"));
}

}  // namespace
