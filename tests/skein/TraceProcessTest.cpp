// Traces of real processes: read while they write, after SIGKILL, and merged.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "RingFixture.h"

namespace {

constinit const Skein::Site kCount{"./count", 1, "count", "%s %s"};
constinit const Skein::Site kTurn{"./turn", 2, "turn", "%s"};

class TraceProcess : public RingFixture {
 protected:
  /// Starts a process that runs `body` and ends without running this one's exit handlers.
  template <class Body>
  static pid_t start(const Body& body) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(60);
      body();
      _exit(0);
    }
    return child;
  }
  static int statusOf(pid_t child) {
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
  }
};

struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends.data()), 0); }
  ~Pipe() {
    for (const int end : ends) close(end);
  }
  void say() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
  void hear() const {
    char said;
    EXPECT_EQ(read(ends[0], &said, 1), 1);
  }
  std::array<int, 2> ends{};
};

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
    const pid_t child = start([&] {
      Skein::ringIs(path(), 16 * kSmallRing);  // large, so that the writer gets far while it is read
      for (std::uint64_t i = 1;; ++i) {
        Skein::message(kCount, i, std::string(i % 61, static_cast<char>('a' + i % 26)));
        if (i == 1000) begun.say();
      }
    });
    begun.hear();
    std::uint64_t before = 0;
    for (int i = 0; i < 20; ++i) {
      const std::uint64_t last = checkCounting(Skein::readTrace(path()));
      EXPECT_TRUE(last == 0 || last >= before);  // 0: overtaken as a whole while it was read
      before = std::max(before, last);
    }
    kill(child, SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(statusOf(child)));
    const auto records = Skein::readTrace(path());
    EXPECT_GE(checkCounting(records), std::max<std::uint64_t>(before, 1000));
    EXPECT_EQ(records.back().process->pid, static_cast<std::uint32_t>(child));
    EXPECT_EQ(records.back().process->name, program_invocation_short_name);
  }
}

TEST_F(TraceProcess, Child_GoesOnInARingOfItsOwn) {
  Skein::ringIs(path("parent"), kSmallRing);
  Skein::message(kTurn, "parent before");
  const pid_t child = start([&] {
    Skein::message(kTurn, "child");
    Skein::ringIs(path("child"), kSmallRing);
    Skein::message(kTurn, "child after");
  });
  EXPECT_EQ(statusOf(child), 0);
  Skein::message(kTurn, "parent after");
  const auto texts = [](const std::vector<Skein::TraceRecord>& records) {
    std::vector<std::string> all;
    for (const auto& record : records) {
      if (record.site->source == "./turn") all.push_back(record.text());
    }
    return all;
  };
  EXPECT_EQ(texts(Skein::readTrace(path("child"))), (std::vector<std::string>{"child", "child after"}));
  const auto parent = texts(Skein::readTrace(path("parent")));
  ASSERT_GE(parent.size(), 2u);
  EXPECT_EQ(parent[parent.size() - 2], "parent before");
  EXPECT_EQ(parent.back(), "parent after");
}

TEST_F(TraceProcess, TwoProcesses_AreMergedInTheOrderOfTheirMessages) {
  const Pipe ping;
  const Pipe pong;
  constexpr int kTurns = 200;
  const pid_t child = start([&] {
    Skein::ringIs(path("b"), kSmallRing);
    for (int i = 0; i < kTurns; ++i) {
      ping.hear();
      Skein::message(kTurn, 2 * i + 1);
      pong.say();
    }
  });
  Skein::ringIs(path("a"), kSmallRing);
  Skein::message(kTurn, "first");
  for (int i = 0; i < kTurns; ++i) {
    Skein::message(kTurn, 2 * i);
    ping.say();
    pong.hear();
  }
  EXPECT_EQ(statusOf(child), 0);
  const std::array<std::string, 2> paths{path("b"), path("a")};
  const auto records = Skein::readTraces(paths);
  ASSERT_GT(records.size(), 2u * kTurns);
  for (std::size_t i = 0; i < 2 * kTurns; ++i) {
    ASSERT_EQ(records[records.size() - 2 * kTurns + i].text(), std::to_string(i));
  }
}

}  // namespace
