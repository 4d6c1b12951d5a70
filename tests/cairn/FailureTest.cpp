// Assertions and exceptions: who is told what.
#include <gtest/gtest.h>

#include <cerrno>
#include <sstream>

#include "cairn/Assert.h"
#include "cairn/DebugHandler.h"

namespace {

TEST(Assertion, ThatStops_TellsItsHandlerAndStopsAllTheSame) {
  EXPECT_DEATH(Cairn::requireOrStop(false, "adb", "attach"), "assertion failed: adb in attach");
  const auto returning = [](const char*, const char*) { std::fputs("told and returned\n", stderr); };
  EXPECT_DEATH(
      {
        Cairn::fatalHandlerIs(returning);
        Cairn::requireOrStop(false, "adb", "attach");
      },
      "told and returned");
  const auto throwing = [](const char* text, const char*) { throw Cairn::Exception(text); };
  const auto before = Cairn::fatalHandlerIs(throwing);
  EXPECT_THROW(Cairn::requireOrStop(false, "adb", "attach"), Cairn::Exception);
  Cairn::fatalHandlerIs(nullptr);
  EXPECT_EQ(Cairn::fatalHandlerIs(before), before);
}

TEST(Exceptions, SayWhatFailed) {
  EXPECT_STREQ(Cairn::SystemException("open table", ENOENT).what(), "open table: No such file or directory");
  EXPECT_EQ(Cairn::AssertionException("index 0 expected", "rowIs").message(), "index 0 expected");
}

TEST(Debugging, GoesToTheSinkWithItsPlace) {
  Cairn::DebugHandler handler(Cairn::DebugHandler::kDebugFlag);
  EXPECT_FALSE(handler.wants(Cairn::DebugHandler::kErrorFlag));
  EXPECT_TRUE(handler.wants(Cairn::DebugHandler::kDebugFlag));
  std::ostringstream said;
  handler.sinkIs([&said](const Cairn::DebugHandler::Message& message) {
    said << message.level << message.source << message.line << message.function << message.text;
  });
  handler.log(5, "VestaMap", 31, "ready", "attached");
  EXPECT_EQ(said.str(), "5VestaMap31readyattached");
}

}  // namespace
