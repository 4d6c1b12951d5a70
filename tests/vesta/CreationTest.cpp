#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>

#include "Support.h"

namespace VestaTest {
namespace {

std::string failure(const std::function<void()>& call) {
  try {
    call();
  } catch (const Cairn::SystemException& exception) {
    return exception.what();
  }
  return "";
}

void limit(decltype(RLIMIT_NOFILE) resource, rlim_t value) {
  rlimit bound{};
  getrlimit(resource, &bound);
  bound.rlim_cur = value;
  EXPECT_EQ(setrlimit(resource, &bound), 0);
}

// A table of 4096 rows: 4 MB that are not there.
TEST_F(TableTest, Creation_WithoutRoomLeavesNothingHalfMade) {
  Child onFull([this] {
    if (mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=256k") != 0) return 77;
    const std::string said = failure([this] { writer(4096); });
    EXPECT_THAT(said,
                ::testing::MatchesRegex("create segment .*: reserve [0-9]+ bytes: No space left on device"));
    EXPECT_EQ(files(), std::vector<std::string>{"table.lock"});
    EXPECT_EQ(failure([this] { writer(16); }), "") << "what fits still works";
    umount2(folder_.c_str(), MNT_DETACH);
    return 0;
  });
  const int end = onFull.wait();
  EXPECT_TRUE(end == 0 || end == 77) << end;
  Child beyondLimit([this] {
    signal(SIGXFSZ, SIG_IGN);
    limit(RLIMIT_FSIZE, 65536);
    EXPECT_THAT(failure([this] { writer(4096); }), ::testing::EndsWith("bytes: File too large"));
    EXPECT_EQ(files(), std::vector<std::string>{"table.lock"});
    return 0;
  });
  EXPECT_EQ(beyondLimit.wait(), 0);
}

TEST_F(TableTest, Creation_WithoutDescriptorsSaysSoAndLeavesNothingHalfMade) {
  Child child([this] {
    for (rlim_t descriptors = 3; descriptors < 40; ++descriptors) {
      limit(RLIMIT_NOFILE, descriptors);
      const std::string said = failure([this] { writer(16); });
      limit(RLIMIT_NOFILE, 40);
      if (said.empty()) return descriptors > 4 ? 0 : 1;
      EXPECT_THAT(said, ::testing::EndsWith("Too many open files"));
      if (std::filesystem::exists(path().folder())) {
        for (const std::string& file : files()) EXPECT_EQ(file, "table.lock");
      }
    }
    return 2;
  });
  const int end = child.wait();
  EXPECT_EQ(end, 0);
}

// Readers of a table that is taken down: it is empty, its keys are told as gone, and a new one is found.
TEST_F(TableTest, Removal_IsToldToReadersWhoFollowToTheNextTable) {
  auto table = writer();
  const auto follower = reader();
  put(*table, 1, 1);
  put(*table, 2, 1);
  told(*follower);
  ASSERT_TRUE(follower->maySleep());
  table->cleanup();
  EXPECT_EQ(files(), (std::vector<std::string>{"table.lock", "vesta.table.0"}))
      << "the FIFO of a living reader";
  pollfd waiting{follower->wakeDescriptor(), POLLIN, 0};
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  follower->descriptorReadable();
  EXPECT_EQ(told(*follower), (std::vector<std::uint64_t>{1, 2}));
  EXPECT_EQ(contents(*follower).size(), 0u);
  EXPECT_TRUE(follower->maySleep());
  EXPECT_THROW(put(*table, 3, 1), Cairn::NoPermissionException);

  table = writer();
  EXPECT_EQ(poll(&waiting, 1, 0), 1);
  follower->descriptorReadable();
  put(*table, 4, 1);
  EXPECT_EQ(told(*follower), std::vector<std::uint64_t>{4});
  EXPECT_EQ(stampOf(*follower, 4), 1u);
  EXPECT_EQ(table->readers().size(), 1u);
}

// Key and entry sizes of the hardware tables, as literals, with their capacities.
TEST(Memory, AtMost512BytesForEachEntryOfCapacity) {
  const struct {
    const char* name;
    Vesta::Shape shape;
  } kinds[] = {{"tunnel config", {39, 71, 8192, 0}},  {"tunnel config, IPv6", {39, 71, 4096, 0}},
               {"tunnel status", {39, 58, 8192, 0}},  {"station config", {24, 49, 512, 0}},
               {"station status", {24, 43, 512, 0}},  {"interface config", {8, 39, 8192, 0}},
               {"interface status", {8, 27, 8192, 0}}};
  for (const auto& kind : kinds) {
    EXPECT_LE(Vesta::Layout(kind.shape).bytes(), 512u * kind.shape.capacity) << kind.name;
  }
}

}  // namespace
}  // namespace VestaTest
