#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "RingFixture.h"

namespace {

constinit const Skein::Site kPlain{"./P4RuntimePlugin/VrfSm", 24, "handleEntry", "add vrf %s"};
constinit const Skein::Site kTwo{"./P4RuntimePlugin/VrfSm", 32, "handleEntry", "%s is %s"};

using Trace = RingFixture;

TEST_F(Trace, Values_AreTextInEveryForm) {
  static constinit const Skein::Site kAll{"./all", 40, "all", "%s|%s|%s|%s|%s|%s|%s|%s|%s|%s|%s|%s"};
  Skein::ringIs(path(), kSmallRing);
  Skein::message(kAll, std::string("blue"), "green", "", std::uint8_t{0},
                 std::numeric_limits<std::uint64_t>::max(), std::numeric_limits<std::int64_t>::min(), true,
                 EthAddr{{0x00, 0x00, 0x5e, 0x00, 0x53, 0xff}}, IpGenAddr::ipv4({192, 0, 2, 1}),
                 IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8}), IpGenAddr(), "\x1b[2J\n\xff");
  Skein::message(kTwo, 1u);
  Skein::message(kPlain, 1u, 2u);
  EXPECT_EQ(lastTexts(3),
            (Texts{"blue|green||0|18446744073709551615|-9223372036854775808|true|00:00:5e:00:53:ff|192.0.2.1|"
                   "2001:db8::||\\x1b[2J\\x0a\\xff",
                   "1 is %s", "add vrf 1 2"}));
  const auto site = Skein::readTrace(path()).back().site;
  EXPECT_EQ(site->source + " " + site->function, "./P4RuntimePlugin/VrfSm handleEntry");
  EXPECT_EQ(site->line, 24u);
}

TEST_F(Trace, LongValues_AreCutAtTheEndOfTheRecord) {
  const std::string most(2048 - 24 - 2, 'x');
  Skein::ringIs(path(), kSmallRing);
  Skein::message(kPlain, most + "yz", "lost");
  Skein::message(kTwo, most.substr(9), 1234567890123u);  // no room for the whole of the number
  Skein::message(kTwo, "short", "kept");
  EXPECT_EQ(lastTexts(3), (Texts{"add vrf " + most, most.substr(9) + " is ", "short is kept"}));
}

TEST_F(Trace, Times_AreThoseOfTheClocks) {
  const auto now = [](clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
  };
  Skein::ringIs(path(), kSmallRing);
  double closest = 1e9;  // between clocks and message the process may be interrupted, but not every time
  for (int i = 0; i < 100; ++i) {
    const double monotonic = now(CLOCK_MONOTONIC_RAW);
    const double wall = now(CLOCK_REALTIME);
    Skein::message(kPlain, 1u);
    const auto record = Skein::readTrace(path()).back();
    closest = std::min(closest, std::max(std::abs(static_cast<double>(record.monotonic) - monotonic),
                                         std::abs(static_cast<double>(record.wall) - wall)));
  }
  EXPECT_LT(closest, 2e4);
}

TEST_F(Trace, File_IsPrivateAndKeepsTheOneBefore) {
  std::ofstream(path("target")) << "untouched";
  std::filesystem::create_symlink(path("target"), path());
  Skein::ringIs(path(), kSmallRing);  // where a link stands, the link is renamed, not followed
  struct stat status {};
  ASSERT_EQ(lstat(path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode, S_IFREG | 0600u);
  EXPECT_EQ(std::filesystem::file_size(path("target")), 9u);
  EXPECT_THROW(Skein::readTrace(path() + ".old"), Cairn::SystemException);

  Skein::message(kPlain, 7u);
  Skein::ringIs(path(), kSmallRing);
  EXPECT_EQ(lastTexts(1, "ring.old"), Texts{"add vrf 7"});
}

TEST_F(Trace, RefusedRing_LeavesTheOneInUse) {
  Skein::ringIs(path(), kSmallRing);
  EXPECT_THROW(Skein::ringIs(path("missing/ring"), kSmallRing), Cairn::SystemException);
  EXPECT_THROW(Skein::ringIs(path("small"), kSmallRing - 1), Cairn::Exception);
  EXPECT_THROW(Skein::ringIs(path("large"), Braid::kMaxRingBytes + 1), Cairn::Exception);
  Skein::message(kPlain, 8u);
  EXPECT_EQ(lastTexts(1), Texts{"add vrf 8"});
  const std::filesystem::directory_iterator files(folder_.path());
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(Trace, Sites_AreWrittenOnceAndTheLastOnesGoWithout) {
  const auto ring = Braid::Ring::makeFile(path(), kSmallRing);
  const auto numberOf = [&](std::uint32_t line) { return ring->site("source", line, "function", "format"); };
  EXPECT_EQ(numberOf(1), 1u);
  EXPECT_EQ(numberOf(2), 6u);  // 16 bytes and 20 of text, filled up to 40
  std::uint32_t line = 3;
  while (numberOf(line) != Braid::kNoSite) ++line;
  EXPECT_EQ(line - 1, Braid::kSiteAreaBytes / 40);
  EXPECT_EQ(numberOf(2), 6u);
}

}  // namespace
