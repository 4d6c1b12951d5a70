// The agent's core over the plugin's real tables; the test plays the hardware.
#include <gtest/gtest.h>

#include "P4RuntimeTolmar/kinds/L3IifTH3.h"
#include "orrery/EntityManager.h"
#include "p4runtime/PluginLibrary.h"
#include "tests/RuntimeFolder.h"
#include "tests/core/Updates.h"

namespace {

using namespace Agent;
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;
using Config = TolmarHwLib::L3IifTH3Config;

constexpr const char* kPath = "p4runtime/outputTables/tolmar/l3IifTH3Table/config";
constexpr std::uint64_t kFirstHandle = 1'700'000'000'000'000'000;

/// What is written to the config table, in order.
class Writes final : public Config::NotifieeConst {
 public:
  std::vector<std::string> texts;  // "put5" or "del5"
  std::vector<TolmarHwLib::ConfigBookkeeping> entries;

 private:
  using Config::NotifieeConst::onTable;
  void onTable(const Config::Key& key) override {
    bool found = false;
    const auto& entry = notifier()->directLookup(key, found);
    if (found) last_[key.l3Iif] = entry;
    texts.push_back((found ? "put" : "del") + std::to_string(key.l3Iif));
    entries.push_back(last_[key.l3Iif]);
  }
  std::map<std::uint64_t, TolmarHwLib::ConfigBookkeeping> last_;
};

class AgentCoreTest : public testing::Test {
 protected:
  AgentCoreTest() {
    library_.init(context_);
    writes_->notifierIs(Quill::Ptr<const Config>(&config()));
    writes_->isRegisteredNotifieeIs(true);
    start(kFirstHandle);
  }
  /// A new core over the tables as they are: the agent restarted.
  void start(std::uint64_t firstHandle) {
    core_.reset();
    core_ = std::make_unique<AgentCore>(
        context_->lumenDb(), batchStatus_,
        AgentCore::Settings{firstHandle, 1s, [this](const auto&) { return fault_; },
                            [](const auto&) { return true; }});
  }

  /// Starts a batch and returns its number; its results come to results_.
  std::size_t submit(const Strings& texts) {
    std::vector<Update> updates;
    for (const std::string& text : texts) updates.push_back(updateFrom(*core_, text));
    const std::size_t number = results_.size();
    results_.emplace_back();
    const auto done = [this, number](const std::vector<Result>& results) {
      for (const Result& result : results) {
        const std::string message = result.message.empty() ? "" : ": " + result.message;
        results_[number].push_back(std::string(codeName(result.code)) + message);
      }
    };
    core_->submit(std::move(updates), done, {}, now_);
    core_->finish();
    return number;
  }

  /// The hardware answers for `handle`.
  void complete(std::uint64_t handle, std::uint16_t code = 0) {
    P4Runtime::BatchStatusEntry entry{handle, code, {}};
    entry.setErrorMessage();
    batchStatus_->completedTransactionStatusIs(entry);
    core_->completionsReady();
    core_->finish();
  }
  /// The hardware answers every write that it has not answered yet.
  void completeAll() {
    while (answered_ < writes().size()) complete(handle(answered_++));
  }
  void expireAfter(std::chrono::milliseconds time) {
    now_ += time;
    core_->expire(now_);
    core_->finish();
  }
  Config& config() const { return *Quill::ptrCast<Config>(context_->entityManager()->entity(kPath)); }
  /// The status row that answers a write.
  std::pair<const std::uint64_t, HardwareAnswer> answerTo(std::size_t write, std::uint16_t code = 0) const {
    return {handle(write), {writes_->entries.at(write).genId, code, false}};
  }
  const Strings& writes() const { return writes_->texts; }
  std::uint64_t handle(std::size_t write) const { return writes_->entries.at(write).entryHandle; }

  RuntimeFolder folder_{"/dev/shm"};
  Quill::EventLoop loop_;
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_ = Quill::allocate<P4Runtime::BatchStatus>();
  Quill::Ptr<P4Runtime::PluginContext> context_ = Quill::allocate<P4Runtime::PluginContext>(
      Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_), std::make_shared<Lumen::LumenDB>(),
      batchStatus_, Quill::allocate<P4Runtime::VrfIdCollection>());
  P4Runtime::PluginLibrary library_{PLUGIN};
  Quill::Ptr<Writes> writes_ = Quill::allocate<Writes>();
  std::unique_ptr<AgentCore> core_;
  AgentCore::Clock::time_point now_{};
  std::vector<Strings> results_;  // by batch
  std::size_t answered_ = 0;
  std::string fault_;
};

const std::string kLate = "DEADLINE_EXCEEDED: no answer in time";

TEST_F(AgentCoreTest, Completions_AreAllTakenOutAndAnswerTheirOwnUpdateOnce) {
  const std::size_t failing = submit({"+1"});
  complete(12345);
  complete(kFirstHandle - 1, 3);
  EXPECT_TRUE(results_[failing].empty());
  complete(handle(0), 7);
  complete(handle(0), 7);
  EXPECT_EQ(results_[failing], (Strings{"HARDWARE_ERROR: hardware error 7"}));
  EXPECT_EQ(core_->unexpectedCompletions(), 3u);
  const std::size_t next = submit({"~1"});
  EXPECT_EQ(batchStatus_->completedTransactionStatusCount(), 0u) << "the next success would become a failure";
  complete(handle(1));
  EXPECT_EQ(results_[next], (Strings{"OK"}));
}

TEST_F(AgentCoreTest, Handles_LastFromInsertToDeleteAndNeverComeBack) {
  for (const char* text : {"+1", "~1", "-1", "+1"}) {
    submit({text});
    completeAll();
  }
  EXPECT_TRUE(writes_->entries[0].valid);
  EXPECT_GE(handle(0), kFirstHandle);
  EXPECT_EQ(handle(1), handle(0));
  EXPECT_GT(handle(3), handle(0));
  EXPECT_GT(writes_->entries[1].genId, writes_->entries[0].genId);

  start(kFirstHandle + 1'000'000);
  submit({"~1", "+2"});
  EXPECT_EQ(handle(4), handle(3));
  EXPECT_GE(writes_->entries[4].genId, kFirstHandle + 1'000'000);
  EXPECT_GE(handle(5), kFirstHandle + 1'000'000);
  start(1);  // a clock that has been set back
  submit({"+3"});
  EXPECT_GT(handle(6), handle(5));
}

TEST_F(AgentCoreTest, EntryInFlight_LetsItsNextUpdatesWaitInOrder) {
  for (const Strings& batch : {Strings{"+1"}, {"~1", "+2"}, {"-1"}, {"+1"}, {"~1"}}) submit(batch);
  EXPECT_EQ(writes(), (Strings{"put1", "put2"}));
  completeAll();
  EXPECT_EQ(writes(), (Strings{"put1", "put2", "put1", "del1", "put1", "put1"}));
  for (const Strings& batch : results_) EXPECT_EQ(batch, Strings(batch.size(), "OK"));
}

TEST_F(AgentCoreTest, OutOfTime_StaysInFlightUntilTheLateAnswerComes) {
  const std::size_t slow = submit({"+1", "+2"});
  const std::size_t waiting = submit({"~1"});
  batchStatus_->completedTransactionStatusIs({handle(1), 0, {}});  // arrived, and not taken yet
  expireAfter(999ms);
  EXPECT_TRUE(results_[slow].empty());
  expireAfter(1ms);
  EXPECT_EQ(results_[slow], (Strings{kLate, "OK"}));
  EXPECT_EQ(results_[waiting], (Strings{kLate}));
  const std::size_t next = submit({"~1"});
  EXPECT_EQ(writes(), (Strings{"put1", "put2"}));
  complete(handle(0), 7);  // the late answer is dropped; the update that waited too long is never written
  EXPECT_EQ(writes(), (Strings{"put1", "put2", "put1"}));
  complete(handle(2));
  EXPECT_EQ(results_[next], (Strings{"OK"}));
  EXPECT_EQ(core_->unexpectedCompletions(), 1u);
  EXPECT_EQ(core_->overdue() + core_->inFlight(), 0u);
}

TEST_F(AgentCoreTest, OutstandingAnswers_AnswerNothingUntilTheyComeOrNeverWill) {
  submit({"+1", "+2", "+4"});
  HardwareAnswers answers{answerTo(0), answerTo(1), answerTo(2)};
  answers.erase(handle(0));
  ++answers.at(handle(1)).genId;
  start(kFirstHandle + 1'000'000);
  core_->outstandingAre(answers);
  const std::size_t batch = submit({"~1", "~2", "+3", "~4"});
  EXPECT_EQ(writes(), (Strings{"put1", "put2", "put4", "put3", "put4"}));
  complete(handle(0), 7);
  EXPECT_EQ(writes().back(), "put1");
  core_->hardwareRestarted();  // frees what is outstanding, and not what this agent waits for
  EXPECT_EQ(writes(), (Strings{"put1", "put2", "put4", "put3", "put4", "put1", "put2"}));
  EXPECT_EQ(core_->overdue(), 0u);
  EXPECT_TRUE(results_[batch].empty());
  for (const std::size_t write : {3u, 4u, 5u, 6u}) complete(handle(write));
  EXPECT_EQ(results_[batch], Strings(4, "OK"));
}

TEST_F(AgentCoreTest, LostCompletions_AreRecoveredFromTheStatusRows) {
  submit({"+1", "+2", "+3", "+4"});
  completeAll();
  const HardwareAnswers before{answerTo(0), answerTo(1), answerTo(2), answerTo(3)};
  const std::size_t batch = submit({"~1", "~2", "-3", "-4"});
  core_->recoverCompletions(before);
  EXPECT_TRUE(results_[batch].empty()) << "answers to earlier writes";
  HardwareAnswers after{answerTo(4, 7), answerTo(1), answerTo(2)};
  after.at(handle(2)).deleted = true;  // and the row of the fourth has gone
  core_->recoverCompletions(after);
  complete(handle(5));
  EXPECT_EQ(results_[batch], (Strings{"HARDWARE_ERROR: hardware error 7", "OK", "OK", "OK"}));
  EXPECT_EQ(core_->inFlight(), 0u);
}

TEST_F(AgentCoreTest, UnusableTable_IsOneTextForEveryUpdate) {
  const std::size_t begun = submit({"+1", "+2"});
  const std::size_t waiting = submit({"~2"});
  complete(handle(0));
  core_->outOfService(*core_->table("l3IifTH3"), "file gone");
  core_->finish();
  EXPECT_EQ(results_[begun], (Strings{"OK", "INTERNAL: file gone"}));
  EXPECT_EQ(results_[waiting], Strings{"INTERNAL: file gone"});
  EXPECT_EQ(results_[submit({"+3"})], Strings{"INTERNAL: file gone"});
  EXPECT_EQ(writes(), (Strings{"put1", "put2"}));
  start(kFirstHandle + 1'000'000);
  config().corruptionDetected("for the test");
  fault_ = "damaged";
  EXPECT_EQ(results_[submit({"+4", "~1", "-2"})], Strings(3, "INTERNAL: damaged"));
  EXPECT_EQ(core_->inFlight(), 0u);
}

}  // namespace
