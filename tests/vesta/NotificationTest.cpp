#include <random>
#include <set>

#include "DamagedRow.h"
#include "Support.h"

namespace VestaTest {
namespace {

using Vesta::kSequenceMask;

class Notify : public TableTest {};

TEST_F(Notify, PollHonoursLimitAndPublishesProgressWhateverHandlersDo) {
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

TEST_F(Notify, MissContinuesInTheNextSegmentButNotWithinAHandler) {
  const auto table = writer();
  const auto follower = reader();
  put(*table, 1, 1);
  follower->onChangeIs([&](const TestKey& key) {
    if (key.id != 1) return;
    replaceSegment(*table);
    put(*table, 3, 1);
    EXPECT_EQ(stampOf(*follower, 3), 0u) << "the handler is called for the segment before";
  });
  EXPECT_EQ(follower->poll(1), 1u);
  EXPECT_EQ(stampOf(*follower, 3), 1u);
}

TEST_F(Notify, LateReaderIsNotifiedOfPresentRowsUnlessItSkips) {
  auto table = writer();
  for (std::uint64_t id = 1; id <= 4; ++id) put(*table, id, 1);
  put(*table, 2, 0);
  EXPECT_EQ(notified(*reader()), (Ids{1, 3, 4}));
  AttachOptions late = options();
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

// The reader has caught up with all that is published, but its handler has seen the row of the change in
// progress.
TEST_F(Notify, RemovalOfARowThatWasSeenUnpublishedIsNotLost) {
  const auto table = writer();
  const auto follower = reader();
  Ids seen;
  Model known;
  put(*table, 1, 1);
  notified(*follower);
  put(*table, 1, 0);
  onStep_ = [&](WriteStep step) {
    if (step == WriteStep::membersMoved) seen = notified(*follower, &known);
  };
  put(*table, 1, 2);
  onStep_ = {};
  EXPECT_EQ(seen, Ids{1});
  EXPECT_EQ(known, (Model{{1, 2}}));
  put(*table, 1, 0);
  overrun(*table, 2);
  notified(*follower, &known);
  EXPECT_EQ(known, (Model{{2, 299}}));
}

// What is not yet notified of one segment is notified of the next.
TEST_F(Notify, NothingIsLostWithTheSegment) {
  const auto table = writer(16);
  AttachOptions late = options(16);
  late.initialRows = Vesta::InitialRows::skip;
  Reader skipping(late);
  const auto follower = reader(16);
  for (const std::uint64_t id : {1u, 3u, 5u}) put(*table, id, 1);
  notified(*follower);
  for (const std::uint64_t id : {3u, 5u}) put(*table, id, 0);
  overrun(*table, 1);
  EXPECT_EQ(follower->poll(1), 1u);  // of 3 and 5, which a comparison has found gone
  replaceSegment(*table);
  put(*table, 9, 1);
  EXPECT_EQ(stampOf(skipping, 9), 1u) << "without a poll";
  EXPECT_THAT(notified(*follower), Contains(5));
  EXPECT_THAT(notified(skipping), Contains(1));

  for (const std::uint64_t stamp : {0u, 2u}) put(*table, 1, stamp);
  follower->onChangeIs([&](const TestKey& key) { EXPECT_EQ(stampOf(*follower, key.id), 2u); });
  EXPECT_EQ(follower->poll(1), 1u);
  put(*table, 1, 0);
  replaceSegment(*table);
  EXPECT_THAT(notified(*follower), Contains(1)) << "its handler had seen it come back";

  put(*table, 4, 1);
  notified(*follower);
  table->cleanup();
  follower->descriptorReadable();
  EXPECT_EQ(follower->poll(1), 1u);
  EXPECT_FALSE(follower->maySleep()) << "another key has gone";
}

TEST_F(Notify, WhatAComparisonHasNotifiedIsNotNotifiedAgain) {
  Writer table(options(64, kSequenceMask - 1));
  AttachOptions named = options();
  named.name = "one";
  Reader follower(named);
  for (std::uint64_t id = 1; id < 4; ++id) put(table, id, 1);
  EXPECT_FALSE(table.clientQuiesced("one"));
  EXPECT_TRUE(table.clientQuiesced("two"));
  notified(follower);
  EXPECT_TRUE(table.clientQuiesced("one"));
  overrun(table, 2);
  Ids seen;
  onStep_ = [&](WriteStep step) {
    if (step == WriteStep::versionFinal) seen = notified(follower);
  };
  put(table, 1, 9);
  onStep_ = {};
  EXPECT_EQ(seen, (Ids{2, 1}));
  EXPECT_EQ(notified(follower), Ids{});
}

// Follows random histories across the wrap of the sequences; mostly more keys than rows, alike in their low
// halves. At each catch-up the reader must have been notified of exactly the keys that changed since it last
// caught up: each change in order if it kept up; each row once, each key that is gone at least once, and no
// other, if the log has overrun it. In the last history it polls within the steps of writes, too, and its
// handlers write.
struct Pace {
  const char* name;
  std::uint64_t keys;       // few, or more than rows
  std::uint64_t pollEvery;  // changes between polls: fast, slow, stopped for longer than the log
  std::size_t limit;
  std::uint32_t capacity = 64;
  bool within = false;
};
TEST_F(Notify, RandomHistory) {
  for (const Pace& pace :
       {Pace{"fast", 80, 1, 10}, Pace{"catching up", 80, 10, 11}, Pace{"stopped, few keys", 3, 400, 10000},
        Pace{"stopped, all keys", 80, 500, 10000}, Pace{"at any step", 12, 30, 20, 8, true}}) {
    SCOPED_TRACE(pace.name);
    startOver();
    std::mt19937_64 random(pace.pollEvery);
    Writer table(options(pace.capacity, kSequenceMask - 200));
    const auto follower = reader(pace.capacity);
    enum { kIdle, kWriting, kHandling } now = kIdle;
    onStep_ = [&](WriteStep) {
      if (pace.within && now == kWriting && random() % 50 == 0) follower->poll(1 + random() % 8);
    };
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
      if ((pace.within ? random() : i) % pace.pollEvery != 0) continue;
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
        ASSERT_TRUE(std::ranges::includes(changed, each));
      }
      ASSERT_EQ(known, model);
      overruns = follower->readerCounters().overruns;
      got.clear();
      changes.clear();
    }
    onStep_ = {};
    EXPECT_EQ(contents(*follower), model);
    EXPECT_TRUE(follower->validate());
    EXPECT_EQ(overruns > (pace.within ? 1000 : 0), pace.pollEvery > 64 || pace.within);
  }
}

/// A reader in this process whose loads are waited for. Rows 0 to `rows` - 1 have stamp 1, and it knows them.
class BetweenLoads : public TableTest {
 protected:
  void attach(std::uint64_t rows = 48, std::uint32_t capacity = 64, Word firstSequence = 1) {
    follower_.reset();
    table_.reset();
    startOver();
    table_ = std::make_unique<Writer>(options(capacity, firstSequence));
    for (std::uint64_t id = 0; id < rows; ++id) put(*table_, id, 1);
    const Cairn::Descriptor opened(open(file().c_str(), O_RDWR | O_CLOEXEC));
    const Layout layout(Vesta::shapeOf<TestKey, TestEntry>(capacity));
    mapping_ = std::make_shared<Segment>(opened.get(), layout, Vesta::Access::reader);
    follower_ = std::make_unique<ByteReader>(options(capacity), mapping_);
    EXPECT_EQ(follower_->pollOnce(1000).size(), rows);
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
  void TearDown() override { EXPECT_EQ(trapped_, nullptr) << "not touched"; }
  Word& version(std::uint32_t slot) { return segmentOf(*table_).at(mapping_->layout().slotAt(slot)); }

  std::unique_ptr<Writer> table_;
  std::shared_ptr<Segment> mapping_;  // slot 40 is on another page than the staging row
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
  attach();
  follower_->yieldTimeIs(std::chrono::milliseconds(5));
  put(*table_, 1, 0);
  put(*table_, 2, 2);
  const auto stage = [&](std::uint64_t stamp) {
    put(*table_, 40, stamp);
    version(40) |= Vesta::kStaged;
  };
  for (std::uint64_t i = 0; i < 201; ++i) stage(2 + i);
  bool busy = true;
  const Layout& layout = mapping_->layout();
  const std::function<void()> disturb = [&] {
    stage(4);
    onTouch(layout.slotAt(40), [&] { busy ? onTouch(layout.stagingAt, disturb) : void(); });
  };
  onTouch(layout.stagingAt, disturb);
  EXPECT_THAT(failure([&] { follower_->stampOf(40); }), HasSubstr("row kept changing for 5 ms"));
  EXPECT_THAT(failure([&] { follower_->pollOnce(100); }), HasSubstr("row kept changing for 5 ms"));
  busy = false;
  EXPECT_EQ(follower_->stampOf(40), 4u);
  EXPECT_THAT(follower_->pollOnce(100), UnorderedElementsAre(1, 2, 40));
  EXPECT_TRUE(table_->quiesced(table_->sequence()));
}

// The row becomes final and another one is staged while the reader is about to copy the staging row.
TEST_F(BetweenLoads, RowThatBecomesFinalIsCopiedAgain) {
  attach();
  put(*table_, 40, 2);
  version(40) |= Vesta::kStaged;
  onTouch(mapping_->layout().stagingAt, [&] {
    version(40) &= ~Vesta::kStaged;
    put(*table_, 41, 2);
  });
  Word row[8];
  std::uint32_t slot = 40;
  EXPECT_TRUE(follower_->rowFrom(slot, row));
  EXPECT_EQ(row[3], 2u);
}

// The index is rebuilt twice while the reader is in it.
TEST_F(BetweenLoads, MissInAnIndexThatIsRebuiltIsCheckedAgain) {
  attach(200, 256);  // each index has a page of its own
  Segment& segment = segmentOf(*table_);
  forgetShortcuts(segment);
  const std::size_t index = segment.layout().indexAt(segment.load(Vesta::kIndexAt) & 1);
  onTouch(index, [&] {
    for (std::uint64_t id = 1000; table_->writerCounters().indexRebuilds == 0; ++id) {
      put(*table_, id, 1);
      put(*table_, id - 40, 0);
    }
    for (std::size_t at = index; at < index + segment.layout().cells; ++at) {
      segment.at(at) = Vesta::sealed(Vesta::kEmptyCell, at);
    }
    forgetShortcuts(segment);
  });
  EXPECT_EQ(follower_->stampOf(7), 1u);
}

// Behind the reader cells become empty, before it they are taken: it meets none in a walk over two pages.
TEST_F(BetweenLoads, WalkWithoutAnEmptyCellIsMadeAgainAfterAChange) {
  attach(1, 512);
  Segment& segment = segmentOf(*table_);
  const std::size_t cells = segment.layout().cells;
  const std::size_t index = segment.layout().indexAt(segment.load(Vesta::kIndexAt) & 1);
  Word first = 1'000'000;  // a key whose chain begins in the first cell
  while (Vesta::hashOf(&first, 1u) % cells != 0) ++first;
  const auto fill = [&](std::size_t half, std::uint32_t value) {
    for (std::size_t i = 0; i < cells / 2; ++i) {
      const std::size_t at = index + half * cells / 2 + i;
      segment.at(at) = Vesta::sealed(value, at);
    }
  };
  forgetShortcuts(segment);
  fill(0, Vesta::kMarkCell);
  onTouch(index + cells / 2, [&] {
    fill(0, Vesta::kEmptyCell);
    fill(1, Vesta::kMarkCell);
    put(*table_, 0, 2);
  });
  EXPECT_EQ(follower_->stampOf(first), 0u);
}

TEST_F(BetweenLoads, RecordThatIsOverwrittenWhileItIsReadIsNoDamage) {
  attach(2, 64, 120);
  put(*table_, 1, 2);
  onTouch(mapping_->layout().recordAt(123), [&] { overrun(*table_, 2); });
  EXPECT_THAT(follower_->pollOnce(100), UnorderedElementsAre(1, 2));
}

// Changes to slots that a comparison has passed are notified after it: a row written, or a key that came back
// there and is gone again in a log that overruns the reader once more.
TEST_F(BetweenLoads, ChangesBehindAComparisonAreNotified) {
  for (const bool overrunAgain : {false, true}) {
    SCOPED_TRACE(overrunAgain);
    attach(48, 64, 0);
    put(*table_, 3, 0);  // slot 3 is the next to be taken
    const auto sequence = [&] { return table_->sequence(); };
    while ((sequence() & 127) < 100 || sequence() < 300) put(*table_, 2, 5 + sequence());
    onTouch(mapping_->layout().slotAt(45), [&] {
      put(*table_, 1, 9);
      if (!overrunAgain) return;
      put(*table_, 45, 0);   // vacates slot 45
      put(*table_, 100, 1);  // takes it
      put(*table_, 45, 2);   // takes slot 3
    });
    Ids all = follower_->pollOnce(2);
    if (overrunAgain) put(*table_, 45, 0);
    if (overrunAgain) overrun(*table_, 2);
    for (Ids more; !(more = follower_->pollOnce(100)).empty();)
      all.insert(all.end(), more.begin(), more.end());
    EXPECT_THAT(all, Contains(overrunAgain ? 45 : 1));
  }
}

// The dead one had handled everything. The new one has not, from its first look at the slots on.
TEST_F(BetweenLoads, ReaderWithTheNumberOfADeadOneCountsWhileItAttaches) {
  attach(1);
  follower_.reset();
  Child child([this] { return notified(*reader()).size() == 1 ? raise(SIGKILL) : 1; });
  ASSERT_EQ(child.wait(), -SIGKILL);
  onTouch(mapping_->layout().slotAt(0), [&] { EXPECT_FALSE(table_->quiesced(table_->sequence())); });
  ByteReader follower(options(), mapping_);
}

}  // namespace
}  // namespace VestaTest
