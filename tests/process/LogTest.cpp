#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "apps/process/Log.h"
#include "cairn/Exception.h"

namespace {

using Process::LogLevel;
using testing::AllOf;
using testing::EndsWith;
using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

enum class StreamOf { nobody, journal, another };

/// Says in the environment whose stream standard error is.
void connect(StreamOf stream) {
  struct stat status {};
  ::fstat(STDERR_FILENO, &status);
  const ino_t inode = status.st_ino + static_cast<ino_t>(stream == StreamOf::another);
  const std::string named = std::to_string(status.st_dev) + ":" + std::to_string(inode);
  ::unsetenv("JOURNAL_STREAM");
  if (stream != StreamOf::nobody) ::setenv("JOURNAL_STREAM", named.c_str(), 1);
}

// Each in a process of its own: level and stream are found out once.

TEST(Log, Lines_HaveTimeLevelTextAndFields) {
  const auto two = [](StreamOf stream) {
    connect(stream);
    Process::log(LogLevel::error, "a\nb", {{"table", "l3IifTH3"}, {"why", "not \"so\"\033"}});
    Process::log(LogLevel::debug, "left out");
    Process::log(LogLevel::info, "c");
    ::_exit(0);
  };
  const struct {
    StreamOf stream;
    std::string first;
    std::string second;
  } rows[] = {{StreamOf::nobody, "", ""}, {StreamOf::journal, "<3>", "<6>"}, {StreamOf::another, "", ""}};
  for (const auto& row : rows) {
    const std::string time = "[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z";
    EXPECT_EXIT(two(row.stream), ExitedWithCode(0),
                testing::MatchesRegex(row.first + time +
                                      " error process_tests: a\\?b table=\"l3IifTH3\" why=\"not 'so'\\?\"\n" +
                                      row.second + time + " info process_tests: c\n"));
  }
}

TEST(Log, Lines_OfALowerLevelAreLeftOutAndLongOnesCut) {
  const auto two = [] {
    Process::logLevelIs(Process::logLevelOf("warning"));
    Process::log(LogLevel::info, "left out");
    Process::log(LogLevel::warning, std::string(10'000, 'x'), {{"name", "value"}});
    ::_exit(0);
  };
  EXPECT_EXIT(two(), ExitedWithCode(0), AllOf(SizeIs(4096), EndsWith("xx\n"), Not(HasSubstr("left out"))));
  EXPECT_THROW((void)Process::logLevelOf("loud"), Cairn::Exception);
}

}  // namespace
