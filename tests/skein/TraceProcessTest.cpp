// Traces of real processes: read while they write, after SIGKILL, and merged.
#include <signal.h>

#include <array>

#include "RingFixture.h"
#include "tests/vesta/Support.h"

namespace {

using TraceProcess = RingFixture;
using VestaTest::Child;

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
    Child child([&] {
      Skein::ringIs(path(), 16 * kSmallRing);  // large, so that the writer gets far while it is read
      for (std::uint64_t i = 1;; ++i) {
        Skein::message(kCount, i, std::string(i % 61, static_cast<char>('a' + i % 26)));
        if (i == 1000) raise(SIGSTOP);
      }
      return 0;
    });
    child.pass();
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

TEST_F(TraceProcess, Child_GoesOnInARingOfItsOwnAndBothAreMerged) {
  constexpr int kTurns = 200;
  Skein::ringIs(path("a"), kSmallRing);
  Skein::message(kTurn, "parent");
  Child child([&] {
    Skein::message(kTurn, "child");
    Skein::ringIs(path("b"), kSmallRing);  // takes over what was traced before
    EXPECT_EQ(lastTexts(9, "b"), Texts{"child"});
    for (int i = 1; i < kTurns; i += 2) {
      raise(SIGSTOP);
      Skein::message(kTurn, i);
    }
    return 0;
  });
  Texts expected = {"parent", "child"};
  for (int i = 0; i < kTurns; i += 2) {
    EXPECT_EQ(child.wait(), -SIGSTOP);
    Skein::message(kTurn, i);
    child.signal(SIGCONT);
    expected.insert(expected.end(), {std::to_string(i), std::to_string(i + 1)});
  }
  EXPECT_EQ(child.wait(), 0);
  const auto records = Skein::readTraces(std::array{path("b"), path("a")});
  ASSERT_GE(records.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(records[records.size() - expected.size() + i].text(), expected[i]);
  }
}

}  // namespace
