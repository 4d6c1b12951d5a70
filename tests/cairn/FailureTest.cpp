// Assertions and exceptions: who is told what.
#include <gtest/gtest.h>

#include <cerrno>

#include "cairn/Assert.h"
#include "cairn/DebugHandler.h"
#include "cairn/Exception.h"

namespace {

TEST(Assertion, ThatThrowsKeepsTextAndOperationApart) {
  EXPECT_NO_THROW(Cairn::require(true, "text", "operation"));
  try {
    Cairn::require(false, "index 0 expected", "rowIs");
    FAIL();
  } catch (const Cairn::AssertionException& exception) {
    EXPECT_STREQ(exception.what(), "index 0 expected");
    EXPECT_EQ(exception.operation(), "rowIs");
  }
}

TEST(Assertion, ThatStopsTellsItsHandlerAndStopsAllTheSame) {
  EXPECT_DEATH(Cairn::requireOrStop(false, "adb", "attach"), "assertion failed: adb in attach");
  const auto handler = [](const char*, const char*) { std::fputs("told and returned\n", stderr); };
  EXPECT_DEATH(
      {
        Cairn::fatalHandlerIs(handler);
        Cairn::requireOrStop(false, "adb", "attach");
      },
      "told and returned");
  struct Stopped {};
  const auto throwing = [](const char*, const char*) { throw Stopped(); };
  const auto before = Cairn::fatalHandlerIs(throwing);
  EXPECT_THROW(Cairn::requireOrStop(false, "adb", "attach"), Stopped);
  Cairn::fatalHandlerIs(nullptr);
  EXPECT_EQ(Cairn::fatalHandlerIs(before), before);
}

TEST(Exceptions, SayWhatFailed) {
  EXPECT_STREQ(Cairn::SystemException("open table", ENOENT).what(), "open table: No such file or directory");
  EXPECT_STREQ(Cairn::MemoryResourceException("malloc()", 64).what(), "malloc() failed requested length: 64");
  EXPECT_STREQ(Cairn::MemoryResourceException("calloc()", 0).what(), "calloc() failed requested length: 0");
}

TEST(Debugging, GoesToTheSinkWithItsPlace) {
  Cairn::DebugHandler handler(Cairn::DebugHandler::kDebugFlag);
  EXPECT_FALSE(handler.wants(Cairn::DebugHandler::kErrorFlag));
  EXPECT_TRUE(handler.wants(Cairn::DebugHandler::kDebugFlag));
  std::string said;
  handler.sinkIs([&said](const Cairn::DebugHandler::Message& message) {
    said = std::string(message.source) + ":" + std::to_string(message.line) + " " +
           std::string(message.function) + " " + std::string(message.text) + " " +
           std::to_string(message.level);
  });
  handler.log(5, "VestaMap", 31, "ready", "attached");
  EXPECT_EQ(said, "VestaMap:31 ready attached 5");
}

}  // namespace
