// How often agent and hardware agent allocate for what they have done before.
#include <gtest/gtest.h>

#include "BothPrograms.h"
#include "tests/core/Updates.h"

namespace {

using namespace Agent;
using namespace std::chrono_literals;

class Allocations : public testing::Test, public BothPrograms {
 protected:
  static constexpr std::size_t kRows = 200;  // in one step of the loop

  void SetUp() override {
    for (std::size_t id = 1; id <= kRows; ++id) {
      rows_.push_back(updateFrom(agent_.core(), "+" + std::to_string(id)).row);
    }
  }
  /// Allocations from the writing of the first `count` rows to the completions of the hardware's answers.
  std::size_t ofWriting(std::size_t count) {
    ConfigTable& table = *agent_.core().table("l3IifTH3");
    const std::uint64_t expected = completions() + count;
    const std::size_t before = allocationCount();
    for (std::size_t i = 0; i < count; ++i) table.write(rows_[i], ++genId_, i + 1);
    while (completions() < expected) loop_.step(1000ms);
    return allocationCount() - before;
  }

 private:
  /// No update waits for them.
  std::uint64_t completions() { return agent_.core().counters().unknownCompletions.value(); }

  std::vector<Lumen::BaseRow> rows_;
  std::uint64_t genId_ = 1;
};

// Wrapper, entity, segment, change records, VRF tracker, hardware agent, trackers, batch status.
TEST_F(Allocations, None_FromRewritingARowToItsCompletion) {
  for (int i = 0; i < 10; ++i) ofWriting(kRows);
  const std::size_t ofOne = ofWriting(1);
  EXPECT_EQ(ofWriting(kRows), ofOne) << "one for taking the completions, none for each";
  const std::size_t before = allocationCount();
  for (int i = 0; i < 10; ++i) loop_.step(0ms);
  EXPECT_EQ(allocationCount(), before) << "steps with nothing to do";
}

TEST_F(Allocations, None_ForATimerAfterAnother) {
  const auto ofTimer = [this](bool expires) {
    bool called = false;
    const std::size_t before = allocationCount();
    const auto timer = loop_.timerIs(expires ? 0h : 1h, [&called] { called = true; });
    const std::size_t allocated = allocationCount() - before;
    if (!expires) loop_.timerDel(timer);
    while (expires && !called) loop_.step(1000ms);
    return allocated;
  };
  ofTimer(true);
  for (const bool expires : {true, false, true}) EXPECT_EQ(ofTimer(expires), 0u);
}

}  // namespace
