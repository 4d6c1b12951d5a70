#include <gmock/gmock.h>

#include <stdexcept>

#include "lumen/LmErrors.h"
#include "tests/lumen/MemoryTable.h"

namespace {

using LumenTest::Follower;
using LumenTest::keyOf;
using LumenTest::pairRow;
using LumenTest::Pairs;
using LumenTest::Rows;
using testing::ElementsAre;
using testing::IsEmpty;

struct ObserverTest : testing::Test, Pairs {};

TEST_F(ObserverTest, Attach_WalksTheRowsAndGoesOnWithTheirChanges) {
  table->rowIs(pairRow(1, 10));
  table->rowIs(pairRow(2, 20));
  const auto late = follower();
  EXPECT_EQ(late->rows, memory->rows);
  table->rowIs(pairRow(2, 21));
  table->rowDel(pairRow(1));
  EXPECT_EQ(late->rows, (Rows{{2, 21}}));
  EXPECT_THAT(late->indices, ElementsAre(4, 4, 6, 9));  // two rows as of index 4, a write, a deletion
  EXPECT_THAT([&] { others->observerIs(late); },
              testing::ThrowsMessage<Lumen::LmTableError>("observer for table Others follows table Pairs"));
}

TEST_F(ObserverTest, Trim_GoesByTheSlowestThatHasBegun) {
  follower(false);
  follower();
  const auto slow = follower();
  slow->prompt = false;
  for (std::uint64_t key = 1; key <= 5; ++key) table->rowIs(pairRow(key));
  EXPECT_EQ(slow->consume(2), 2u);
  EXPECT_EQ(slow->consumedChangeIdx(), 4u);
  table->rowIs(pairRow(6));  // the next change tells how far the table may forget
  EXPECT_EQ(table->oldestChangeIdx(), 4u);
  EXPECT_EQ(memory->changes, (Rows{{6, 3}, {8, 4}, {10, 5}, {12, 6}}));

  table->observerDel(*slow);
  table->rowIs(pairRow(7));
  EXPECT_THAT(memory->changes, IsEmpty());
}

TEST_F(ObserverTest, WriteFromCallback_ReachesTheOthersAfterItsCause) {
  const auto writer = follower();
  const auto other = follower();
  writer->whenChanged = [&](const auto& change) {
    if (keyOf(change.row) != 1) return;
    table->rowIs(pairRow(2, 20));
    EXPECT_THAT(other->indices, IsEmpty()) << "told within the call that caused the write";
  };
  table->rowIs(pairRow(1, 10));
  EXPECT_THAT(other->indices, ElementsAre(2, 4));
  EXPECT_THAT(writer->indices, ElementsAre(2, 4));
}

TEST_F(ObserverTest, Removal_WithinACallIsSafe) {
  auto first = follower();
  const auto second = follower();
  const auto third = follower();
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
}

TEST_F(ObserverTest, Exception_StopsNobodyElseAndTheChangeComesAgain) {
  const auto thrower = follower();
  const auto other = follower();
  int left = 2;
  thrower->whenChanged = [&](const auto&) {
    if (left-- > 0) throw std::runtime_error("not now");
  };
  table->rowIs(pairRow(1, 10));
  thrower->whenFailed = [] { throw std::runtime_error("nor then"); };
  testing::internal::CaptureStderr();
  table->rowIs(pairRow(2, 20));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "exception in an observer: nor then\n");
  EXPECT_EQ(other->rows, memory->rows);
  EXPECT_THAT(thrower->exceptions, ElementsAre("not now", "not now"));
  EXPECT_EQ(memory->changes.size(), 2u) << "the thrower has consumed nothing";
  EXPECT_EQ(thrower->consume(), 2u);
  EXPECT_EQ(thrower->rows, memory->rows);
}

// What observers do within their calls.
using Act = std::function<void(Pairs&, const std::shared_ptr<Follower>& self)>;
const std::pair<const char*, Act> kActs[] = {
    {"write another row", [](Pairs& in, const auto&) { in.table->rowIs(pairRow(9, 90)); }},
    {"write the very row", [](Pairs& in, const auto&) { in.table->rowIs(pairRow(2, 200)); }},
    {"delete the very row", [](Pairs& in, const auto&) { in.table->rowDel(pairRow(2)); }},
    {"delete the next row", [](Pairs& in, const auto&) { in.table->rowDel(pairRow(3)); }},
    {"forget all changes",
     [](Pairs& in, const auto&) { in.memory->cleanChangeMap(in.memory->latestChangeIdx()); }},
    {"forget changes to come", [](Pairs& in, const auto&) { in.memory->cleanChangeMap(40); }},
    {"attach another", [](Pairs& in, const auto&) { in.follower(); }},
    {"throw", [](Pairs&, const auto&) { throw std::runtime_error("not now"); }},
    {"follow another table",
     [](Pairs& in, const auto& self) {
       in.table->observerDel(*self);
       in.others->observerIs(self);
     }},
    {"replace the implementation",
     [](Pairs& in, const auto&) {
       const auto gone = in.memory->gone;
       in.replace();
       EXPECT_FALSE(*gone) << "destroyed while it is in use";
     }},
    {"drop the implementation",
     [](Pairs& in, const auto&) {
       in.db.tableImplementationDel("Pairs");
       in.memory.reset();
     }},
};

TEST(ObserverActs, WithinAnyCall_LeaveEveryObserverWithTheRows) {
  for (const auto& [name, act] : kActs) {
    for (const std::string moment : {"reset", "walk", "change", "late change"}) {
      SCOPED_TRACE(name + (" within a " + moment));
      Pairs in;
      in.others->rowIs(pairRow(8, 80));
      const auto writeAll = [&](std::uint64_t value) {
        for (std::uint64_t key = 1; key <= 4 && in.memory; ++key) in.table->rowIs(pairRow(key, value));
      };
      writeAll(10);
      const auto actor = std::make_shared<Follower>();
      bool armed = moment == "reset" || moment == "walk";
      const auto once = [&, &doIt = act] {
        if (std::exchange(armed, false)) doIt(in, actor);
      };
      actor->whenChanged = [&](const auto& change) {
        if (keyOf(change.row) == 2) once();
      };
      const auto before = in.follower();
      if (moment == "reset") actor->whenReset = once;
      in.table->observerIs(actor);
      const auto after = in.follower();
      armed = armed || moment == "change";
      actor->prompt = moment != "late change";
      writeAll(20);
      armed = armed || moment == "late change";
      actor->prompt = true;
      writeAll(30);
      if (in.memory == nullptr) in.replace();
      in.table->rowIs(pairRow(6, 60));
      EXPECT_EQ(actor->rows, actor->table() == in.others.get() ? in.otherMemory->rows : in.memory->rows);
      EXPECT_EQ(actor->exceptions.size(), std::string(name) == "throw" ? 1u : 0u);
      EXPECT_EQ(before->rows, in.memory->rows);
      EXPECT_EQ(after->rows, in.memory->rows);
    }
  }
}

}  // namespace
