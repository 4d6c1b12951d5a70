#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <set>
#include <thread>

#include "Support.h"

namespace VestaTest {
namespace {

using Vesta::WriteStep;
using Model = std::map<std::uint64_t, std::uint64_t>;

/// What a process that is about to die tells its parent: memory that both see.
struct Progress {
  std::atomic<std::uint64_t> done{0};
};

class SharedProgress {
 public:
  SharedProgress() {
    void* memory = mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    progress_ = new (memory) Progress;
  }
  ~SharedProgress() { munmap(progress_, sizeof(Progress)); }
  Progress* operator->() const { return progress_; }

 private:
  Progress* progress_;
};

struct Kind {
  const char* name;
  // What the n-th write of this kind does, to a table or to the model of one.
  std::function<void(std::uint64_t n, const std::function<void(std::uint64_t, std::uint64_t)>& put,
                     const std::function<void(std::uint64_t)>& remove)>
      change;
  std::set<WriteStep> steps;  // those it passes through
};

constexpr std::uint32_t kCapacity = 16;
constexpr std::uint64_t kRows = 8;  // ids 1 to 8, stamp 1, before the first change

const std::set<WriteStep> kEveryWrite = {
    WriteStep::begun,     WriteStep::recordHalf,      WriteStep::recorded,
    WriteStep::copyHalf,  WriteStep::copied,          WriteStep::versionMoved,
    WriteStep::published, WriteStep::sleepersCleared, WriteStep::woken};

std::set<WriteStep> with(std::set<WriteStep> steps, const std::set<WriteStep>& more) {
  steps.insert(more.begin(), more.end());
  return steps;
}

// Writing over and over to a nearly full table, each time another key, leaves marks until a rebuild is due.
const std::vector<Kind> kKinds = {
    {"insert", [](auto n, const auto& put, const auto&) { put(100 + n, 7); },
     with(kEveryWrite, {WriteStep::cellMoved, WriteStep::membersMoved})},
    {"replace", [](auto n, const auto& put, const auto&) { put(1 + n % kRows, 7 + n); }, kEveryWrite},
    {"remove", [](auto n, const auto&, const auto& remove) { remove(1 + n); },
     with(kEveryWrite, {WriteStep::cellMoved, WriteStep::membersMoved})},
    {"churn",
     [](auto n, const auto& put, const auto& remove) {
       if (n % 2 == 0) {
         put(1000 + n, 7);
       } else {
         remove(1000 + n - 1);
       }
     },
     with(kEveryWrite, {WriteStep::cellMoved, WriteStep::membersMoved, WriteStep::rebuildCleared,
                        WriteStep::rebuildHalf, WriteStep::rebuildFilled, WriteStep::rebuildSwitched})},
};

Model after(const Kind& kind, std::uint64_t changes) {
  Model model;
  for (std::uint64_t id = 1; id <= kRows; ++id) model[id] = 1;
  for (std::uint64_t n = 0; n < changes; ++n) {
    kind.change(
        n, [&](std::uint64_t id, std::uint64_t stamp) { model[id] = stamp; },
        [&](std::uint64_t id) { model.erase(id); });
  }
  return model;
}

bool readable(int descriptor) {
  pollfd waiting{descriptor, POLLIN, 0};
  return poll(&waiting, 1, 0) == 1;
}

class Death : public TableTest {
 protected:
  void prepare() {
    const auto table = writer(kCapacity);
    for (std::uint64_t id = 1; id <= kRows; ++id) put(*table, id, 1);
  }
  /// Changes the table in a child until it dies at `step`. False when it never passed it.
  bool dieAt(const Kind& kind, WriteStep step, SharedProgress& progress);
  /// What must hold however far the dead writer came: its finished changes and maybe the one under way.
  Model expectSurvivor(Reader& follower, const Kind& kind, std::uint64_t done);
};

bool Death::dieAt(const Kind& kind, WriteStep step, SharedProgress& progress) {
  Child child([&] {
    bool armed = false;
    Vesta::AttachOptions with = options(kCapacity);
    with.stepHook = [&](WriteStep now) {
      if (armed && now == step) raise(SIGKILL);
    };
    Writer table(with);
    armed = true;
    for (std::uint64_t n = 0; n < kRows; ++n) {
      kind.change(
          n, [&](std::uint64_t id, std::uint64_t stamp) { put(table, id, stamp); },
          [&](std::uint64_t id) { table.remove(TestKey{id}, nullptr); });
      ++progress->done;
    }
    for (std::uint64_t n = kRows; n < 400 && std::string(kind.name) == "churn"; ++n) {
      kind.change(
          n, [&](std::uint64_t id, std::uint64_t stamp) { put(table, id, stamp); },
          [&](std::uint64_t id) { table.remove(TestKey{id}, nullptr); });
      ++progress->done;
    }
    return 0;
  });
  const int end = child.wait();
  EXPECT_TRUE(end == 0 || end == -SIGKILL) << end;
  return end == -SIGKILL;
}

Model Death::expectSurvivor(Reader& follower, const Kind& kind, std::uint64_t done) {
  const Model without = after(kind, done);
  const Model withLast = after(kind, done + 1);
  const Model found = contents(follower);
  EXPECT_TRUE(found == without || found == withLast);
  for (const auto& [id, stamp] : without) {
    if (withLast.contains(id) && withLast.at(id) == stamp) {
      EXPECT_EQ(stampOf(follower, id), stamp) << id;
    }
  }
  return found;
}

TEST_F(Death, Writer_KilledAtEachStepOfEachKindOfWrite) {
  for (const Kind& kind : kKinds) {
    std::set<WriteStep> passed;
    for (int at = 0; at <= static_cast<int>(WriteStep::woken); ++at) {
      SCOPED_TRACE(std::string(kind.name) + " at step " + std::to_string(at));
      std::filesystem::remove_all(folder_ + "/some");
      prepare();
      const auto follower = reader(kCapacity);
      told(*follower);
      ASSERT_TRUE(follower->maySleep());
      SharedProgress progress;
      if (!dieAt(kind, static_cast<WriteStep>(at), progress)) continue;
      passed.insert(static_cast<WriteStep>(at));
      const Model survived = expectSurvivor(*follower, kind, progress->done);

      const auto next = writer(kCapacity);
      EXPECT_TRUE(readable(follower->wakeDescriptor()))
          << "a new writer wakes whom the dead one may not have";
      const Model repaired = contents(*next);
      EXPECT_EQ(repaired, survived) << "what readers have seen stays";
      EXPECT_EQ(contents(*follower), repaired);
      EXPECT_EQ(next->members(), repaired.size());
      for (const auto& [id, stamp] : repaired) ASSERT_EQ(stampOf(*follower, id), stamp);
      EXPECT_TRUE(next->validate());

      // Told of the last state of everything that changed; and the table goes on.
      std::map<std::uint64_t, std::uint64_t> known = after(kind, 0);
      for (const std::uint64_t id : told(*follower)) {
        const std::uint64_t stamp = stampOf(*follower, id);
        if (stamp == 0) {
          known.erase(id);
        } else {
          known[id] = stamp;
        }
      }
      EXPECT_EQ(known, repaired);
      put(*next, 5000, 3);
      next->remove(TestKey{2}, nullptr);
      EXPECT_EQ(stampOf(*follower, 5000), 3u);
      EXPECT_EQ(stampOf(*follower, 2), 0u);
    }
    EXPECT_EQ(passed, kind.steps) << kind.name;
  }
}

TEST_F(Death, Writer_KilledWhileTakingOver) {
  for (const WriteStep step : {WriteStep::rebuildCleared, WriteStep::rebuildHalf, WriteStep::rebuildFilled,
                               WriteStep::rebuildSwitched, WriteStep::membersMoved}) {
    std::filesystem::remove_all(folder_ + "/some");
    prepare();
    const auto follower = reader(kCapacity);
    Child child([&] {
      Vesta::AttachOptions with = options(kCapacity);
      with.stepHook = [&](WriteStep now) {
        if (now == step) raise(SIGKILL);
      };
      Writer table(with);
      return 0;
    });
    ASSERT_EQ(child.wait(), -SIGKILL);
    EXPECT_EQ(contents(*follower).size(), kRows);
    for (std::uint64_t id = 1; id <= kRows; ++id) EXPECT_EQ(stampOf(*follower, id), 1u);
    EXPECT_EQ(contents(*writer(kCapacity)).size(), kRows);
  }
}

// At any instruction: the parent kills a writer at full speed at a random moment.
TEST_F(Death, Writer_KilledAtRandomMoments) {
  std::mt19937_64 random(3);
  const auto follower = reader(kCapacity);
  std::uint64_t stamp = 0;
  for (std::uint64_t round = 0; round < scaled(200); ++round) {
    SharedProgress progress;
    progress->done = stamp;
    Child child([&] {
      Writer table(options(kCapacity));
      for (std::uint64_t n = stamp + 1;; ++n) {
        if (n % 24 < 16) {
          put(table, n % 12, n);
        } else {
          table.remove(TestKey{n % 12}, nullptr);
        }
        progress->done = n;
      }
      return 0;
    });
    while (progress->done == stamp) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 500));
    child.signal(SIGKILL);
    ASSERT_EQ(child.wait(), -SIGKILL);
    const std::uint64_t done = progress->done;
    Model model;
    for (std::uint64_t n = done > 48 ? done - 48 : 1; n <= done; ++n) {
      if (n % 24 < 16) {
        model[n % 12] = n;
      } else {
        model[n % 12] = 0;
      }
    }
    const auto next = writer(kCapacity);
    for (const auto& [id, expected] : model) {
      const std::uint64_t found = stampOf(*follower, id);
      if (id == (done + 1) % 12 && found != expected) {
        EXPECT_EQ(found, (done + 1) % 24 < 16 ? done + 1 : 0) << "the one change under way";
      } else {
        ASSERT_EQ(found, expected) << id;
      }
    }
    told(*follower);
    ASSERT_TRUE(next->quiesced(next->sequence()));
    stamp = (done / 24 + 1) * 24;
    for (std::uint64_t n = stamp - 23; n <= stamp; ++n) {  // a known state for the next round
      if (n % 24 < 16) {
        put(*next, n % 12, n);
      } else {
        next->remove(TestKey{n % 12}, nullptr);
      }
    }
  }
}

// Many times more readers than there are places, all killed: places come back, the writer never waits.
TEST_F(Death, Readers_KilledAtRandomMomentsGiveTheirPlacesBack) {
  const auto table = writer(kCapacity);
  std::mt19937_64 random(5);
  std::uint64_t stamp = 1;
  for (std::uint64_t round = 0; round < 130; ++round) {
    Pipe ready;
    Child child([&] {
      const auto follower = reader(kCapacity);
      ready.say();
      for (;;) {
        follower->poll(10);
        stampOf(*follower, 3);
        if (follower->maySleep()) follower->awake();
      }
      return 0;
    });
    ready.await();
    for (std::uint64_t i = 0; i < 50 + random() % 1000; ++i) put(*table, i % 10, ++stamp);
    child.signal(SIGKILL);
    ASSERT_EQ(child.wait(), -SIGKILL);
    put(*table, 3, ++stamp);
    ASSERT_TRUE(table->quiesced(table->sequence())) << "the dead do not count";
    ASSERT_TRUE(table->readers().empty());
  }
}

TEST_F(Death, Readers_StoppedHoldNobodyUp) {
  const auto table = writer(kCapacity);
  Pipe ready;
  Pipe done;
  Child child([&] {
    const auto follower = reader(kCapacity);
    ready.say();
    while (follower->segment().sequence() < 10002) follower->poll(100);
    while (follower->poll(100) != 0) {
    }
    EXPECT_EQ(stampOf(*follower, 1), 10001u);
    done.say();
    pause();
    return 0;
  });
  ready.await();
  child.signal(SIGSTOP);
  for (std::uint64_t stamp = 2; stamp <= 10001; ++stamp) put(*table, 1, stamp);
  put(*table, 2, 1);
  ASSERT_EQ(table->readers().size(), 1u) << "stopped is not dead";
  EXPECT_FALSE(table->quiesced(table->sequence()));
  EXPECT_FALSE(table->movingReadersQuiesced(table->sequence()));
  std::this_thread::sleep_for(std::chrono::milliseconds(1050));
  EXPECT_TRUE(table->movingReadersQuiesced(table->sequence())) << "it has not moved for a second";
  child.signal(SIGCONT);
  done.await();
  EXPECT_TRUE(table->quiesced(table->sequence()));
}

}  // namespace
}  // namespace VestaTest
