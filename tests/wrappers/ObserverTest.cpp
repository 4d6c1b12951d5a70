#include <stdexcept>

#include "lumen/LmErrors.h"
#include "tests/wrappers/RowTable.h"

namespace WrapperTest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using IifFollower = Follower<L3Iif>;

struct Iifs : RowTable<L3Iif> {
  std::shared_ptr<IifFollower> follower(bool prompt = true) const {
    auto made = std::make_shared<IifFollower>();
    made->prompt = prompt;
    table->observerIs(made);
    return made;
  }
  /// Has the table served by a wrapper over another config table with one row.
  void replace() {
    wrapper.reset();
    registered(mounted("second"), "sample");
    table->rowIs(row(7, 70));
  }
  bool served() const { return table->implementation() != nullptr; }

  std::shared_ptr<Lumen::LmTable> others = registered(mounted("others"), "others");
};

std::uint64_t numberOf(const Lumen::BaseRow& row) { return Iifs::entryOf(row).l3Iif - Iifs::key(0).l3Iif; }

struct ObserverTest : testing::Test, NothingLeft, Iifs {};

TEST_F(ObserverTest, Attach_WalksTheRowsAndGoesOnWithTheirChanges) {
  table->rowIs(row(1, 10));
  table->rowIs(row(2, 20));
  const auto late = follower();
  EXPECT_EQ(late->rows, contents(*table));
  table->rowIs(row(2, 21));
  table->rowDel(row(1));
  EXPECT_EQ(late->rows, contents(*table));
  EXPECT_THAT(late->indices, ElementsAre(4, 4, 6, 9));  // two rows as of index 4, a write, a deletion
  EXPECT_THAT([&] { others->observerIs(late); },
              testing::ThrowsMessage<Lumen::LmTableError>(
                  "observer for table LumenOthersConfigTable follows table LumenSampleConfigTable"));
}

TEST_F(ObserverTest, Trim_GoesByTheSlowestThatHasBegun) {
  follower(false);
  follower();
  const auto slow = follower();
  slow->prompt = false;
  for (std::uint32_t n = 1; n <= 5; ++n) table->rowIs(row(n));
  EXPECT_EQ(slow->consume(2), 2u);
  EXPECT_EQ(slow->consumedChangeIdx(), 4u);
  table->rowIs(row(6));  // the next change tells how far the table may forget
  EXPECT_EQ(table->oldestChangeIdx(), 4u);
  EXPECT_EQ(changes().size(), 4u);

  table->observerDel(*slow);
  table->rowIs(row(7));
  EXPECT_THAT(changes(), IsEmpty());
  wrapper->cleanChangeMap(50);
  table->rowIs(row(8));
  EXPECT_EQ(table->oldestChangeIdx(), 50u) << "what is forgotten is not brought up again";
}

TEST_F(ObserverTest, WriteFromCallback_ReachesTheOthersAfterItsCause) {
  const auto writer = follower();
  const auto other = follower();
  writer->whenChanged = [&](const auto& change) {
    if (numberOf(change.row) != 1) return;
    table->rowIs(row(2, 20));
    EXPECT_THAT(other->indices, IsEmpty()) << "told within the call that caused the write";
  };
  table->rowIs(row(1, 10));
  EXPECT_THAT(other->indices, ElementsAre(2, 4));
  EXPECT_THAT(writer->indices, ElementsAre(2, 4));
}

TEST_F(ObserverTest, Removal_WithinACallIsSafe) {
  auto first = follower();
  const auto second = follower();
  const auto third = follower();
  const std::weak_ptr<IifFollower> watch = first;
  first->whenChanged = [&](const auto&) {
    table->observerDel(*watch.lock());  // itself
    table->observerDel(*second);        // one still to be told
    first.reset();
  };
  table->rowIs(row(1, 10));
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
  table->rowIs(row(1, 10));
  thrower->whenFailed = [] { throw std::runtime_error("nor then"); };
  testing::internal::CaptureStderr();
  table->rowIs(row(2, 20));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "exception in an observer: nor then\n");
  EXPECT_EQ(other->rows, contents(*table));
  EXPECT_THAT(thrower->exceptions, ElementsAre("not now", "not now"));
  EXPECT_EQ(changes().size(), 2u) << "the thrower has consumed nothing";
  EXPECT_EQ(thrower->consume(), 2u);
  EXPECT_EQ(thrower->rows, contents(*table));
}

// What observers do within their calls.
using Act = std::function<void(Iifs&, const std::shared_ptr<IifFollower>& self)>;
const std::pair<const char*, Act> kActs[] = {
    {"write another row", [](Iifs& in, const auto&) { in.table->rowIs(in.row(9, 90)); }},
    {"write the very row", [](Iifs& in, const auto&) { in.table->rowIs(in.row(2, 200)); }},
    {"write past the row table", [](Iifs& in, const auto&) { in.config->tableIs(in.entry(3, 300)); }},
    {"delete the very row", [](Iifs& in, const auto&) { in.table->rowDel(in.row(2)); }},
    {"delete the next row", [](Iifs& in, const auto&) { in.table->rowDel(in.row(3)); }},
    {"delete all rows", [](Iifs& in, const auto&) { in.table->rowDelAll(); }},
    {"forget all changes",
     [](Iifs& in, const auto&) { in.wrapper->cleanChangeMap(in.wrapper->latestChangeIdx()); }},
    {"forget changes to come", [](Iifs& in, const auto&) { in.wrapper->cleanChangeMap(40); }},
    {"attach another", [](Iifs& in, const auto&) { in.follower(); }},
    {"throw", [](Iifs&, const auto&) { throw std::runtime_error("not now"); }},
    {"leave", [](Iifs& in, const auto& self) { in.table->observerDel(*self); }},
    {"follow another table",
     [](Iifs& in, const auto& self) {
       in.table->observerDel(*self);
       in.others->observerIs(self);
     }},
    {"replace the implementation",
     [](Iifs& in, const auto&) {
       const std::weak_ptr<L3Iif::Wrapper> watch = in.wrapper;
       in.replace();
       EXPECT_FALSE(watch.expired()) << "destroyed while it is in use";
     }},
    {"drop the implementation",
     [](Iifs& in, const auto&) {
       in.db->tableImplementationDel(in.table->name());
       in.wrapper.reset();
     }},
};

TEST(ObserverActs, WithinAnyCall_LeaveEveryObserverWithTheRows) {
  for (const auto& [name, act] : kActs) {
    for (const std::string moment : {"reset", "walk", "change", "late change"}) {
      SCOPED_TRACE(name + (" within a " + moment));
      const NothingLeft nothingLeft;
      Iifs in;
      in.others->rowIs(in.row(8, 80));
      const auto writeAll = [&](std::uint64_t data) {
        for (std::uint32_t n = 1; n <= 4 && in.served(); ++n) in.table->rowIs(in.row(n, data));
      };
      writeAll(10);
      const auto actor = std::make_shared<IifFollower>();
      bool armed = moment == "reset" || moment == "walk";
      const auto once = [&, &doIt = act] {
        if (std::exchange(armed, false)) doIt(in, actor);
      };
      actor->whenChanged = [&](const auto& change) {
        EXPECT_NE(actor->table(), nullptr) << "called after it was dropped";
        if (numberOf(change.row) == 2) once();
      };
      const auto expectRows = [&](const IifFollower& of) {
        EXPECT_TRUE(of.table() == nullptr || of.rows == in.contents(*of.table()));
      };
      const auto before = in.follower();
      if (moment == "reset") actor->whenReset = once;
      in.table->observerIs(actor);
      actor->consume();  // again what threw
      expectRows(*actor);
      const auto after = in.follower();
      armed = armed || moment == "change";
      actor->prompt = moment != "late change";
      writeAll(20);
      armed = armed || moment == "late change";
      actor->prompt = true;
      writeAll(30);
      if (!in.served()) in.replace();
      in.table->rowIs(in.row(6, 60));
      EXPECT_FALSE(armed);
      EXPECT_EQ(actor->exceptions.size(), std::string(name) == "throw" ? 1u : 0u);
      for (const auto& observer : {actor, before, after}) expectRows(*observer);
    }
  }
}

}  // namespace
}  // namespace WrapperTest
