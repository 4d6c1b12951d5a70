#include "quill/TraceHandle.h"

#include <gtest/gtest.h>

#include "cairn/Assert.h"

namespace {

using Quill::TraceHandle;

class TraceLevels : public ::testing::Test {
 protected:
  void TearDown() override {
    for (const char* const name : {"*", "first", "second"}) {
      for (int level = 0; level < 32; ++level) TraceHandle::levelIs(name, level, false);
    }
    TraceHandle::sinkIs({});
  }
  /// The enabled levels of `handle`, each as one character.
  static std::string levels(const TraceHandle& handle) {
    std::string all;
    for (int level = 0; level < 32; ++level) all += handle.enabled(level) ? '1' : '.';
    return all.substr(0, 10);
  }
};

TEST_F(TraceLevels, AreSetByNameAlsoBeforeTheHandleExists) {
  const TraceHandle first("first");
  EXPECT_EQ(levels(first), "..........");
  TraceHandle::levelIs("first", 9, true);
  TraceHandle::levelIs("second", 0, true);
  TraceHandle::levelIs("*", 4, true);
  const TraceHandle second("second");
  EXPECT_EQ(levels(first), "....1....1");
  EXPECT_EQ(levels(second), "1...1.....");
  TraceHandle::levelIs("*", 4, false);
  TraceHandle::levelIs("second", 0, false);
  EXPECT_EQ(levels(first), ".........1");
  EXPECT_EQ(levels(second), "..........");
  EXPECT_THROW(TraceHandle::levelIs("first", 32, true), Cairn::AssertionException);
  EXPECT_THROW(TraceHandle::levelIs("first", -1, true), Cairn::AssertionException);
}

TEST_F(TraceLevels, OfAHandleThatIsGoneMayBeSet) {
  { const TraceHandle first("first"); }
  TraceHandle::levelIs("first", 1, true);
  const TraceHandle again("first");
  EXPECT_TRUE(again.enabled(1));
}

TEST_F(TraceLevels, LinesGoToTheSinkWhole) {
  std::string lines;
  TraceHandle::sinkIs([&lines](const TraceHandle::Line& line) {
    for (const std::string_view text : {line.handle, line.source, line.function, line.text}) {
      lines.append(text).append("|");
    }
    lines += std::to_string(line.level) + "|" + std::to_string(line.line);
  });
  TraceHandle("first").trace(7, "./P4RuntimePlugin/VrfSm", 24, "handleEntry", "add vrf");
  EXPECT_EQ(lines, "first|./P4RuntimePlugin/VrfSm|handleEntry|add vrf|7|24");
}

}  // namespace
