#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>

#include <random>
#include <set>

#include "DamagedRow.h"
#include "Support.h"

namespace VestaTest {
namespace {

TEST_F(TableTest, Notify_PollHonoursLimitAndPublishesProgressWhateverHandlersDo) {
  const auto table = writer();
  const auto follower = reader();
  for (std::uint64_t id = 1; id <= 5; ++id) put(*table, id, 1);
  follower->onChangeIs([&](const TestKey& key) {
    EXPECT_EQ(table->readers().at(0).handled, key.id) << "not before the handler has returned";
    EXPECT_EQ(follower->poll(1), 0u) << "within a handler";
    if (key.id == 5) throw std::runtime_error("handler");
  });
  EXPECT_EQ(follower->poll(2), 2u);
  EXPECT_FALSE(table->quiesced(table->sequence()));
  EXPECT_FALSE(follower->maySleep());
  EXPECT_THROW(follower->poll(100), std::runtime_error);
  EXPECT_TRUE(table->quiesced(table->sequence())) << "the last one is handled, too";
  put(*table, 7, 1);
  put(*table, 8, 1);
  follower->onChangeIs([&](const TestKey&) { follower->detach(); });
  EXPECT_EQ(follower->poll(10), 1u);
  EXPECT_EQ(follower->poll(10), 0u);
  EXPECT_TRUE(table->readers().empty());
}

TEST_F(TableTest, Notify_LateReaderIsNotifiedOfPresentRowsUnlessItSkips) {
  auto table = writer();
  for (std::uint64_t id = 1; id <= 4; ++id) put(*table, id, 1);
  put(*table, 2, 0);
  EXPECT_EQ(notified(*reader()), (Ids{1, 3, 4}));
  Vesta::AttachOptions late = options();
  late.initialRows = Vesta::InitialRows::skip;
  auto follower = std::make_unique<Reader>(late);
  EXPECT_EQ(notified(*follower), Ids{});
  put(*table, 3, 2);
  EXPECT_EQ(notified(*follower), Ids{3});
  damageRow(*table, TestKey{4});
  follower.reset();
  table.reset();
  late.initialRows = Vesta::InitialRows::notify;
  late.onDamage = Vesta::OnDamage::startEmpty;
  EXPECT_EQ(notified(*std::make_unique<Reader>(late)), Ids{}) << "nor of rows before the damage";
}

// Around the wrap of the sequences. Key 1 comes back, is seen by the handler of its removal and is removed
// for good in a log that overruns the reader. Nothing shows that the handler of 5 has not seen the like, so
// its removal comes again; not so once the reader has caught up.
TEST_F(TableTest, Notify_RemovalIsRepeatedOnlyIfTheLogOverrunsAReaderThatHadChangesLeft) {
  for (std::uint64_t back = 0; back < 10; ++back) {
    SCOPED_TRACE(back);
    startOver();
    Vesta::AttachOptions start = options();
    start.firstSequence = Vesta::kSequenceMask - back;
    Writer table(start);
    const auto follower = reader();
    put(table, 1, 1);
    put(table, 5, 1);
    notified(*follower);
    put(table, 1, 0);
    put(table, 5, 0);
    put(table, 1, 2);
    follower->onChangeIs([&](const TestKey& key) { stampOf(*follower, key.id); });
    EXPECT_EQ(follower->poll(2), 2u);
    put(table, 1, 0);
    for (std::uint64_t i = 1; i < 300; ++i) put(table, 2, i);
    EXPECT_THAT(notified(*follower), ::testing::UnorderedElementsAre(1, 2, 5));
    put(table, 2, 0);
    EXPECT_EQ(notified(*follower), Ids{2});
    for (std::uint64_t i = 1; i < 300; ++i) put(table, 3, i);
    EXPECT_EQ(notified(*follower), Ids{3});
  }
}

// The reader has caught up with all that is published, but its handler has seen the row of the change in
// progress.
TEST_F(TableTest, Notify_RemovalOfARowThatWasSeenUnpublishedIsNotLost) {
  std::unique_ptr<Reader> follower;
  Model known;
  Vesta::AttachOptions start = options();
  bool armed = false;
  start.stepHook = [&](Vesta::WriteStep step) {
    if (!armed || step != Vesta::WriteStep::membersMoved) return;
    EXPECT_EQ(notified(*follower, &known), Ids{1});
  };
  Writer table(start);
  follower = reader();
  put(table, 1, 1);
  notified(*follower);
  put(table, 1, 0);
  armed = true;
  put(table, 1, 2);
  armed = false;
  EXPECT_EQ(known, (Model{{1, 2}}));
  put(table, 1, 0);
  for (std::uint64_t i = 1; i < 300; ++i) put(table, 2, i);
  notified(*follower, &known);
  EXPECT_EQ(known, (Model{{2, 299}}));
}

// What is not yet notified of one segment is notified of the next.
TEST_F(TableTest, Notify_NothingIsLostWithTheSegment) {
  const auto table = writer(16);
  Vesta::AttachOptions late = options(16);
  late.initialRows = Vesta::InitialRows::skip;
  Reader skipping(late);
  const auto follower = reader(16);
  for (const std::uint64_t id : {1u, 3u, 5u}) put(*table, id, 1);
  notified(*follower);
  put(*table, 3, 0);
  put(*table, 5, 0);
  for (std::uint64_t i = 1; i < 100; ++i) put(*table, 1, i);
  EXPECT_EQ(follower->poll(1), 1u);  // of 3 and 5, which a comparison has found gone
  replaceSegment(*table);
  put(*table, 9, 1);
  EXPECT_EQ(stampOf(skipping, 9), 1u) << "without a poll";
  EXPECT_THAT(notified(*follower), ::testing::Contains(5));
  EXPECT_THAT(notified(skipping), ::testing::Contains(1));

  put(*table, 1, 0);
  put(*table, 1, 2);
  follower->onChangeIs([&](const TestKey& key) { EXPECT_EQ(stampOf(*follower, key.id), 2u); });
  EXPECT_EQ(follower->poll(1), 1u);
  put(*table, 1, 0);
  replaceSegment(*table);
  EXPECT_THAT(notified(*follower), ::testing::Contains(1)) << "its handler had seen it come back";

  put(*table, 4, 1);
  notified(*follower);
  table->cleanup();
  follower->descriptorReadable();
  EXPECT_EQ(follower->poll(1), 1u);
  EXPECT_FALSE(follower->maySleep()) << "another key has gone";
}

TEST_F(TableTest, Notify_WhatAComparisonHasNotifiedIsNotNotifiedAgain) {
  Vesta::AttachOptions start = options();
  std::unique_ptr<Reader> follower;
  Ids ids;
  bool armed = false;
  start.stepHook = [&](Vesta::WriteStep step) {
    if (armed && step == Vesta::WriteStep::versionFinal) ids = notified(*follower);
  };
  start.firstSequence = Vesta::kSequenceMask - 1;
  Writer table(start);
  Vesta::AttachOptions named = options();
  named.name = "one";
  follower = std::make_unique<Reader>(named);
  for (std::uint64_t id = 1; id < 4; ++id) {
    put(table, id, 1);
    EXPECT_FALSE(table.clientQuiesced("one"));
    EXPECT_TRUE(table.clientQuiesced("two"));
  }
  notified(*follower);
  EXPECT_TRUE(table.clientQuiesced("one"));
  for (std::uint64_t i = 1; i < 300; ++i) put(table, 2, i);
  armed = true;
  put(table, 1, 9);
  armed = false;
  EXPECT_EQ(ids, (Ids{2, 1}));
  EXPECT_EQ(notified(*follower), Ids{});
}

// Follows random histories across the wrap of the sequences; mostly more keys than rows, alike in their low
// halves. At each catch-up the reader must have been notified of exactly the keys that changed since it last
// caught up: each change in order if it kept up; each row once, each key that is gone at least once, and no
// other, if the log has overrun it. In the last history it polls within the steps of writes, too, and its
// handlers write.
TEST_F(TableTest, Notify_RandomHistory) {
  const struct {
    const char* name;
    std::uint64_t keys;       // few, or more than rows
    std::uint64_t pollEvery;  // changes between polls: fast, slow, stopped for longer than the log
    std::size_t limit;
    std::uint32_t capacity = 64;
    bool within = false;
  } paces[] = {{"fast", 80, 1, 10},
               {"catching up", 80, 10, 11},
               {"stopped, few keys", 3, 400, 10000},
               {"stopped, all keys", 80, 500, 10000},
               {"at any step", 12, 30, 20, 8, true}};
  for (const auto& pace : paces) {
    SCOPED_TRACE(pace.name);
    startOver();
    std::mt19937_64 random(pace.pollEvery);
    std::unique_ptr<Reader> follower;
    enum { kIdle, kWriting, kHandling } now = kIdle;
    Vesta::AttachOptions start = options(pace.capacity);
    start.firstSequence = Vesta::kSequenceMask - 200;
    start.stepHook = [&](Vesta::WriteStep) {
      if (pace.within && now == kWriting && random() % 50 == 0) follower->poll(1 + random() % 8);
    };
    Writer table(start);
    follower = reader(pace.capacity);
    Ids changes;
    Ids got;
    Model model;
    Model known;
    std::uint64_t stamp = 0;
    const std::string full = std::to_string(pace.capacity);
    const auto changeOne = [&] {
      const std::uint64_t id = random() % pace.keys << 32;
      const bool goes = random() % 3 == 0 || (pace.within && model.size() == pace.capacity);
      const bool fits = goes || model.size() < pace.capacity || model.contains(id);
      if (!goes || model.contains(id)) changes.insert(changes.end(), fits ? 1 : 0, id);
      ASSERT_EQ(failure([&] { put(table, id, goes ? 0 : ++stamp); }),
                fits ? "" : "table is full: used " + full + " of " + full);
      if (fits) put(model, id, goes ? 0 : stamp);
      ASSERT_EQ(stampOf(*follower, id), model.contains(id) ? model[id] : 0);
    };
    follower->onChangeIs([&](const TestKey& key) {
      for (std::uint64_t i = random() % 40; now == kHandling && i < 5; ++i) changeOne();
      got.push_back(key.id);
      put(known, key.id, stampOf(*follower, key.id));
      for (std::uint64_t i = random() % 40; now == kHandling && i < 30; ++i) changeOne();
    });
    std::uint64_t overruns = 0;
    for (std::uint64_t i = 1; i <= scaled(pace.within ? 600000 : 60000) && !HasFatalFailure(); ++i) {
      now = kWriting;
      changeOne();
      ASSERT_EQ(follower->members(), model.size());
      if (pace.within ? random() % pace.pollEvery != 0 : i % pace.pollEvery != 0) continue;
      now = pace.within ? kHandling : kIdle;
      follower->poll(pace.limit);
      now = kIdle;
      while (pace.within && follower->poll(1000) != 0) {
      }
      if (!table.quiesced(table.sequence())) continue;
      if (overruns == follower->readerCounters().overruns) {
        ASSERT_EQ(got, changes);
      } else if (pace.limit > 1000) {
        const std::set<std::uint64_t> changed(changes.begin(), changes.end());
        const std::set<std::uint64_t> each(got.begin(), got.end());
        ASSERT_EQ(each.size(), got.size());
        ASSERT_TRUE(std::includes(changed.begin(), changed.end(), each.begin(), each.end()));
      }
      ASSERT_EQ(known, model);
      overruns = follower->readerCounters().overruns;
      got.clear();
      changes.clear();
    }
    EXPECT_EQ(contents(*follower), model);
    EXPECT_TRUE(follower->validate());
    EXPECT_EQ(overruns > (pace.within ? 1000 : 0), pace.pollEvery > 64 || pace.within);
  }
}

/// A reader in this process whose loads are waited for.
class BetweenLoads : public TableTest {
 protected:
  static constexpr std::uint32_t kCapacity = 64;  // slot 40 is on another page than the staging row

  void map(std::uint32_t capacity = kCapacity) {
    const Cairn::Descriptor segment(open(file().c_str(), O_RDWR | O_CLOEXEC));
    const Vesta::Layout layout(Vesta::shapeOf<TestKey, TestEntry>(capacity));
    mapping_ = std::make_shared<Vesta::Segment>(segment.get(), layout, Vesta::Access::reader);
  }
  void attach(std::uint32_t capacity = kCapacity) {
    map(capacity);
    follower_ = std::make_unique<ByteReader>(options(capacity), mapping_);
  }
  /// Calls `then` when the reader first touches the page of the word at `position`, before it gets the word.
  /// `then` may set the next trap.
  void onTouch(std::size_t position, std::function<void()> then) {
    const auto word = reinterpret_cast<std::uintptr_t>(&mapping_->at(position));
    trapped_ = reinterpret_cast<void*>(word / kPage * kPage);
    then_ = std::move(then);
    struct sigaction action {};
    action.sa_sigaction = touched;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigaction(SIGSEGV, &action, nullptr);
    mprotect(trapped_, kPage, PROT_NONE);
  }

  std::shared_ptr<Vesta::Segment> mapping_;
  std::unique_ptr<ByteReader> follower_;

 private:
  static constexpr std::size_t kPage = 4096;
  static void touched(int, siginfo_t* info, void*) {
    const auto page = reinterpret_cast<std::uintptr_t>(info->si_addr) / kPage * kPage;
    if (page != reinterpret_cast<std::uintptr_t>(trapped_)) std::abort();  // a fault that is none of ours
    mprotect(std::exchange(trapped_, nullptr), kPage, PROT_READ);
    std::exchange(then_, {})();
  }
  static inline void* trapped_ = nullptr;
  static inline std::function<void()> then_;
};

// Slot 40 is staged, and changes whenever the reader is about to copy its row, for as long as it tries.
TEST_F(BetweenLoads, RowThatNeverRestsIsUnsettledAndCostsNoNotification) {
  const auto table = writer(kCapacity);
  for (std::uint64_t id = 0; id < 48; ++id) put(*table, id, 1);
  attach();
  EXPECT_EQ(follower_->pollOnce(100).size(), 48u);
  follower_->yieldTimeIs(std::chrono::milliseconds(5));
  put(*table, 1, 0);
  put(*table, 2, 2);
  bool busy = true;
  const std::size_t version = mapping_->layout().slotAt(40);
  const std::size_t staging = mapping_->layout().stagingAt;
  const auto stage = [&](std::uint64_t stamp) {
    put(*table, 40, stamp);
    segmentOf(*table).at(version) |= Vesta::kStaged;
  };
  for (std::uint64_t i = 0; i < 201; ++i) stage(2 + i);
  const std::function<void()> disturb = [&] {
    stage(4);
    onTouch(version, [&] {
      if (busy) onTouch(staging, disturb);
    });
  };
  const auto keptChanging = ::testing::HasSubstr("row kept changing for 5 ms");
  onTouch(staging, disturb);
  EXPECT_THAT(failure([&] { follower_->stampOf(40); }), keptChanging);
  EXPECT_THAT(failure([&] { follower_->pollOnce(100); }), keptChanging);
  busy = false;
  EXPECT_EQ(follower_->stampOf(40), 4u);
  EXPECT_THAT(follower_->pollOnce(100), ::testing::UnorderedElementsAre(1, 2, 40));
  EXPECT_TRUE(table->quiesced(table->sequence()));
}

// The row becomes final and another one is staged while the reader is about to copy the staging row.
TEST_F(BetweenLoads, RowThatBecomesFinalIsCopiedAgain) {
  const auto table = writer(kCapacity);
  for (std::uint64_t id = 0; id < 48; ++id) put(*table, id, 1);
  attach();
  Vesta::Segment& segment = segmentOf(*table);
  put(*table, 40, 2);
  const std::size_t version = segment.layout().slotAt(40);
  segment.at(version) |= Vesta::kStaged;
  bool between = false;
  onTouch(segment.layout().stagingAt, [&] {
    between = true;
    segment.at(version) &= ~Vesta::kStaged;
    put(*table, 41, 2);
  });
  Vesta::Word row[8];
  std::uint32_t slot = 40;
  EXPECT_TRUE(follower_->rowFrom(slot, row));
  EXPECT_TRUE(between);
  EXPECT_EQ(row[3], 2u);
}

// The index is rebuilt twice while the reader is in it.
TEST_F(BetweenLoads, MissInAnIndexThatIsRebuiltIsCheckedAgain) {
  constexpr std::uint32_t kLarge = 256;  // each index has a page of its own
  const auto table = writer(kLarge);
  for (std::uint64_t id = 0; id < 200; ++id) put(*table, id, 1);
  attach(kLarge);
  Vesta::Segment& segment = segmentOf(*table);
  forgetShortcuts(segment);
  const std::size_t index = segment.layout().indexAt(segment.load(Vesta::kIndexAt) & 1);
  bool between = false;
  onTouch(index, [&] {
    between = true;
    for (std::uint64_t id = 1000; table->writerCounters().indexRebuilds == 0; ++id) {
      put(*table, id, 1);
      put(*table, id - 40, 0);
    }
    for (std::size_t at = index; at < index + segment.layout().cells; ++at) {
      segment.at(at) = Vesta::sealed(Vesta::kEmptyCell, at);
    }
    forgetShortcuts(segment);
  });
  EXPECT_EQ(follower_->stampOf(7), 1u);
  EXPECT_TRUE(between);
}

TEST_F(BetweenLoads, RecordThatIsOverwrittenWhileItIsReadIsNoDamage) {
  Vesta::AttachOptions start = options(kCapacity);
  start.firstSequence = 120;  // as above
  Writer table(start);
  put(table, 1, 1);
  put(table, 2, 1);
  attach();
  follower_->pollOnce(10);
  put(table, 1, 2);
  bool between = false;
  onTouch(mapping_->layout().recordAt(123), [&] {
    between = true;
    for (std::uint64_t i = 3; i < 300; ++i) put(table, 2, i);
  });
  EXPECT_THAT(follower_->pollOnce(100), ::testing::UnorderedElementsAre(1, 2));
  EXPECT_TRUE(between);
}

// Changes to slots that a comparison has passed are notified after it: a row written, or a key that came back
// there and is gone again in a log that overruns the reader once more.
TEST_F(BetweenLoads, ChangesBehindAComparisonAreNotified) {
  for (const bool overrunAgain : {false, true}) {
    SCOPED_TRACE(overrunAgain);
    startOver();
    Vesta::AttachOptions start = options(kCapacity);
    start.firstSequence = 0;
    Writer table(start);
    for (std::uint64_t id = 0; id < 48; ++id) put(table, id, 1);
    attach();
    follower_->pollOnce(100);
    put(table, 3, 0);  // slot 3 is the next to be taken
    while ((table.sequence() & 127) < 100 || table.sequence() < 300) put(table, 2, 5 + table.sequence());
    bool between = false;
    onTouch(mapping_->layout().slotAt(45), [&] {
      between = true;
      put(table, 1, 9);
      if (!overrunAgain) return;
      put(table, 45, 0);   // vacates slot 45
      put(table, 100, 1);  // takes it
      put(table, 45, 2);   // takes slot 3
    });
    Ids all = follower_->pollOnce(2);
    EXPECT_TRUE(between);
    if (overrunAgain) {
      put(table, 45, 0);
      for (std::uint64_t i = 1; i < 300; ++i) put(table, 2, i);
    }
    for (Ids more; !(more = follower_->pollOnce(100)).empty();)
      all.insert(all.end(), more.begin(), more.end());
    EXPECT_THAT(all, ::testing::Contains(overrunAgain ? 45 : 1));
    follower_.reset();
  }
}

// The dead one had handled everything. The new one has not, from its first look at the slots on.
TEST_F(BetweenLoads, ReaderWithTheNumberOfADeadOneCountsWhileItAttaches) {
  const auto table = writer(kCapacity);
  put(*table, 1, 1);
  Child child([this] {
    const auto follower = reader(kCapacity);
    return notified(*follower).size() == 1 ? raise(SIGKILL) : 1;
  });
  ASSERT_EQ(child.wait(), -SIGKILL);
  map();
  bool between = false;
  onTouch(mapping_->layout().slotAt(0), [&] {
    between = true;
    EXPECT_FALSE(table->quiesced(table->sequence()));
  });
  ByteReader follower(options(kCapacity), mapping_);
  EXPECT_TRUE(between);
}

}  // namespace
}  // namespace VestaTest
