#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

#include "lumen/LmErrors.h"
#include "tests/lumen/MemoryTable.h"

namespace {

using LumenTest::Follower;
using LumenTest::keyOf;
using LumenTest::MemoryTable;
using LumenTest::pairRow;
using LumenTest::Rows;
using testing::ElementsAre;
using testing::IsEmpty;

struct ObserverTest : testing::Test, LumenTest::Pairs {};

TEST_F(ObserverTest, Attach_WalksTheRowsAndGoesOnWithTheirChanges) {
  table->rowIs(pairRow(1, 10));
  table->rowIs(pairRow(2, 20));
  const auto late = follower();
  EXPECT_EQ(late->rows, memory->rows());
  EXPECT_EQ(late->resets, 1);
  table->rowIs(pairRow(2, 21));
  table->rowDel(pairRow(1));
  EXPECT_EQ(late->rows, (Rows{{2, 21}}));
  EXPECT_THAT(late->indices, ElementsAre(4, 4, 6, 9));  // two rows as of index 4, a write, a deletion
}

TEST_F(ObserverTest, Trim_GoesByTheSlowest) {
  const auto quick = follower();
  const auto slow = follower();
  slow->prompt = false;
  for (std::uint64_t key = 1; key <= 5; ++key) table->rowIs(pairRow(key));
  EXPECT_EQ(quick->rows.size(), 5u);
  EXPECT_EQ(memory->changes().size(), 5u);
  EXPECT_EQ(table->oldestChangeIdx(), 1u);

  EXPECT_EQ(slow->consume(2), 2u);
  EXPECT_EQ(slow->consumedChangeIdx(), 4u);
  table->rowIs(pairRow(6));  // the next change tells how far the table may forget
  EXPECT_EQ(table->oldestChangeIdx(), 4u);
  EXPECT_THAT(memory->changes(),
              ElementsAre(std::pair(6, 3), std::pair(8, 4), std::pair(10, 5), std::pair(12, 6)));

  table->observerDel(*slow);
  table->rowIs(pairRow(7));
  EXPECT_THAT(memory->changes(), IsEmpty());
  EXPECT_EQ(quick->rows, memory->rows());
}

TEST_F(ObserverTest, Trim_WithoutObserversKeepsTheNewest) {
  memory = std::make_shared<MemoryTable>(LumenTest::kRowTypeName, 6);
  db.tableImplementationIs("Pairs", memory);
  for (std::uint64_t key = 1; key <= 3; ++key) table->rowIs(pairRow(key));
  EXPECT_EQ(table->oldestChangeIdx(), 1u);
  EXPECT_EQ(memory->changes().size(), 3u);
  for (std::uint64_t key = 4; key <= 9; ++key) table->rowIs(pairRow(key));
  EXPECT_EQ(table->oldestChangeIdx(), 12u);
  EXPECT_EQ(memory->changes().size(), 3u);
}

TEST_F(ObserverTest, WriteFromCallback_ReachesTheOthersAfterItsCause) {
  const auto writer = follower();
  const auto other = follower();
  bool nested = false;
  writer->whenChanged = [&](const auto& change) {
    if (keyOf(change.row) != 1) return;
    nested = true;
    table->rowIs(pairRow(2, 20));
    EXPECT_THAT(other->indices, IsEmpty()) << "told within the call that caused the write";
  };
  table->rowIs(pairRow(1, 10));
  EXPECT_TRUE(nested);
  EXPECT_THAT(other->indices, ElementsAre(2, 4));
  EXPECT_THAT(writer->indices, ElementsAre(2, 4));
  EXPECT_EQ(other->rows, memory->rows());
  EXPECT_EQ(writer->rows, memory->rows());
  EXPECT_THAT(memory->changes(), IsEmpty());
}

TEST_F(ObserverTest, WriteFromCallback_OfTheVeryKeyAndOfTheNextOnes) {
  const auto slow = follower();
  slow->prompt = false;
  for (std::uint64_t key = 1; key <= 4; ++key) table->rowIs(pairRow(key, key));
  slow->whenChanged = [&](const auto& change) {
    if (change.index != 4) return;
    table->rowIs(pairRow(2, 200));  // the change being handed over moves to the end
    table->rowDel(pairRow(3));      // the next one too
  };
  slow->consume();
  EXPECT_THAT(slow->indices, ElementsAre(2, 4, 8, 10, 13));
  EXPECT_EQ(slow->rows, memory->rows());
}

TEST_F(ObserverTest, WriteDuringTheFirstWalk_ComesAsAChange) {
  table->rowIs(pairRow(5, 50));
  const auto observer = std::make_shared<Follower>();
  observer->whenReset = [&] { table->rowIs(pairRow(5, 51)); };
  observer->whenChanged = [&](const auto& change) {
    if (change.index == 2 && memory->rows().size() == 1) table->rowIs(pairRow(6, 60));
  };
  table->observerIs(observer);
  EXPECT_EQ(observer->rows, memory->rows());
  EXPECT_THAT(memory->changes(), testing::SizeIs(2))
      << "the table learns at the next change what was consumed";
}

TEST_F(ObserverTest, Removal_WithinACallIsSafe) {
  auto first = follower();
  auto second = follower();
  auto third = follower();
  const std::weak_ptr<Follower> watch = first;
  first->whenChanged = [&](const auto&) {
    table->observerDel(*watch.lock());  // itself
    table->observerDel(*second);        // one still to be told
    first.reset();
  };
  table->rowIs(pairRow(1, 10));
  EXPECT_TRUE(watch.expired());
  EXPECT_THAT(second->indices, IsEmpty());
  EXPECT_EQ(second->table(), nullptr);
  EXPECT_EQ(second->consume(), 0u);
  EXPECT_THAT(third->indices, ElementsAre(2));
  EXPECT_EQ(table->observers(), 1u);
}

TEST_F(ObserverTest, Attachment_WithinACallIsTold) {
  const auto first = follower();
  std::shared_ptr<Follower> second;
  first->whenChanged = [&](const auto&) {
    if (!second) second = follower();
  };
  table->rowIs(pairRow(1, 10));
  EXPECT_EQ(second->rows, memory->rows());
  table->rowIs(pairRow(2, 20));
  EXPECT_EQ(second->rows, memory->rows());
}

TEST_F(ObserverTest, Exception_StopsNobodyElseAndTheChangeComesAgain) {
  const auto thrower = follower();
  const auto other = follower();
  int left = 2;
  thrower->whenChanged = [&](const auto&) {
    if (left-- > 0) throw std::runtime_error("not now");
  };
  table->rowIs(pairRow(1, 10));
  EXPECT_EQ(other->rows, memory->rows());
  table->rowIs(pairRow(2, 20));
  EXPECT_THAT(thrower->exceptions, ElementsAre("not now", "not now"));
  EXPECT_EQ(memory->changes().size(), 2u) << "the thrower has consumed nothing";
  EXPECT_EQ(thrower->consume(), 2u);
  EXPECT_EQ(thrower->rows, memory->rows());
}

TEST_F(ObserverTest, Exception_OutOfItsOwnHandlerStopsNobodyElse) {
  struct Reckless : Follower {
    void onException(const std::exception&) override { throw std::runtime_error("nor then"); }
  };
  const auto thrower = std::make_shared<Reckless>();
  table->observerIs(thrower);
  const auto other = follower();
  thrower->whenChanged = [](const auto&) { throw std::runtime_error("not now"); };
  testing::internal::CaptureStderr();
  table->rowIs(pairRow(1, 10));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "exception in an observer: nor then\n");
  EXPECT_EQ(other->rows, memory->rows());
}

TEST_F(ObserverTest, Exception_DuringTheFirstWalkRepeatsIt) {
  table->rowIs(pairRow(1, 10));
  const auto observer = std::make_shared<Follower>();
  bool fail = true;
  observer->whenChanged = [&](const auto&) {
    if (std::exchange(fail, false)) throw std::runtime_error("not now");
  };
  table->observerIs(observer);
  EXPECT_THAT(observer->exceptions, ElementsAre("not now"));
  table->rowIs(pairRow(2, 20));
  EXPECT_EQ(observer->resets, 2);
  EXPECT_EQ(observer->rows, memory->rows());
}

TEST_F(ObserverTest, ForgottenChanges_StartAnObserverOver) {
  const auto slow = follower();
  slow->prompt = false;
  for (std::uint64_t key = 1; key <= 3; ++key) table->rowIs(pairRow(key, key));
  memory->cleanChangeMap(4);  // more than the slow one has consumed
  table->rowDel(pairRow(1));
  EXPECT_EQ(table->oldestChangeIdx(), 4u) << "never falls back";
  slow->consume();
  EXPECT_EQ(slow->resets, 2);
  EXPECT_EQ(slow->rows, memory->rows());
}

TEST_F(ObserverTest, TrimPastTheLatestChange_LosesNothing) {
  const auto quick = follower();
  const auto slow = follower();
  slow->prompt = false;
  table->rowIs(pairRow(1, 10));
  memory->cleanChangeMap(20);
  for (std::uint64_t key = 2; key <= 12; ++key) {  // on both sides of the trimmed index
    table->rowIs(pairRow(key, key));
    EXPECT_EQ(quick->rows, memory->rows());
  }
  slow->consume();
  EXPECT_EQ(slow->rows, memory->rows());
}

TEST_F(ObserverTest, MoveToAnotherTable_WithinACallWalksItsRows) {
  db.registerTable("Others", LumenTest::kRowTypeName, Lumen::TableType::external, 256, 256, "", {});
  db.tableImplementationIs("Others", std::make_shared<MemoryTable>());
  const auto others = db.table("Others");
  others->rowIs(pairRow(7, 70));
  const auto mover = follower();
  mover->whenChanged = [&](const auto& change) {
    if (keyOf(change.row) != 1) return;
    table->observerDel(*mover);
    others->observerIs(mover);
  };
  table->rowIs(pairRow(1, 10));
  EXPECT_EQ(mover->rows, (Rows{{7, 70}}));
  others->rowIs(pairRow(8, 80));
  table->rowIs(pairRow(2, 20));
  EXPECT_EQ(mover->rows, (Rows{{7, 70}, {8, 80}}));
}

TEST_F(ObserverTest, Replacement_StartsOverWhatEverTheMoment) {
  const auto first = follower();
  const auto second = follower();
  table->rowIs(pairRow(1, 10));
  const auto gone = memory->gone;
  first->whenChanged = [&](const auto& change) {
    if (keyOf(change.row) != 2) return;
    replaced()->rowIs(pairRow(7, 70), false);
    EXPECT_FALSE(*gone) << "destroyed while it is recording a change";
  };
  table->rowIs(pairRow(2, 20));
  EXPECT_TRUE(*gone);
  EXPECT_EQ(first->rows, (Rows{{7, 70}}));
  EXPECT_EQ(second->rows, (Rows{{7, 70}}));
  EXPECT_EQ(memory->boundInterfacesCount(), 1u);
}

TEST_F(ObserverTest, Replacement_DuringTheFirstWalk) {
  table->rowIs(pairRow(1, 10));
  table->rowIs(pairRow(2, 20));
  const auto observer = std::make_shared<Follower>();
  observer->whenChanged = [&](const auto& change) {
    if (keyOf(change.row) == 1) replaced()->rowIs(pairRow(7, 70), false);
  };
  table->observerIs(observer);
  EXPECT_EQ(observer->rows, (Rows{{7, 70}}));
  EXPECT_THAT(observer->exceptions, IsEmpty());
  EXPECT_EQ(observer->indices.size(), 2u) << "what was left of the old rows is not handed over";
}

TEST_F(ObserverTest, Drop_LeavesAnEmptyPictureAndARegisteredTable) {
  const auto observer = follower();
  table->rowIs(pairRow(1, 10));
  const auto gone = memory->gone;
  memory.reset();
  observer->whenChanged = [&](const auto&) { db.tableImplementationDel("Pairs"); };
  table->rowIs(pairRow(2, 20));
  EXPECT_TRUE(*gone);
  EXPECT_EQ(observer->resets, 2);
  EXPECT_EQ(table->implementation(), nullptr);
  observer->whenChanged = nullptr;
  replaced()->rowIs(pairRow(3, 30), false);
  EXPECT_EQ(observer->rows, (Rows{{3, 30}}));
}

TEST_F(ObserverTest, Attach_RefusesOneThatFollowsAlready) {
  const auto observer = follower();
  EXPECT_THAT([&] { table->observerIs(observer); },
              testing::ThrowsMessage<Lumen::LmTableError>("observer for table Pairs follows table Pairs"));
  table->observerDel(*observer);
  table->observerIs(observer);
  EXPECT_EQ(observer->table(), table.get());
}

}  // namespace
