#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>

#include "CoreFixture.h"

namespace {

using namespace Agent;
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;
using testing::HasSubstr;

class AgentCoreTest : public CoreFixture {
 protected:
  AgentCoreTest() { start(kFirstHandle); }
  /// The hardware answers every write that it has not answered yet.
  void completeAll() {
    while (answered_ < writes().size()) complete(handle(answered_++));
  }

  std::size_t answered_ = 0;
};

const std::string kLate = "DEADLINE_EXCEEDED: no answer in time";

TEST_F(AgentCoreTest, Completions_AreAllTakenOutAndAnswerTheirOwnUpdateOnce) {
  const std::size_t failing = submit({"+1"});
  complete(12345);
  complete(kFirstHandle - 1, 3);
  EXPECT_TRUE(results_[failing].empty());
  EXPECT_TRUE(core_->hasUpdates(*core_->table("l3IifTH3")));
  EXPECT_FALSE(core_->hasUpdates(*core_->table("myStationTcamTH3")));
  complete(handle(0), 7);
  EXPECT_FALSE(core_->hasUpdates(*core_->table("l3IifTH3")));
  EXPECT_EQ(results_[failing], (Strings{"REFUSED: hardware error 7"}));
  complete(handle(1));  // of the undo
  complete(handle(1));
  EXPECT_EQ(core_->counters().unknownCompletions.value(), 3u);
  const std::size_t next = submit({"+1"});
  EXPECT_EQ(batchStatus_->completedTransactionStatusCount(), 0u) << "the next success would become a failure";
  complete(handle(2));
  EXPECT_EQ(results_[next], (Strings{"OK"}));
}

TEST_F(AgentCoreTest, Counters_FollowEveryUpdateOfATable) {
  const auto& words = core_->counters().tables[3];
  submit({"+1", "+2", "+3", "-9"});
  for (std::size_t write = 0; write < 3; ++write) complete(handle(write), write == 2 ? 31 : 0);
  complete(handle(3), 32);  // of the undo
  submit({"~1=5", "-2"});
  complete(handle(4));
  expireAfter(1s);
  complete(handle(5), 7);
  core_->count();
  std::string counted;
  for (const auto* const counter :
       {&words.capacity, &words.used, &words.highWater, &words.writes[0], &words.writes[1], &words.writes[2],
        &words.timeouts, &words.completions[0], &words.completions[7], &words.completions[31],
        &words.completions[32], &words.undos, &words.undosRefused}) {
    counted += std::to_string(counter->value()) + " ";
  }
  EXPECT_EQ(counted, "8192 2 3 3 1 1 1 3 1 1 1 2 1 ");
  std::uint64_t answers = 0;
  for (const auto& bucket : words.answerTimes.buckets) answers += bucket.value();
  EXPECT_EQ(answers, 6u);
  std::string failures;
  for (std::size_t place = 1; place <= core_->counters().failures.value(); ++place) {
    const std::uint64_t what = core_->counters().lastFailures[place].what.value();
    failures += std::to_string(what >> 32) + "/" + std::to_string(what >> 16 & 255) + "/" +
                std::to_string(what & 0xffff) + " ";
  }
  EXPECT_EQ(failures, "4/5/0 4/13/31 4/4/0 ") << "not found, refused with 31, out of time";
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

  start(kFirstHandle + 1'000'000, {answerTo(3)});
  submit({"~1", "+2"});
  EXPECT_EQ(handle(4), handle(3));
  EXPECT_GE(writes_->entries[4].genId, kFirstHandle + 1'000'000);
  EXPECT_GE(handle(5), kFirstHandle + 1'000'000);
  start(1);  // a clock that has been set back
  submit({"+3"});
  EXPECT_GT(handle(6), handle(5));
}

TEST_F(AgentCoreTest, Undo_OfARemovalIsANewEntryAndOfAModificationAnOldOne) {
  submit({"+1", "+2"});
  completeAll();
  submit({"~1", "-2"});
  complete(handle(2), 7);
  complete(handle(3), 7);
  ASSERT_EQ(writes().size(), 6u);
  EXPECT_EQ(handle(4), handle(0));
  EXPECT_GT(handle(5), handle(1));
  EXPECT_GT(writes_->entries[4].genId, writes_->entries[2].genId);
}

TEST_F(AgentCoreTest, OutOfTime_IsWhatHasNoAnswerAndSaysWhetherAHardwareAgentRuns) {
  const std::size_t slow = submit({"+1", "+2"});
  expireAfter(999ms);
  EXPECT_TRUE(results_[slow].empty());
  hardwareRuns_ = false;
  batchStatus_->completedTransactionStatusIs({handle(1), 0, {}});  // arrived, and not taken yet
  expireAfter(1ms);
  EXPECT_EQ(results_[slow], (Strings{kLate + ": no hardware agent runs", "OK"}));
}

TEST_F(AgentCoreTest, OutstandingAnswers_AnswerNothingUntilTheyComeOrNeverWill) {
  submit({"+1", "+2", "+4"});
  completeAll();
  HardwareAnswers answers{answerTo(0), answerTo(1), answerTo(2)};
  answers.erase(handle(0));
  ++answers.at(handle(1)).genId;
  start(kFirstHandle + 1'000'000, answers);
  const std::size_t batch = submit({"~1", "~2", "+3", "~4"});
  EXPECT_EQ(writes(), (Strings{"1=1", "2=1", "4=1", "3=1", "4=1"}));
  complete(handle(0), 7);
  EXPECT_EQ(writes().back(), "1=1");
  core_->hardwareRestarted();  // frees what is outstanding, and not what this agent waits for
  EXPECT_EQ(writes(), (Strings{"1=1", "2=1", "4=1", "3=1", "4=1", "1=1", "2=1"}));
  EXPECT_EQ(core_->overdue(), 0u);
  EXPECT_TRUE(results_[batch].empty());
  for (const std::size_t write : {3u, 4u, 5u, 6u}) complete(handle(write));
  EXPECT_EQ(results_[batch], Strings(4, "OK"));
  EXPECT_EQ(core_->held(), 0u);
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
  EXPECT_EQ(results_[batch], (Strings{"REFUSED: hardware error 7", "OK", "OK", "OK"}));
}

TEST_F(AgentCoreTest, UnusableTable_IsOneTextForEveryUpdate) {
  const std::size_t elsewhere = submit({"+1"}, Atomicity::rollbackOnError);
  core_->outOfService(*core_->table("myStationTcamTH3"), "file gone");
  completeAll();
  EXPECT_EQ(results_[elsewhere], Strings{"OK"});
  submit({"-1"});
  completeAll();
  const std::size_t begun = submit({"+1", "+2"});
  const std::size_t waiting = submit({"~2"});
  complete(handle(2));
  core_->outOfService(*core_->table("l3IifTH3"), "file gone");
  core_->finish();
  EXPECT_EQ(results_[begun], Strings(2, "INTERNAL: file gone"));
  EXPECT_EQ(results_[waiting], Strings{"INTERNAL: file gone"});
  EXPECT_EQ(results_[submit({"+3"})], Strings{"INTERNAL: file gone"});
  start(kFirstHandle + 1'000'000);
  config().corruptionDetected("for the test");
  fault_ = "damaged";
  EXPECT_EQ(results_[submit({"+4", "~5", "-6"})], Strings(3, "INTERNAL: damaged"));
  EXPECT_EQ(core_->held(), 1u);
}

TEST_F(AgentCoreTest, DamagedFile_IsReportedAndTheRowsTakenAsTheyAre) {
  enum class Damage { overwritten, cut, removed };
  for (const std::string name : {"before-images", "metadata"}) {
    for (const Damage damage : {Damage::overwritten, Damage::cut, Damage::removed}) {
      SCOPED_TRACE(name + " " + std::to_string(static_cast<int>(damage)));
      start(kFirstHandle);
      submit({"-1"});
      completeAll();
      submit({"+1:a"});
      core_.reset();
      log_.clear();
      const std::string path = folder_.path() + "/" + name;
      if (damage == Damage::overwritten) std::ofstream(path, std::ios::in) << "damage";
      if (damage == Damage::cut) std::filesystem::resize_file(path, 5000);
      if (damage == Damage::removed) std::filesystem::remove(path);
      start(kFirstHandle);
      EXPECT_THAT(log_, HasSubstr(name + (damage == Damage::removed ? " is gone" : " is damaged")));
      EXPECT_EQ(shown(), Strings{name == "metadata" ? "1=1" : "1=1:a"});
      completeAll();
    }
  }
}

constexpr BeforeImages::Capacity kSmall{.batches = 2, .records = 8, .rowBytes = 64};

TEST(BeforeImagesTest, RecordsOfADamagedBatchNeverCountAgain) {
  const RuntimeFolder folder("/dev/shm");
  const std::string path = folder.path() + "/before-images";
  const auto keepUndecided = [&](int records) {
    BeforeImages images(path, kSmall);
    const auto batch = images.begin();
    for (int i = 0; i < records; ++i) images.add(batch, 0, true, Lumen::BaseRow(16));
    return images.fault();
  };
  EXPECT_EQ(keepUndecided(3), "");
  std::fstream(path).seekp(4096) << "damage";
  EXPECT_THAT(keepUndecided(1), HasSubstr("a batch word of before-images is damaged"));
  EXPECT_EQ(BeforeImages(path, kSmall).undecided().size(), 1u);
}

// A word that is used again too early would decide the records of two batches at once.
TEST(BeforeImagesTest, BatchWord_IsFreeOnceNoRecordCountsBecauseOfIt) {
  const RuntimeFolder folder("/dev/shm");
  auto images = std::make_unique<BeforeImages>(folder.path() + "/before-images", kSmall);
  const auto freeWords = [&images] {
    std::vector<BeforeImages::Place> taken;
    while ((taken.emplace_back(images->begin())) != BeforeImages::kNone) continue;
    taken.pop_back();
    for (const auto batch : taken) images->decide(batch);
    return taken.size();
  };
  const auto add = [&images](BeforeImages::Place batch) {
    return images->add(batch, 0, true, Lumen::BaseRow(16));
  };
  images->abandon(images->begin());
  EXPECT_EQ(freeWords(), 2u) << "without a record";
  const auto emptied = images->begin();
  images->remove(add(emptied));
  images->abandon(emptied);
  EXPECT_EQ(freeWords(), 2u);
  for (const bool restarts : {false, true}) {
    const auto batch = images->begin();
    std::vector<BeforeImages::Place> records;
    for (int i = 0; i < 3; ++i) records.push_back(add(batch));
    images->lateIs(records[0]);
    images->abandon(batch);
    if (restarts) images = std::make_unique<BeforeImages>(folder.path() + "/before-images", kSmall);
    images->remove(records[0]);
    images->remove(records[1]);
    EXPECT_EQ(freeWords(), 1u);
    images->lateIs(records[2]);
    EXPECT_EQ(freeWords(), 2u);
    EXPECT_EQ(images->undecided().size(), 1u) << "it counts whatever its word is used for";
    images->remove(records[2]);
    EXPECT_EQ(freeWords(), 2u);
    EXPECT_EQ(images->undecided().size(), 0u);
  }
}

TEST(MetadataTest, Records_SurviveAnotherLimit) {
  const RuntimeFolder folder("/dev/shm");
  const std::string path = folder.path() + "/metadata";
  const std::string longest(1000, 'x');
  Metadata(path, {4, 1000}).add(1, 2, longest);
  for (const std::size_t bytes : {10u, 2000u, 1000u}) {
    const Metadata metadata(path, {4, bytes});
    EXPECT_EQ(metadata.of(1, 2), longest) << bytes;
  }
}

}  // namespace
