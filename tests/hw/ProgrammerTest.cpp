// Answers over real tables: the test writes the config table and reads the status table, as an agent does.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "P4RuntimeTolmar/kinds/L3IifTH3.h"
#include "apps/hw/Programmer.h"
#include "apps/hw/TablePair.h"
#include "skein/Ring.h"
#include "skein/TraceReader.h"
#include "tests/RuntimeFolder.h"

namespace {

using namespace HwAgent;
using namespace std::chrono_literals;
using TolmarHwLib::L3IifTH3Config;
using TolmarHwLib::L3IifTH3Status;
using L3IifFaults = Faults<TolmarHwLib::L3IifTH3ConfigEntry>;
using Pair = TablePair<L3IifTH3Config, L3IifTH3Status>;
using Strings = std::vector<std::string>;

constexpr Programmer<Pair>::Clock::time_point kNow{};

/// The status rows as they are when the agent is notified of them.
class Notifications final : public L3IifTH3Status::NotifieeConst {
 public:
  Strings all;

 private:
  using L3IifTH3Status::NotifieeConst::onTable;
  void onTable(const L3IifTH3Status::Key& key) override {
    bool found = false;
    const auto& status = notifier()->directLookup(key, found);
    std::string text = std::to_string(key.l3Iif) + (status.deleted ? " deleted " : " handle ") +
                       std::to_string(status.entryHandle);
    if (status.errorCode != 0) text += " error " + std::to_string(status.errorCode);
    all.push_back(found ? text : std::to_string(key.l3Iif) + " gone");
  }
};

/// Expects the message about each answer to be in the trace before the answer is in the table.
struct TracedPair : Pair {
  using Pair::Pair;
  void statusIs(const Status& status) {
    const auto last = Skein::readTrace(trace).back();
    EXPECT_EQ(last.site->function, status.deleted ? "answerDeleted" : "answerPresent");
    EXPECT_EQ(last.values[0], std::to_string(status.entryHandle));
    Pair::statusIs(status);
  }
  std::string trace;
};

class ProgrammerTest : public testing::Test {
 protected:
  static constexpr unsigned kCapacity = 8;
  using Type = QuillVesta::QuillVestaType;

  ProgrammerTest() {
    pair_.trace = folder_.path() + "/trace";
    Skein::ringIs(pair_.trace, 16 * 1024);
    notifications_->notifierIs(mounted<L3IifTH3Status>("Status", "status", Type::reader));
    notifications_->isRegisteredNotifieeIs(true);
  }
  template <class Entity>
  Quill::Ptr<Entity> mounted(const std::string& type, const std::string& side, Type role) {
    QuillVesta::MountDescription description(role);
    description.collectionIs("table", kCapacity);
    return Quill::ptrCast<Entity>(agent_->mount("pair/" + side, "TolmarHwLib::L3IifTH3" + type, description));
  }

  /// The agent writes or removes a row and the hardware agent is notified.
  void write(std::uint64_t id, std::uint64_t handle, std::uint64_t genId = 1, bool valid = true) {
    config_->tableIs({{genId, handle, valid}, {id}});
    programmer_->changed({id}, kNow);
  }
  void remove(std::uint64_t id) {
    config_->tableDel({id});
    programmer_->changed({id}, kNow);
  }
  /// The notifications of the agent since the last call, all of them handled.
  Strings answers() {
    for (int i = 0; i < 3; ++i) loop_.step(0ms);
    return std::exchange(notifications_->all, {});
  }

  RuntimeFolder folder_{"/dev/shm"};
  Quill::EventLoop loop_;
  Quill::Ptr<Orrery::EntityManager> agent_ = Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_);
  Quill::Ptr<Orrery::EntityManager> hardware_ = Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_);
  Quill::Ptr<L3IifTH3Config> config_ = mounted<L3IifTH3Config>("Config", "config", Type::writer);
  TracedPair pair_{TablePlace{hardware_, "l3IifTH3", "pair/config", "pair/status", kCapacity}};
  Quill::Ptr<Notifications> notifications_ = Quill::allocate<Notifications>();
  std::optional<Programmer<TracedPair>> programmer_{std::in_place, pair_, L3IifFaults(), 0ms};
};

TEST_F(ProgrammerTest, Removal_KeepsTheStatusRowUntilTheReadersHandledIt) {
  for (const std::uint64_t id : {1u, 2u, 3u}) write(id, 100 + id);
  answers();
  for (const std::uint64_t id : {1u, 2u, 3u}) remove(id);
  EXPECT_FALSE(programmer_->advance(kNow));
  EXPECT_EQ(answers(), (Strings{"1 deleted 101", "2 deleted 102", "3 deleted 103"}));
  write(2, 102);  // the removal is undone
  write(3, 200);
  answers();
  remove(3);
  EXPECT_TRUE(programmer_->advance(kNow));
  EXPECT_EQ(answers(), (Strings{"3 deleted 200", "1 gone"})) << "the rows of 2 and 3 are newer";
  EXPECT_TRUE(programmer_->advance(kNow));
  EXPECT_EQ(answers(), Strings{"3 gone"});
}

TEST_F(ProgrammerTest, FullStatusTable_AnswersWaitForRoomAndRemovalsPassThemBy) {
  for (std::uint64_t id = 1; id <= kCapacity; ++id) write(id, 100 + id);
  answers();
  config_->tableDel({1});
  write(9, 109);  // a reader that was overrun may be notified of 9 first
  programmer_->changed({1}, kNow);
  EXPECT_EQ(programmer_->blocked(), 1u);
  EXPECT_FALSE(programmer_->advance(kNow));
  EXPECT_EQ(answers(), Strings{"1 deleted 101"});
  programmer_->advance(kNow);
  EXPECT_EQ(answers(), (Strings{"1 gone", "9 handle 109"}));
  EXPECT_EQ(std::ranges::count(Skein::readTrace(pair_.trace), "handle 109 genId 1 error 0",
                               &Skein::TraceRecord::text),
            1);
}

TEST_F(ProgrammerTest, FullStatusTable_ReaderThatHasStoppedHoldsAnswersUpForASecondOnly) {
  for (std::uint64_t id = 1; id <= kCapacity; ++id) write(id, 100 + id);
  for (std::uint64_t id = 1; id <= kCapacity; ++id) config_->tableDel({id});
  for (std::uint64_t id = 1; id <= kCapacity; ++id) write(10 + id, 200 + id);
  for (std::uint64_t id = 1; id <= kCapacity; ++id) programmer_->changed({id}, kNow);
  EXPECT_FALSE(programmer_->advance(kNow));
  EXPECT_EQ(programmer_->blocked(), kCapacity);
  std::this_thread::sleep_for(1100ms);
  EXPECT_TRUE(programmer_->advance(kNow));
  EXPECT_EQ(programmer_->blocked() + programmer_->removals(), 0u) << "all at once";
}

TEST_F(ProgrammerTest, Start_AnswersWhatDiffersAndLeavesEqualRowsAlone) {
  for (const std::uint64_t id : {1u, 2u, 3u, 4u, 7u}) config_->tableIs({{2, 100 + id, true}, {id}});
  const Pair::Status statuses[] = {{{2, 101}, {1}}, {{1, 102}, {2}},          {{2, 3}, {3}},
                                   {{1, 105}, {5}}, {{1, 106, 0, true}, {6}}, {{2, 107, 0, true}, {7}}};
  for (const Pair::Status& status : statuses) pair_.Pair::statusIs(status);
  answers();
  programmer_->reconcile(kNow);
  Strings sorted = answers();
  std::sort(sorted.begin(), sorted.end());
  EXPECT_EQ(sorted,
            (Strings{"2 handle 102", "3 handle 103", "4 handle 104", "5 deleted 105", "7 handle 107"}));
  programmer_->advance(kNow);
  EXPECT_EQ(answers(), (Strings{"6 gone", "5 gone"}));
}

TEST_F(ProgrammerTest, DamagedTable_IsNotTakenForRemovals) {
  write(1, 101);
  answers();
  pair_.configEntity()->corruptionDetected("for the test");
  programmer_->reconcile(kNow);
  programmer_->changed({1}, kNow);
  EXPECT_EQ(answers(), Strings{});
}

TEST_F(ProgrammerTest, Delay_HoldsAnswersBackInOrder) {
  programmer_.emplace(pair_, L3IifFaults(), 10ms);
  write(1, 101);
  config_->tableIs({{1, 102, true}, {2}});
  programmer_->changed({2}, kNow + 5ms);
  EXPECT_EQ(programmer_->nextAnswer(), kNow + 10ms);
  for (const auto& [time, expected] :
       {std::pair{9ms, Strings{}}, {10ms, {"1 handle 101"}}, {14ms, {}}, {15ms, {"2 handle 102"}}}) {
    programmer_->advance(kNow + time);
    EXPECT_EQ(answers(), expected);
  }
  EXPECT_FALSE(programmer_->nextAnswer());
}

TEST_F(ProgrammerTest, Answers_OncePerWriteWithFaultsForColumnsAndEveryNthButNoInvalidEntryAndNoRemoval) {
  std::vector<Fault> faults = {readFault("l3IifTH3:l3Iif=2:7"), readFault("myStationTcamTH3:priority=0:3"),
                               readFault("l3IifTH3:genId=4,l3Iif=1:5")};
  programmer_.emplace(pair_, L3IifFaults("l3IifTH3", faults, readFailEvery("3:9")), 0ms);
  for (const std::uint64_t id : {1u, 2u, 3u, 4u}) write(id, 100 + id);
  programmer_->changed({4}, kNow);  // notified twice, answered once
  remove(5);                        // came and went unseen: nobody to answer
  EXPECT_EQ(answers(),
            (Strings{"1 handle 101", "2 handle 102 error 7", "3 handle 103 error 9", "4 handle 104"}));
  write(2, 102, 2, false);
  EXPECT_EQ(answers(), Strings{"2 handle 102"});
  EXPECT_EQ(pair_.status({2})->genId, 2u);
  remove(2);
  EXPECT_EQ(answers(), Strings{"2 deleted 102"});
  write(1, 101, 4);
  EXPECT_EQ(answers(), Strings{"1 handle 101 error 5"});
  faults.pop_back();
  programmer_->faultsAre("l3IifTH3", faults);
  for (const std::uint64_t genId : {5u, 4u}) {
    write(1, 101, genId);
    EXPECT_EQ(answers(), Strings{genId == 5 ? "1 handle 101 error 9" : "1 handle 101"});
  }
  EXPECT_EQ(programmer_->answers(), 9u);
}

}  // namespace
