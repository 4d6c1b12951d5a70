#include <gtest/gtest.h>

#include "FakeTable.h"
#include "apps/core/AgentCore.h"

namespace {

using namespace Agent;
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

constexpr std::uint64_t kFirstHandle = 1'700'000'000'000'000'000;

class AgentCoreTest : public testing::Test {
 protected:
  AgentCoreTest() {
    database_->registerTable("LumenThingConfigTable", Fake::kRowType, Lumen::TableType::external, 256, 256,
                             "", {});
    database_->tableImplementationIs("LumenThingConfigTable", table_);
    start(kFirstHandle);
  }
  /// A new core over the tables as they are: the agent restarted.
  void start(std::uint64_t firstHandle) {
    core_.reset();
    core_ = std::make_unique<AgentCore>(
        database_, batchStatus_,
        AgentCore::Settings{firstHandle, 1s, [this](const std::string&) { return !table_->broken; }});
  }

  /// "+5" inserts entry 5, "~5" modifies and "-5" removes it.
  Update update(const std::string& text) {
    const std::vector<Lumen::ColumnText> fields = {{"id", std::string_view(text).substr(1)}, {"value", "9"}};
    Update made;
    made.type = text[0] == '+'   ? UpdateType::insert
                : text[0] == '~' ? UpdateType::modify
                                 : UpdateType::remove;
    made.table = core_->table("thing");
    made.row = made.table->row(fields);
    return made;
  }

  /// Starts a batch and returns its number; its results come to results_.
  std::size_t submit(const Strings& texts) {
    std::vector<Update> updates;
    for (const std::string& text : texts) updates.push_back(update(text));
    return submitUpdates(std::move(updates));
  }
  std::size_t submitUpdates(std::vector<Update> updates) {
    const std::size_t number = results_.size();
    results_.emplace_back();
    core_->submit(
        std::move(updates),
        [this, number](const std::vector<Result>& results) {
          ++finished_;
          for (const Result& result : results) {
            results_[number].emplace_back(codeName(result.code));
            if (result.hardwareCode != 0)
              results_[number].back() += " " + std::to_string(result.hardwareCode);
            if (!result.message.empty()) results_[number].back() += ": " + result.message;
          }
        },
        {}, now_);
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
  /// The hardware answers every write that it has not answered yet; how many those are.
  std::size_t completeAll() {
    const std::size_t before = answered_;
    while (answered_ < table_->writes.size()) complete(table_->writes[answered_++].handle);
    return answered_ - before;
  }
  void expireAfter(std::chrono::milliseconds time) {
    now_ += time;
    core_->expire(now_);
    core_->finish();
  }
  Strings writes() const {
    Strings texts;
    for (const auto& write : table_->writes) texts.push_back(write.what + std::to_string(write.id));
    return texts;
  }
  std::uint64_t handle(std::size_t write) const { return table_->writes.at(write).handle; }

  Fake::ThingMetadata metadata_;
  Fake::ThingOpsGenerator generator_;
  std::shared_ptr<Lumen::LumenDB> database_ = std::make_shared<Lumen::LumenDB>();
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_ = Quill::allocate<P4Runtime::BatchStatus>();
  std::shared_ptr<Fake::FakeTable> table_ = std::make_shared<Fake::FakeTable>(4);
  std::unique_ptr<AgentCore> core_;
  AgentCore::Clock::time_point now_{};
  std::vector<Strings> results_;  // by batch
  std::size_t finished_ = 0;
  std::size_t answered_ = 0;
};

const std::string kExists = "ALREADY_EXISTS: the entry exists";
const std::string kMissing = "NOT_FOUND: there is no such entry";
const std::string kTwice = "INVALID_ARGUMENT: expected each key once in a batch, got it more than once";
const std::string kLate = "DEADLINE_EXCEEDED: no answer in time";

TEST_F(AgentCoreTest, Results_StandInOrderAndFailuresStopNothing) {
  submit({"+1"});
  completeAll();
  const std::size_t batch = submit({"+1", "~2", "-3", "+4"});
  EXPECT_TRUE(results_[batch].empty());
  EXPECT_EQ(completeAll(), 1u);
  EXPECT_EQ(results_[batch], (Strings{kExists, kMissing, kMissing, "OK"}));
  EXPECT_TRUE(table_->allValid);
  EXPECT_EQ(core_->inFlight(), 0u);
  EXPECT_FALSE(core_->nextDeadline());
}

TEST_F(AgentCoreTest, BadUpdates_AreRefusedOneByOne) {
  std::vector<Update> updates(2);
  updates[0].defect = "line 3: expected a table, got \"x\"";
  updates[1] = update("+1");
  const std::size_t batch = submitUpdates(std::move(updates));
  completeAll();
  EXPECT_EQ(results_[batch], (Strings{"INVALID_ARGUMENT: line 3: expected a table, got \"x\"", "OK"}));
}

TEST_F(AgentCoreTest, RepeatedKeys_AreAllRefused) {
  const std::size_t batch = submit({"+1", "+5", "~1", "+9", "-1"});  // 1, 5 and 9 share a hash
  completeAll();
  EXPECT_EQ(results_[batch], (Strings{kTwice, "OK", kTwice, "OK", kTwice}));
  EXPECT_EQ(writes(), (Strings{"put5", "put9"}));
}

TEST_F(AgentCoreTest, FullTable_IsResourceExhaustedAndNothingElseFails) {
  submit({"+1"});
  completeAll();
  const std::size_t batch = submit({"+2", "+3", "+4", "+5", "-1", "+6"});
  completeAll();
  EXPECT_EQ(results_[batch], (Strings{"OK", "OK", "OK", "RESOURCE_EXHAUSTED: used 4 of 4", "OK", "OK"}));
}

TEST_F(AgentCoreTest, FailingTable_IsInternal) {
  table_->broken = true;
  EXPECT_EQ(results_[submit({"+1"})], (Strings{"INTERNAL: write to read-only Vesta table"}));
  EXPECT_EQ(core_->inFlight(), 0u);
}

TEST_F(AgentCoreTest, HardwareError_IsReportedAndNotCarriedOver) {
  const std::size_t failing = submit({"+1"});
  complete(handle(0), 7);
  EXPECT_EQ(results_[failing], (Strings{"HARDWARE_ERROR 7: hardware error 7"}));
  const std::size_t next = submit({"~1"});
  EXPECT_EQ(batchStatus_->completedTransactionStatusCount(),
            0u);  // else the tracker would merge the old failure
  complete(handle(1));
  EXPECT_EQ(results_[next], (Strings{"OK"}));
}

TEST_F(AgentCoreTest, Handles_LastFromInsertToDeleteAndNeverComeBack) {
  for (const char* text : {"+1", "~1", "-1", "+1"}) {
    submit({text});
    completeAll();
  }
  EXPECT_GE(handle(0), kFirstHandle);
  EXPECT_EQ(handle(1), handle(0));
  EXPECT_EQ(handle(2), handle(0));
  EXPECT_GT(handle(3), handle(0));
  EXPECT_GT(table_->writes[1].genId, table_->writes[0].genId);
  EXPECT_GT(table_->writes[3].genId, table_->writes[1].genId);

  start(kFirstHandle + 1'000'000);
  submit({"~1", "+2"});
  EXPECT_EQ(handle(4), handle(3));
  EXPECT_GE(handle(5), kFirstHandle + 1'000'000);
}

TEST_F(AgentCoreTest, EntryInFlight_LetsItsNextUpdatesWaitInOrder) {
  const std::size_t first = submit({"+1"});
  const std::size_t second = submit({"~1", "+2"});
  const std::size_t third = submit({"-1"});
  const std::size_t fourth = submit({"+1"});
  const std::size_t fifth = submit({"~1"});
  EXPECT_EQ(writes(), (Strings{"put1", "put2"}));
  completeAll();
  EXPECT_EQ(writes(), (Strings{"put1", "put2", "put1", "del1", "put1", "put1"}));
  for (const std::size_t batch : {first, third, fourth, fifth}) EXPECT_EQ(results_[batch], (Strings{"OK"}));
  EXPECT_EQ(results_[second], (Strings{"OK", "OK"}));
  EXPECT_EQ(finished_, 5u);
}

TEST_F(AgentCoreTest, RemovalInFlight_LetsAnInsertWait) {
  submit({"+1"});
  completeAll();
  submit({"-1"});
  const std::size_t again = submit({"+1"});
  const std::size_t modified = submit({"~1"});
  EXPECT_EQ(writes(), (Strings{"put1", "del1"}));
  completeAll();
  EXPECT_EQ(results_[again], (Strings{"OK"}));
  EXPECT_EQ(results_[modified], (Strings{"OK"}));
  EXPECT_NE(handle(2), handle(1));
}

TEST_F(AgentCoreTest, OutOfTime_StaysInFlightUntilTheLateAnswerComes) {
  const std::size_t slow = submit({"+1", "+2"});
  complete(handle(1));
  expireAfter(999ms);
  EXPECT_TRUE(results_[slow].empty());
  expireAfter(1ms);
  EXPECT_EQ(results_[slow], (Strings{kLate, "OK"}));
  EXPECT_EQ(core_->overdue(), 1u);
  const std::size_t next = submit({"~1"});
  EXPECT_EQ(writes(), (Strings{"put1", "put2"}));
  complete(handle(0), 7);  // the late answer: dropped, whatever it says
  EXPECT_EQ(writes(), (Strings{"put1", "put2", "put1"}));
  complete(handle(2));
  EXPECT_EQ(results_[next], (Strings{"OK"}));
  EXPECT_EQ(core_->unexpectedCompletions(), 1u);
  EXPECT_EQ(core_->overdue(), 0u);
}

TEST_F(AgentCoreTest, OutOfTimeWhileWaiting_IsNeverWritten) {
  submit({"+1"});
  const std::size_t waiting = submit({"~1"});
  expireAfter(1s);
  EXPECT_EQ(results_[waiting], (Strings{kLate}));
  completeAll();
  EXPECT_EQ(writes(), (Strings{"put1"}));
  EXPECT_EQ(core_->inFlight(), 0u);
}

TEST_F(AgentCoreTest, HardwareRestarted_FreesWhatIsOutOfTimeAndNothingElse) {
  submit({"+1"});
  expireAfter(1s);
  const std::size_t waiting = submit({"~1", "+2"});
  core_->hardwareRestarted();
  core_->finish();
  EXPECT_EQ(writes(), (Strings{"put1", "put2", "put1"}));
  EXPECT_TRUE(results_[waiting].empty());
  complete(handle(1));
  complete(handle(2));
  EXPECT_EQ(results_[waiting], (Strings{"OK", "OK"}));
}

TEST_F(AgentCoreTest, UnknownCompletions_AreTakenOutAndAnswerNothing) {
  const std::size_t batch = submit({"+1"});
  complete(12345);
  complete(kFirstHandle - 1, 3);
  EXPECT_TRUE(results_[batch].empty());
  complete(handle(0));
  complete(handle(0));
  EXPECT_EQ(results_[batch], (Strings{"OK"}));
  EXPECT_EQ(finished_, 1u);
  EXPECT_EQ(batchStatus_->completedTransactionStatusCount(), 0u);
  EXPECT_EQ(core_->unexpectedCompletions(), 3u);
}

struct FieldCase {
  std::vector<Lumen::ColumnText> fields;
  const char* message;
};

TEST_F(AgentCoreTest, Fields_ThatDoNotFitAreToldApart) {
  const FieldCase cases[] = {
      {{{"value", "1"}}, "expected every key field of thing, got none for id"},
      {{{"id", "1"}, {"colour", "1"}}, "expected a field of thing (id, value), got \"colour\""},
      {{{"id", "1"}, {"entryHandle", "1"}}, "expected a field of thing (id, value), got \"entryHandle\""},
  };
  for (const FieldCase& tested : cases) {
    try {
      core_->table("thing")->row(tested.fields);
      ADD_FAILURE() << tested.message;
    } catch (const Cairn::Exception& error) {
      EXPECT_EQ(error.message(), tested.message);
    }
  }
  EXPECT_THROW(core_->table("thing")->row(std::vector<Lumen::ColumnText>{{"id", "1"}, {"id", "1"}}),
               Cairn::Exception);
  EXPECT_THROW(core_->table("thing")->row(std::vector<Lumen::ColumnText>{{"id", "1"}, {"value", "65536"}}),
               Cairn::Exception);
  EXPECT_EQ(core_->table("other"), nullptr);
}

}  // namespace
