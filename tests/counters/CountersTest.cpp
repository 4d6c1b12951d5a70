#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "apps/counters/CounterFile.h"
#include "apps/counters/CounterView.h"
#include "cairn/Hash.h"
#include "tests/RuntimeFolder.h"

namespace {

using namespace Counters;
using testing::HasSubstr;

class CountersTest : public testing::Test {
 protected:
  using File = CounterFile<AgentCounters>;
  using View = CounterView<AgentCounts>;

  CountersTest() { Vesta::installSegmentGuard(); }
  /// What reading the file throws.
  template <class Read>
  static std::string problem(const Read& read) {
    try {
      read();
    } catch (const Cairn::Exception& exception) {
      return exception.message();
    }
    return "none";
  }

  RuntimeFolder folder_{"/dev/shm"};
  std::string path_ = folder_.path() + "/p4rt-agent.counters";
};

TEST_F(CountersTest, View_FollowsTheProgramThroughItsEndAndItsNextStart) {
  EXPECT_THAT(problem([&] { View{path_}; }), HasSubstr("No such file"));
  auto file = std::make_unique<File>(path_, "--listen [::1]:9559");
  file->publish();
  View view(path_);
  const auto& table = view.words().tables[3];
  const auto read = [&] {
    view.read();
    return std::string(view.program().living ? "living " : "dead ") + std::to_string(table.completions[7]) +
           " " + std::to_string(table.highWater);
  };
  EXPECT_EQ(view.program().process, getpid());
  EXPECT_EQ(view.program().options, "--listen [::1]:9559");
  EXPECT_EQ(std::filesystem::file_size(path_), 94'208u);
  file->words().tables[3].completions[7].add(5);
  for (const std::uint64_t used : {4u, 3u}) file->words().tables[3].highWater.raise(used);
  EXPECT_EQ(read(), "living 5 4");
  file.reset();
  EXPECT_EQ(read(), "dead 5 4");
  file = std::make_unique<File>(path_, "");
  EXPECT_EQ(read(), "dead 5 4") << "not before the next program publishes its own";
  file->publish();
  EXPECT_EQ(read(), "living 0 0");
}

TEST_F(CountersTest, View_RefusesADamagedFile) {
  File(path_, "").publish();
  const struct {
    std::size_t offset;
    std::uint32_t value;
    bool checked;  // the header's checksum is renewed
    const char* text;
  } rows[] = {
      {0, 1, true, "it does not begin with \"TOLCOUNT\""},
      {8, 2, true, "layout version: expected 1, found 2"},
      {8, 0, false, "layout version: expected 1, found 0"},
      {12, 2, true, "program: expected 1, found 2"},
      {20, 5, true, "tables: expected 4, found 5"},
      {24, 1, true, "bytes in the header: expected 94208, found 1"},
      {32, 1, false, "checksum of the header: expected "},
      {4000, 1, false, "checksum of the header: expected "},
  };
  std::string intact(4096, '\0');
  std::ifstream(path_, std::ios::binary).read(intact.data(), 4096);
  const auto write = [&](const std::string& bytes) {
    std::fstream(path_, std::ios::in | std::ios::out).write(bytes.data(), 4096);
  };
  for (const auto& row : rows) {
    std::string bytes = intact;
    std::memcpy(&bytes[row.offset], &row.value, sizeof row.value);
    const std::uint32_t checksum = Cairn::checksum(bytes.data(), 4088);
    if (row.checked) std::memcpy(&bytes[4088], &checksum, sizeof checksum);
    write(bytes);
    EXPECT_THAT(problem([&] { View{path_}; }), HasSubstr(row.text));
  }
  write(intact);
  View view(path_);
  for (const off_t length : {off_t{8192}, off_t{4096}, off_t{100}, off_t{0}}) {
    ASSERT_EQ(truncate(path_.c_str(), length), 0);
    EXPECT_THAT(problem([&] { view.read(); }), HasSubstr("truncated")) << "mapped before";
    EXPECT_THAT(problem([&] { View{path_}; }), HasSubstr("bytes: expected 94208, found "));
  }
}

TEST_F(CountersTest, File_IsNotLeftUnfinishedAndOutlivesItsTruncation) {
  EXPECT_THAT(problem([&] { File(folder_.path() + "/none/counters", ""); }), HasSubstr("No such file"));
  { const File unpublished(path_ + "2", ""); }
  File file(path_, std::string(10'000, 'x'));
  file.publish();
  EXPECT_EQ(View(path_).program().options.size(), 3991u);
  ASSERT_EQ(truncate(path_.c_str(), 0), 0);
  file.words().tables[0].undos.add(2);
  EXPECT_EQ(file.words().tables[0].undos.value(), 2u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path()), {}), 1);
}

TEST_F(CountersTest, AnswerTimes_AreKnownToASixteenth) {
  AnswerTimeCounts times{};
  for (std::uint64_t i = 1; i <= 1000; ++i) ++times[bucketOf(i * 1000)];
  const struct {
    double share;
    double time;
  } rows[] = {{0, 1e3}, {0.5, 5e5}, {0.99, 9.9e5}, {0.999, 9.99e5}, {1, 1e6}};
  for (const auto& [share, time] : rows) {
    EXPECT_GE(static_cast<double>(quantile(times, share)), time);
    EXPECT_LE(static_cast<double>(quantile(times, share)), time * 17 / 16);
  }
  EXPECT_NEAR(sumOf(times), 500.5e6, 500.5e6 / 16);
  EXPECT_NEAR(static_cast<double>(countBelow(times, 250'000)), 250, 16);
  EXPECT_EQ(quantile(AnswerTimeCounts{}, 0.5), 0u);
}

}  // namespace
