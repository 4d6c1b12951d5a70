#include "Support.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

namespace VestaTest {
namespace {

mode_t modeOf(const std::string& file) {
  struct stat status {};
  EXPECT_EQ(lstat(file.c_str(), &status), 0) << file;
  return status.st_mode & 07777;
}

std::string failure(const std::function<void()>& call) {
  try {
    call();
  } catch (const Cairn::Exception& exception) {
    return exception.what();
  }
  return "";
}

TEST_F(TableTest, Files_ArePrivate) {
  umask(0);
  const auto table = writer();
  const auto follower = reader();
  EXPECT_EQ(modeOf(folder_ + "/some"), 0700u);
  EXPECT_EQ(modeOf(folder_ + "/some/place"), 0700u);
  EXPECT_EQ(files(), (std::vector<std::string>{"table", "table.lock", "vesta.table.0"}));
  for (const std::string& file : files()) EXPECT_EQ(modeOf(path().folder() + "/" + file), 0600u) << file;
  EXPECT_TRUE(table->validateFiles());
}

TEST_F(TableTest, Files_OneWriterAtATimeBetweenProcesses) {
  const auto table = writer();
  Child second([this] {
    EXPECT_EQ(failure([this] { writer(); }),
              path().text() + " has a writer already: process " + std::to_string(getppid()));
    return 0;
  });
  EXPECT_EQ(second.wait(), 0);
  table->detach();
  EXPECT_EQ(failure([this] { writer(); }), "");
}

TEST_F(TableTest, Files_EitherSideStartsFirstAndRestarts) {
  auto follower = reader();
  EXPECT_FALSE(follower->connected());
  auto table = writer();
  EXPECT_TRUE(follower->connected());
  EXPECT_EQ(follower->writerProcess(), getpid());
  put(*table, 1, 1);
  EXPECT_EQ(told(*follower), std::vector<std::uint64_t>{1});
  table.reset();
  EXPECT_FALSE(follower->connected());
  table = writer();  // goes on with the rows
  EXPECT_EQ(stampOf(*table, 1), 1u);
  put(*table, 2, 1);
  EXPECT_EQ(told(*follower), std::vector<std::uint64_t>{2});
  follower = reader();
  EXPECT_EQ(contents(*follower).size(), 2u);
}

struct Obstacle {
  const char* name;
  std::function<void(const std::string& folder)> place;
  const char* expected;
};

class FilesObstacle : public TableTest, public ::testing::WithParamInterface<Obstacle> {};

TEST_P(FilesObstacle, Files_InTheWayAreRefusedNotFollowed) {
  writer()->detach();
  GetParam().place(path().folder());
  EXPECT_THAT(failure([this] { writer(); }), ::testing::HasSubstr(GetParam().expected));
  EXPECT_THAT(failure([this] { reader(); }), ::testing::HasSubstr(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(
    Obstacles, FilesObstacle,
    ::testing::Values(
        Obstacle{"Link",
                 [](const std::string& folder) {
                   std::filesystem::rename(folder + "/table", folder + "/elsewhere");
                   std::filesystem::create_symlink("elsewhere", folder + "/table");
                 },
                 "Too many levels of symbolic links"},
        Obstacle{"LinkedFolder",
                 [](const std::string& folder) {
                   std::filesystem::rename(folder, folder + "2");
                   std::filesystem::create_directory_symlink("place2", folder);
                 },
                 "/some/place: Not a directory"},
        Obstacle{"OpenFolder", [](const std::string& folder) { chmod(folder.c_str(), 0755); },
                 "expected mode 0700, found 0755"},
        Obstacle{"OpenFile", [](const std::string& folder) { chmod((folder + "/table").c_str(), 0644); },
                 "expected mode 0600, found 0644"},
        Obstacle{"OpenLock", [](const std::string& folder) { chmod((folder + "/table.lock").c_str(), 0660); },
                 "expected mode 0600, found 0660"},
        Obstacle{"Fifo",
                 [](const std::string& folder) {
                   std::filesystem::remove(folder + "/table");
                   mkfifo((folder + "/table").c_str(), 0600);
                 },
                 "expected a regular file"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(TableTest, Files_AnotherOwnerIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files away";
  writer()->detach();
  ASSERT_EQ(chown((path().folder() + "/table").c_str(), 12345, 12345), 0);
  EXPECT_THAT(failure([this] { writer(); }), ::testing::HasSubstr("expected owner 0, found 12345"));
}

}  // namespace
}  // namespace VestaTest
