#include <gtest/gtest.h>

#include "cairn/Assert.h"

namespace {

TEST(Assertion, ThatStops_TellsItsHandlerAndStopsAllTheSame) {
  EXPECT_DEATH(Cairn::requireOrStop(false, "adb", "attach"), "assertion failed: adb in attach");
  const auto returning = [](const char*, const char*) { std::fputs("reported and returned\n", stderr); };
  EXPECT_DEATH(
      {
        Cairn::fatalHandlerIs(returning);
        Cairn::requireOrStop(false, "adb", "attach");
      },
      "reported and returned");
  const auto throwing = [](const char* text, const char*) { throw Cairn::Exception(text); };
  const auto before = Cairn::fatalHandlerIs(throwing);
  EXPECT_THROW(Cairn::requireOrStop(false, "adb", "attach"), Cairn::Exception);
  Cairn::fatalHandlerIs(nullptr);
  EXPECT_EQ(Cairn::fatalHandlerIs(before), before);
}

}  // namespace
