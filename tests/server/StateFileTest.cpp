#include "apps/server/StateFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "apps/server/ElectionIds.h"
#include "cairn/Exception.h"
#include "tests/RuntimeFolder.h"

namespace {

using Server::StateFile;

class StateFileTest : public testing::Test {
 protected:
  StateFile file() { return {folder_.path(), "state", 3, "the past"}; }
  std::string path() const { return folder_.path() + "/state"; }
  void bytesAre(const std::string& bytes) const { std::ofstream(path(), std::ios::binary) << bytes; }
  /// The text of the refusal; "" when the file can be read.
  std::string refusal(const char* name = "state", std::uint32_t version = 3) {
    try {
      StateFile(folder_.path(), name, version, "the past").read();
      return {};
    } catch (const Cairn::Exception& refused) {
      return refused.what();
    }
  }

  RuntimeFolder folder_{"/dev/shm"};
};

TEST_F(StateFileTest, HoldsWhatWasLastPublished) {
  EXPECT_EQ(file().read(), std::nullopt);
  file().replace("");
  EXPECT_EQ(file().read(), "");
  const std::string large(200000, 'x');
  file().replace(large);
  file().stage("staged alone");
  EXPECT_EQ(file().read(), large);
  file().replace("after a crash between the two");
  EXPECT_EQ(file().read(), "after a crash between the two");
  EXPECT_EQ(std::filesystem::status(path()).permissions(), std::filesystem::perms{0600});
}

TEST_F(StateFileTest, NoticesEveryDamagedBit) {
  file().replace("contents");
  std::ifstream in(path(), std::ios::binary);
  const std::string intact{std::istreambuf_iterator<char>(in), {}};
  ASSERT_EQ(intact.size(), 24u + 8u);
  for (std::size_t bit = 0; bit < intact.size() * 8; ++bit) {
    std::string damaged = intact;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ 1 << bit % 8);
    bytesAre(damaged);
    EXPECT_TRUE(refusal().ends_with("; remove the file to start without the past"))
        << bit << ": " << refusal();
  }
  for (std::size_t length = 0; length <= intact.size() + 1; ++length) {
    bytesAre((intact + '\0').substr(0, length));
    EXPECT_EQ(refusal() == "", length == intact.size()) << length;
  }
}

TEST_F(StateFileTest, RefusesFilesOfOthers) {
  file().replace("contents");
  EXPECT_EQ(refusal("state", 4),
            path() + ": expected version 4, got 3; remove the file to start without the past");
  std::filesystem::rename(path(), folder_.path() + "/other");
  EXPECT_NE(refusal("other"), "");
  std::filesystem::create_symlink("other", path());
  EXPECT_NE(refusal(), "");
  std::filesystem::rename(folder_.path() + "/other", path());
  EXPECT_EQ(refusal(), "");
  std::filesystem::permissions(path(), std::filesystem::perms{0644});
  EXPECT_NE(refusal(), "");
  EXPECT_THROW(StateFile(folder_.path() + "/none", "state", 3, "the past"), Cairn::Exception);
}

// What a controller has stored with an earlier agent is read with these bytes.
TEST(ElectionIds, HaveOneFormat) {
  const RuntimeFolder folder{"/dev/shm"};
  StateFile file(folder.path(), "p4rt-agent.election", 1, "");
  const std::string record("\x03\0red\1\0\0\0\0\0\0\0\2\0\0\0\0\0\0\x80", 21);
  file.replace(record);
  Server::ElectionIds ids(folder.path());
  EXPECT_EQ(ids.read(), (Server::ElectionIds::ByRole{{"red", {1, 0x8000000000000002}}}));
  ids.replace(ids.read());
  EXPECT_EQ(file.read(), record);
  for (std::size_t length = 1; length < record.size(); ++length) {
    file.replace(record.substr(0, length));
    EXPECT_THROW(ids.read(), Cairn::Exception) << length;
  }
}

}  // namespace
