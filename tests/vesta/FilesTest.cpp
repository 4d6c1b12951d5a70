// Creation of segments, obstacles to it, and their removal.
#include <sys/stat.h>

#include <fstream>
#include <thread>

#include "Support.h"
#include "vesta/files/LockFile.h"

namespace VestaTest {
namespace {

TEST(RootPathTest, NamesAPlaceBelowItsRootAlone) {
  using Vesta::RootPath;
  const std::string longest(200, 'x');
  EXPECT_EQ(RootPath("/r", longest + "/b..", "c.d").text(), "/r/" + longest + "/b../c.d");
  EXPECT_THAT(failure([] { RootPath("", "a", "b"); }), HasSubstr("expected a root folder, got none"));
  for (const std::string& part : {std::string(), std::string("."), std::string(".."), longest + "x"}) {
    const std::string expected = "got part \"" + part + "\"";
    EXPECT_THAT(failure([&] { RootPath("/r", "a/" + part, "b"); }), HasSubstr(expected));
    EXPECT_THAT(failure([&] { RootPath("/r", part + "/a", "b"); }), HasSubstr(expected));
    EXPECT_THAT(failure([&] { RootPath("/r", "a", part); }), HasSubstr(expected));
  }
  EXPECT_NE(failure([] { RootPath("/r", std::string("a\0b", 3), "b"); }), "");
  EXPECT_THAT(failure([] { RootPath("/r", "a", "b/c"); }), HasSubstr("expected a name without"));
}

TEST_F(TableTest, Files_ArePrivateAndEitherSideStartsFirstAndRestarts) {
  umask(0);
  auto follower = reader();
  EXPECT_FALSE(follower->connected());
  auto table = writer();
  EXPECT_EQ(follower->writerProcess(), getpid());
  const auto modeOf = [](const std::string& file) {
    return std::filesystem::symlink_status(file).permissions();
  };
  const std::filesystem::perms folderMode{0700};
  EXPECT_TRUE(modeOf(folder_ + "/some") == folderMode && modeOf(path().folder()) == folderMode);
  EXPECT_EQ(files(), (Names{"table", "table.lock", "vesta.table.0"}));
  for (const auto& file : files()) {
    EXPECT_EQ(modeOf(path().folder() + "/" + file), std::filesystem::perms{0600}) << file;
  }
  EXPECT_TRUE(table->validateFiles());
  EXPECT_EQ(failure([this] { writer(); }),
            file() + " has a writer already: process " + std::to_string(getpid()));
  put(*table, 1, 1);
  EXPECT_EQ(notified(*follower), Ids{1});
  table->detach();
  EXPECT_FALSE(follower->connected());
  table = writer();  // keeps the rows
  put(*table, 2, 1);
  EXPECT_EQ(notified(*follower), Ids{2});
  follower = reader();
  EXPECT_EQ(contents(*follower), (Model{{1, 1}, {2, 1}}));
}

TEST_F(TableTest, Files_InTheWayAreRefusedNotFollowed) {
  const std::string folder = path().folder();
  const std::string table = folder + "/table";
  const std::string fifo = folder + "/vesta.table.0";
  const auto linked = [](const std::string& name) {
    std::filesystem::rename(name, name + "2");
    std::filesystem::create_symlink(name + "2", name);
  };
  const bool root = geteuid() == 0;
  const auto owned = [&](const std::string& name) {
    EXPECT_NE(root, chown(name.c_str(), 12345, 12345) != 0);
  };
  const std::string owner = root ? "expected owner 0, found 12345" : "";
  const struct {
    std::function<void()> place;
    std::string expected;
    bool toWriters = true;
  } obstacles[] = {
      {[&] { linked(table); }, "/table: Too many levels of symbolic links"},
      {[&] { linked(table + ".lock"); }, ".lock: Too many levels of symbolic links"},
      {[&] { linked(folder); }, "/some/place: Not a directory"},
      {[&] { std::filesystem::create_symlink("x", fifo); }, ".0: Too many levels of symbolic links", false},
      {[&] { mkfifo(fifo.c_str(), 0644); }, "expected mode 0600, found 06", false},
      {[&] { std::ofstream{fifo}; }, "expected a FIFO", false},
      {[&] { chmod(folder.c_str(), 0755); }, "expected mode 0700, found 0755"},
      {[&] { owned(folder); }, owner},
      {[&] { chmod(table.c_str(), 0644); }, "expected mode 0600, found 0644"},
      {[&] { remove(table.c_str()), mkfifo(table.c_str(), 0600); }, "expected a regular file"},
      {[&] { owned(table); }, owner},
  };
  const auto descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = descriptors();
  for (const auto& obstacle : obstacles) {
    SCOPED_TRACE(obstacle.expected);
    startOver();
    std::filesystem::remove_all(folder + "2");
    writer().reset();
    obstacle.place();
    EXPECT_THAT(failure([this] { reader(); }), HasSubstr(obstacle.expected));
    EXPECT_THAT(failure([this] { writer(); }), HasSubstr(obstacle.toWriters ? obstacle.expected : ""));
    EXPECT_EQ(descriptors(), before);
  }
}

TEST_F(TableTest, Files_ThatAppearWhileInUse) {
  const auto table = writer();
  const auto follower = reader();
  const std::string fifo = path().folder() + "/vesta.table.0";
  std::filesystem::remove(fifo);
  close(open(fifo.c_str(), O_CREAT | O_RDWR, 0600));
  ASSERT_TRUE(follower->maySleep());
  put(*table, 1, 1);
  EXPECT_EQ(std::filesystem::file_size(fifo), 0u) << "only a FIFO is written to";
  table->detach();
  const auto second = writer();
  EXPECT_THAT(failure([&] { table->cleanup(); }), HasSubstr("has a writer: process"));
  EXPECT_EQ(failure([&] { second->validateFiles(); }), "");
  chmod(file().c_str(), 0644);
  EXPECT_THAT(failure([&] { second->validateFiles(); }), HasSubstr("expected mode 0600"));
}

// Except for the readers' page.
TEST_F(TableTest, Files_ReadersMapTheSegmentReadOnly) {
  writer();
  Child child([this] {
    signal(SIGSEGV, SIG_DFL);  // a sanitizer would end the child in its own way
    const Cairn::Descriptor opened(open(file().c_str(), O_RDWR | O_CLOEXEC));
    const Layout layout(Vesta::shapeOf<TestKey, TestEntry>(64));
    Segment segment(opened.get(), layout, Vesta::Access::reader);
    segment.at(Vesta::kSleepersAt) = 0;
    segment.at(Vesta::kSequenceAt) = 0;
    return 0;
  });
  EXPECT_EQ(child.wait(), -SIGSEGV);
}

TEST_F(TableTest, Creation_RefusedByTheSystemLeavesNothing) {
  Child child([this] {
    signal(SIGXFSZ, SIG_IGN);
    const std::function<void()> sides[] = {[this] { writer(); }, [this] { reader(); }};
    for (const auto& attach : sides) {
      startOver();
      rlim_t number = 3;
      for (std::string text = "first"; !text.empty(); ++number) {
        const rlim_t before = limit(RLIMIT_NOFILE, number);
        text = failure(attach);
        limit(RLIMIT_NOFILE, before);
        EXPECT_TRUE(text.empty() || text.ends_with("Too many open files")) << text;
        EXPECT_TRUE(text.empty() || files().empty() || files() == Names{"table.lock"});
      }
      EXPECT_GT(number, 5u) << "it has failed at first";
      startOver();
      const rlim_t size = limit(RLIMIT_FSIZE, 4096);
      EXPECT_THAT(failure(attach),
                  ::testing::MatchesRegex("create segment .*: reserve [0-9]+ bytes: File too large"));
      EXPECT_EQ(files(), Names{"table.lock"});
      limit(RLIMIT_FSIZE, size);
      EXPECT_EQ(failure(attach), "");
    }
    startOver();
    chmod(folder_.c_str(), 0555);
    EXPECT_TRUE(geteuid() != 0 || seteuid(12345) == 0);
    for (const auto& attach : sides) {
      EXPECT_EQ(failure(attach), "create folder " + folder_ + "/some: Permission denied");
    }
    return 0;
  });
  EXPECT_EQ(child.wait(), 0);
  chmod(folder_.c_str(), 0700);
}

// Readers of a table that is removed: it is empty, its keys are notified as gone, and a new one is found.
TEST_F(TableTest, Removal_IsNotifiedToReadersWhichSwitchToTheNextTable) {
  auto table = writer();
  const auto follower = reader();
  for (const std::uint64_t id : {1u, 2u}) put(*table, id, 1);
  ASSERT_FALSE(table->readers().at(0).asleep);
  ASSERT_TRUE(sleeps(*follower) && table->readers().at(0).asleep);
  mkfifo((path().folder() + "/vesta.table.3").c_str(), 0600);  // of a reader that was killed
  table->cleanup();
  EXPECT_EQ(files(), (Names{"table.lock", "vesta.table.0"})) << "the FIFO of a living reader";
  EXPECT_TRUE(woken(*follower));
  EXPECT_EQ(notified(*follower), (Ids{1, 2}));
  EXPECT_TRUE(follower->maySleep() && contents(*follower).empty());
  table = writer();
  EXPECT_TRUE(woken(*follower));
  put(*table, 4, 1);
  EXPECT_EQ(notified(*follower), Ids{4});
}

// A reader and a writer that both wait to create the table: the second one uses what the first has created.
TEST_F(TableTest, Creation_ByBothSidesAtTheSameMoment) {
  writer()->cleanup();
  const Cairn::Descriptor folder(open(path().folder().c_str(), O_RDONLY | O_CLOEXEC));
  for (int round = 0; round < 20; ++round) {
    Vesta::LockFile lock(folder.get(), "table.lock", "");
    ASSERT_TRUE(lock.tryLock(Vesta::LockFile::kCreation));
    Child reads([&] { return raise(SIGSTOP), reader(), 0; });
    Child writes([&] { return raise(SIGSTOP), writer(), 0; });
    reads.pass();
    writes.pass();
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    lock.unlock(Vesta::LockFile::kCreation);
    ASSERT_EQ(reads.wait(), 0);
    ASSERT_EQ(writes.wait(), 0);
    writer()->cleanup();
  }
}

// Key and entry sizes of the hardware tables, as literals, with their capacities.
TEST(Memory, AtMost512BytesForEachEntryOfCapacity) {
  const Vesta::Shape kinds[] = {{39, 71, 8192, 0}, {39, 71, 4096, 0}, {39, 58, 8192, 0}, {24, 49, 512, 0},
                                {24, 43, 512, 0},  {8, 39, 8192, 0},  {8, 27, 8192, 0}};
  for (const Vesta::Shape& kind : kinds) EXPECT_LE(Vesta::Layout(kind).bytes(), 512u * kind.capacity);
}

}  // namespace
}  // namespace VestaTest
