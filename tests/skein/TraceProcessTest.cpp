// Traces of real processes: read while they write, after SIGKILL, and merged.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>

#include "RingFixture.h"
#include "tests/vesta/Support.h"

namespace {

using TraceProcess = RingFixture;
using VestaTest::Child;

/// Turns between processes: each side says a byte or waits for one.
class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe2(ends_, O_CLOEXEC), 0); }
  ~Pipe() {
    close(ends_[0]);
    close(ends_[1]);
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  void say() const { (void)!write(ends_[1], "s", 1); }
  void await() const {
    pollfd waiting{ends_[0], POLLIN, 0};
    char byte = 0;
    ASSERT_EQ(poll(&waiting, 1, 30000), 1) << "the other side said nothing";
    (void)!read(ends_[0], &byte, 1);
  }

 private:
  int ends_[2];
};

constinit const Skein::Site kCount{"./count", 1, "count", "%s %s"};
constinit const Skein::Site kTurn{"./turn", 2, "turn", "%s"};

/// Fails unless the counting messages follow each other without a gap and whole. Returns the last number.
std::uint64_t checkCounting(const std::vector<Skein::TraceRecord>& records) {
  std::uint64_t last = 0;
  for (const auto& record : records) {
    if (record.site->format != "%s %s") continue;
    const std::uint64_t number = std::stoull(record.values.at(0));
    EXPECT_TRUE(last == 0 || number == last + 1) << number << " after " << last;
    EXPECT_EQ(record.values.at(1), std::string(number % 61, static_cast<char>('a' + number % 26)));
    last = number;
  }
  return last;
}

TEST_F(TraceProcess, Writer_IsReadAtFullSpeedAndAfterSigkill) {
  for (int round = 0; round < 15; ++round) {
    const Pipe begun;
    Child child([&] {
      Skein::ringIs(path(), 16 * kSmallRing);  // large, so that the writer gets far while it is read
      for (std::uint64_t i = 1;; ++i) {
        Skein::message(kCount, i, std::string(i % 61, static_cast<char>('a' + i % 26)));
        if (i == 1000) begun.say();
      }
      return 0;
    });
    begun.await();
    for (int i = 0; i < 20; ++i) checkCounting(Skein::readTrace(path()));
    const auto pid = static_cast<std::uint32_t>(child.pid());
    child.signal(SIGKILL);
    EXPECT_EQ(child.wait(), -SIGKILL);
    const auto records = Skein::readTrace(path());
    EXPECT_GE(std::min<std::uint64_t>(checkCounting(records), records.size()), 1000u);
    EXPECT_EQ(records.back().process->pid, pid);
    EXPECT_EQ(records.back().process->name, program_invocation_short_name);
  }
}

TEST_F(TraceProcess, Child_GoesOnInARingOfItsOwn) {
  const auto lastTwo = [](const std::string& path) {
    const auto records = Skein::readTrace(path);
    return records.at(records.size() - 2).text() + "|" + records.back().text();
  };
  Skein::ringIs(path("parent"), kSmallRing);
  Skein::message(kTurn, "parent before");
  Child child([&] {
    Skein::message(kTurn, "child");
    Skein::ringIs(path("child"), kSmallRing);  // takes over what was traced before
    Skein::message(kTurn, "child after");
    EXPECT_EQ(Skein::readTrace(path("child")).size(), 2u);
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
  Skein::message(kTurn, "parent after");
  EXPECT_EQ(lastTwo(path("child")), "child|child after");
  EXPECT_EQ(lastTwo(path("parent")), "parent before|parent after");
}

TEST_F(TraceProcess, TwoProcesses_AreMergedInTheOrderOfTheirMessages) {
  const Pipe ping;
  const Pipe pong;
  constexpr int kTurns = 200;
  const auto play = [](const std::string& ring, int first, const Pipe& mine, const Pipe& theirs) {
    Skein::ringIs(ring, kSmallRing);
    for (int i = first; i < kTurns; i += 2) {
      mine.await();
      Skein::message(kTurn, i);
      theirs.say();
    }
    return 0;
  };
  Child child([&] { return play(path("b"), 1, ping, pong); });
  pong.say();
  play(path("a"), 0, pong, ping);
  EXPECT_EQ(child.wait(), 0);
  const auto records = Skein::readTraces(std::array{path("b"), path("a")});
  ASSERT_GE(records.size(), std::size_t{kTurns});
  for (std::size_t i = 0; i < kTurns; ++i) {
    ASSERT_EQ(records[records.size() - kTurns + i].text(), std::to_string(i));
  }
}

}  // namespace
