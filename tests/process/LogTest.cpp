#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>

#include "apps/process/Log.h"
#include "cairn/Exception.h"

namespace {

using Process::LogLevel;
using testing::MatchesRegex;

enum class StreamOf { nobody, journal, another };

/// What `write` writes to standard error, in a process of its own.
std::string written(StreamOf stream, const std::function<void()>& write) {
  int ends[2];
  if (::pipe(ends) != 0) return "no pipe";
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(ends[1], STDERR_FILENO);
    struct stat status {};
    ::fstat(STDERR_FILENO, &status);
    const std::string named = std::to_string(status.st_dev) + ":" +
                              std::to_string(status.st_ino + static_cast<ino_t>(stream == StreamOf::another));
    ::unsetenv("JOURNAL_STREAM");
    if (stream != StreamOf::nobody) ::setenv("JOURNAL_STREAM", named.c_str(), 1);
    write();
    ::_exit(0);
  }
  ::close(ends[1]);
  std::string text;
  char bytes[8192];
  for (ssize_t length = 0; (length = ::read(ends[0], bytes, sizeof bytes)) > 0;) {
    text.append(bytes, static_cast<std::size_t>(length));
  }
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  return text;
}

TEST(Log, Lines_HaveTimeLevelTextAndFields) {
  const auto two = [] {
    Process::log(LogLevel::error, "a\nb", {{"table", "l3IifTH3"}, {"why", "not \"so\"\033"}});
    Process::log(LogLevel::debug, "left out");
    Process::log(LogLevel::info, "c");
  };
  const struct {
    StreamOf stream;
    const char* first;
    const char* second;
  } rows[] = {{StreamOf::nobody, "", ""}, {StreamOf::journal, "<3>", "<6>"}, {StreamOf::another, "", ""}};
  for (const auto& row : rows) {
    const std::string time = "[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+\\.[0-9]+Z";
    EXPECT_THAT(written(row.stream, two),
                MatchesRegex(row.first + time +
                             " error process_tests: a\\?b table=\"l3IifTH3\" why=\"not 'so'\\?\"\n" +
                             row.second + time + " info process_tests: c\n"));
  }
}

TEST(Log, Lines_OfALowerLevelAreLeftOutAndLongOnesCut) {
  const std::string text = written(StreamOf::nobody, [] {
    Process::logLevelIs(Process::logLevelOf("warning"));
    Process::log(LogLevel::info, "left out");
    Process::log(LogLevel::warning, std::string(10'000, 'x'), {{"name", "value"}});
  });
  EXPECT_EQ(text.size(), 4096u);
  EXPECT_EQ(text.find('\n'), 4095u);
  EXPECT_EQ(text.find("left out"), std::string::npos);
  EXPECT_THROW((void)Process::logLevelOf("loud"), Cairn::Exception);
}

}  // namespace
