// Writers and readers that are stopped or killed, at each step and at random moments.
#include <sys/ptrace.h>

#include <random>
#include <set>
#include <thread>

#include "Support.h"

namespace VestaTest {
namespace {

constexpr std::uint32_t kCapacity = 16;
constexpr std::uint64_t kRows = 8;  // ids 1 to 8, stamp 1, before the first change

/// A set of steps.
constexpr unsigned range(WriteStep first, WriteStep last) {
  return (2u << static_cast<int>(last)) - (1u << static_cast<int>(first));
}

// The n-th write of a kind goes to `firstId` + n / `writesPerId`; after the first, an id's row is removed.
struct Kind {
  const char* name;
  std::uint64_t firstId, writesPerId, stamp;
  std::uint64_t changes;  // 0: the writer ends while it recovers the table
  unsigned steps;         // those it passes through
  std::uint64_t idOf(std::uint64_t n) const { return firstId + n / writesPerId; }
};

// Writing over and over to a nearly full table, each time another key, leaves marks until a rebuild is due.
constexpr unsigned kEveryWrite = range(WriteStep::begun, WriteStep::woken);
constexpr unsigned kInsertion = range(WriteStep::cellMoved, WriteStep::membersMoved);
constexpr unsigned kRebuild = range(WriteStep::rebuildCleared, WriteStep::rebuildSwitched);
constexpr unsigned kRecovery = kRebuild | range(WriteStep::rowHalf, WriteStep::versionFinal) |
                               range(WriteStep::membersMoved, WriteStep::membersMoved);
const Kind kKinds[] = {{"insert", 100, 1, 7, kRows, kEveryWrite},
                       {"replace", 1, 1, 7, kRows, kEveryWrite & ~kInsertion},
                       {"remove", 1, 1, 0, kRows, kEveryWrite},
                       {"churn", 1000, 2, 7, 400, kEveryWrite | kRebuild},
                       {"recover", 1, 1, 1, 0, kRecovery}};

template <class Table>
void change(Table& table, const Kind& kind, std::uint64_t n) {
  put(table, kind.idOf(n), n % kind.writesPerId == 0 ? kind.stamp : 0);
}

Model after(const Kind& kind, std::uint64_t changes) {
  Model model;
  for (std::uint64_t id = 1; id <= kRows; ++id) model[id] = 1;
  for (std::uint64_t n = 0; n < changes; ++n) change(model, kind, n);
  return model;
}

/// A number that a child shares with its parent.
std::atomic<std::uint64_t>& sharedCount() {
  void* page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *new (page) std::atomic<std::uint64_t>(0);
}

class Death : public TableTest {
 protected:
  /// A table whose last row is staged, as a dead writer may leave it, whose next change carries sequence 0
  /// and whose next index generations wrap.
  void prepare() const {
    Writer table(options(kCapacity, Vesta::kSequenceMask - kRows));
    for (std::uint64_t id = 1; id <= kRows; ++id) put(table, id, 1);
    Segment& segment = segmentOf(table);
    segment.at(segment.layout().slotAt(kRows - 1)) |= Vesta::kStaged;
    const auto which = static_cast<std::uint32_t>(segment.load(Vesta::kIndexAt) & 1);
    segment.store(Vesta::kIndexAt, Vesta::sealed(0xfffffffc | which, Vesta::kIndexAt));
  }
};

void beginTrace() {
  ptrace(PTRACE_TRACEME, 0, 0, 0);
  raise(SIGSTOP);
}

/// How the child ended, or was stopped on the way into or out of a system call, that many after beginTrace.
int stoppedAfter(Child& child, int calls) {
  int end = child.wait();
  for (; calls > 0 && end < 0; --calls) {
    ptrace(PTRACE_SYSCALL, child.pid(), 0, 0);
    end = child.wait();
  }
  EXPECT_TRUE(end == 0 || end == -SIGTRAP || end == -SIGSTOP) << end;
  return end;
}

TEST_F(Death, Writer_StoppedAndKilledAtEachStepOfEachKindOfWrite) {
  for (const Kind& kind : kKinds) {
    unsigned passed = 0;
    for (int step = 0; step <= static_cast<int>(WriteStep::woken); ++step) {
      SCOPED_TRACE(std::string(kind.name) + " at step " + std::to_string(step));
      startOver();
      prepare();
      const auto follower = reader(kCapacity);
      Model known;
      notified(*follower, &known);
      ASSERT_TRUE(follower->maySleep());
      auto& done = sharedCount();
      Child child([&] {
        bool armed = kind.changes == 0;
        onStep_ = [&](WriteStep now) {
          if (armed && static_cast<int>(now) == step) raise(SIGSTOP);
        };
        Writer table(options(kCapacity));
        armed = true;
        for (; done < kind.changes; ++done) change(table, kind, done);
        return 0;
      });
      if (child.wait() == 0) continue;
      passed |= 1u << step;
      const Model survived = contents(*follower);  // beside a writer that has stopped
      EXPECT_TRUE(follower->connected());
      EXPECT_TRUE(survived == after(kind, done) || survived == after(kind, done + 1));
      const std::uint64_t target = kind.idOf(done);
      for (const auto& [id, stamp] : after(kind, done))
        EXPECT_TRUE(id == target || stampOf(*follower, id) == stamp);
      const std::uint64_t seen = stampOf(*follower, target);
      const bool changed = kind.changes != 0 && seen == after(kind, done + 1)[target];
      child.signal(SIGKILL);
      ASSERT_EQ(child.wait(), -SIGKILL);

      const auto next = writer(kCapacity);
      EXPECT_TRUE(!changed || stampOf(*next, target) == seen) << "what a lookup has returned stays";
      EXPECT_TRUE(readable(follower->wakeDescriptor())) << "the dead one may not have woken it";
      EXPECT_EQ(contents(*next), survived) << "what readers have seen stays";
      EXPECT_EQ(contents(*follower), survived);
      for (const auto& [id, stamp] : survived) ASSERT_EQ(stampOf(*follower, id), stamp);
      EXPECT_TRUE(next->validate() && next->members() == survived.size());
      notified(*follower, &known);
      EXPECT_EQ(known, survived);
      Model later = survived;
      put(*next, later, 5000, 3);
      put(*next, later, 2, 0);
      EXPECT_EQ(contents(*follower), later) << "the change of the dead one is completed";
    }
    EXPECT_EQ(passed, kind.steps) << kind.name;
  }
}

// Creation, removal and replacement of a segment, stopped and killed on the way into and out of each system
// call. At each of these moments every row is found by readers that attach, by readers that have not polled
// since a replacement before, and by the next writer.
TEST_F(Death, Writer_KilledAtEachSystemCallAroundTheFiles) {
  const auto create = [&] { beginTrace(), startOver(), writer(kCapacity); };
  const auto cleanUp = [&] { beginTrace(), writer(kCapacity)->cleanup(); };
  const auto replace = [&] {
    const auto table = writer(kCapacity);
    replaceSegment(*table, 5);
    beginTrace();
    replaceSegment(*table, 6);
  };
  const struct {
    const char* name;
    std::function<void()> run;
    bool keepsFifos, keepsRows;
  } works[] = {
      {"create", create, false, false}, {"clean up", cleanUp, true, false}, {"replace", replace, true, true}};
  for (const auto& work : works) {
    int end = -SIGKILL;
    for (int calls = 0; end != 0; ++calls) {
      SCOPED_TRACE(std::string(work.name) + ", system call " + std::to_string(calls));
      startOver();
      prepare();
      const std::unique_ptr<Reader> followers[] = {reader(kCapacity), reader(kCapacity)};
      Model known[2];
      for (int i : {0, 1}) notified(*followers[i], &known[i]);
      Child child([&] { return work.run(), 0; });
      end = stoppedAfter(child, calls);
      const auto expectEveryRow = [&](int follower) {
        if (!work.keepsRows) return;
        const Model attached = contents(*reader(kCapacity));
        EXPECT_EQ(attached.size(), kRows);
        EXPECT_THAT(attached.at(2), ::testing::AnyOf(5, 6)) << "not those of before the first replacement";
        notified(*followers[follower], &known[follower]);
        EXPECT_EQ(known[follower], attached);
      };
      expectEveryRow(0);  // beside a stopped writer
      child.signal(SIGKILL);
      ASSERT_TRUE(end == 0 || child.wait() == -SIGKILL);
      expectEveryRow(1);
      const auto next = writer(kCapacity);
      const Model found = contents(*next);
      EXPECT_EQ(contents(*reader(kCapacity)), found);
      EXPECT_THAT(found.size(), ::testing::AnyOf(kRows, work.keepsRows ? kRows : 0));
      if (!work.keepsFifos) continue;
      put(*next, 3, 9);
      for (int i : {0, 1}) {
        followers[i]->descriptorReadable();
        notified(*followers[i], &known[i]);
        EXPECT_EQ(known[i], contents(*next));
      }
    }
  }
}

// More readers than there are places, all killed at random moments: places come back, the writer never waits.
TEST_F(Death, Readers_KilledGiveTheirPlacesBack) {
  const auto table = writer(kCapacity);
  std::mt19937_64 random(5);
  std::set<std::uint64_t> identities;
  for (std::uint64_t round = 1; round <= Vesta::kMaxReaders + 10; ++round) {
    Child child([&] {
      const auto follower = reader(kCapacity);
      for (raise(SIGSTOP);; stampOf(*follower, 3)) {
        follower->poll(10);
        if (follower->maySleep()) follower->awake();
      }
      return 0;
    });
    child.pass();
    identities.insert(segmentOf(*table).load(Vesta::readerLineAt(0)) >> 32);
    for (std::uint64_t i = 0; i < 50 + random() % 1000; ++i) put(*table, i % 10, round);
    child.signal(SIGKILL);
    ASSERT_EQ(child.wait(), -SIGKILL);
    put(*table, 3, round);
    ASSERT_TRUE(table->quiesced(table->sequence()) && table->readers().empty()) << "the dead do not count";
  }
  EXPECT_GT(identities.size(), Vesta::kMaxReaders) << "processes may be alike in all but this half";
}

// The next reader with the number of one that leaves has the FIFO of that name to itself.
TEST_F(Death, Readers_LeavingTakeNoFifoOfOthersAlong) {
  const auto table = writer(kCapacity);
  int end = -SIGKILL;
  for (int calls = 0; end != 0; ++calls) {
    Child child([this] {
      const auto follower = reader(kCapacity);
      beginTrace();
      follower->detach();
      return 0;
    });
    end = stoppedAfter(child, calls);
    const auto follower = reader(kCapacity);
    ptrace(PTRACE_DETACH, child.pid(), 0, 0);
    ASSERT_TRUE(end == 0 || child.wait() == 0);
    ASSERT_TRUE(sleeps(*follower));
    put(*table, 1, 1);
    EXPECT_TRUE(woken(*follower)) << "after system call " << calls;
  }
}

TEST_F(Death, Readers_StoppedBlockNoWriter) {
  const auto table = writer(kCapacity);
  Child child([&] {
    const auto follower = reader(kCapacity);
    raise(SIGSTOP);
    notified(*follower);
    EXPECT_EQ(stampOf(*follower, 1), 10000u);
    raise(SIGSTOP);
    return 0;
  });
  ASSERT_EQ(child.wait(), -SIGSTOP);
  for (std::uint64_t stamp = 1; stamp <= 10000; ++stamp) put(*table, 1, stamp);
  ASSERT_EQ(table->readers().size(), 1u) << "stopped is not dead";
  EXPECT_FALSE(table->quiesced(table->sequence()));
  replaceSegment(*table);
  EXPECT_FALSE(table->movingReadersQuiesced(table->sequence()));
  std::this_thread::sleep_for(std::chrono::milliseconds(1050));
  EXPECT_TRUE(table->movingReadersQuiesced(table->sequence())) << "it has not moved for a second";
  replaceSegment(*table);
  EXPECT_FALSE(table->movingReadersQuiesced(table->sequence())) << "it has a new segment to switch to";
  child.signal(SIGCONT);
  ASSERT_EQ(child.wait(), -SIGSTOP);
  EXPECT_TRUE(table->quiesced(table->sequence()));
  child.signal(SIGCONT);
  EXPECT_EQ(child.wait(), 0);
}

}  // namespace
}  // namespace VestaTest
