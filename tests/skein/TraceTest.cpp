#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <limits>

#include "RingFixture.h"
#include "cairn/Exception.h"

namespace {

constinit const Skein::Site kPlain{"./P4RuntimePlugin/VrfSm", 24, "handleEntry", "add vrf %s"};
constinit const Skein::Site kTwo{"./P4RuntimePlugin/VrfSm", 32, "handleEntry", "%s is %s"};

using Trace = RingFixture;

struct ValueCase {
  const char* name;
  void (*trace)();
  const char* text;
};

TEST_F(Trace, Values_AreTextInEveryForm) {
  static const EthAddr mac{{0x00, 0x00, 0x5e, 0x00, 0x53, 0xff}};
  static const ValueCase kCases[] = {
      {"string", [] { Skein::message(kPlain, std::string("blue")); }, "add vrf blue"},
      {"literal", [] { Skein::message(kPlain, "green"); }, "add vrf green"},
      {"empty", [] { Skein::message(kPlain, ""); }, "add vrf "},
      {"zero", [] { Skein::message(kPlain, std::uint8_t{0}); }, "add vrf 0"},
      {"largest", [] { Skein::message(kPlain, std::numeric_limits<std::uint64_t>::max()); },
       "add vrf 18446744073709551615"},
      {"smallest", [] { Skein::message(kPlain, std::numeric_limits<std::int64_t>::min()); },
       "add vrf -9223372036854775808"},
      {"bool", [] { Skein::message(kTwo, true, false); }, "true is false"},
      {"mac", [] { Skein::message(kPlain, mac); }, "add vrf 00:00:5e:00:53:ff"},
      {"ipv4",
       [] {
         Skein::message(kPlain, IpGenAddr::ipv4({192, 0, 2, 1}));
       },
       "add vrf 192.0.2.1"},
      {"ipv6",
       [] {
         Skein::message(kPlain, IpGenAddr::ipv6({0x20, 0x01, 0x0d, 0xb8}));
       },
       "add vrf 2001:db8::"},
      {"unset", [] { Skein::message(kPlain, IpGenAddr()); }, "add vrf "},
      {"missing", [] { Skein::message(kTwo, 1u); }, "1 is %s"},
      {"surplus", [] { Skein::message(kPlain, 1u, 2u); }, "add vrf 1 2"},
      {"control", [] { Skein::message(kPlain, "\x1b[2J\n\xff"); }, "add vrf \\x1b[2J\\x0a\\xff"},
  };
  for (const ValueCase& c : kCases) {
    SCOPED_TRACE(c.name);
    Skein::ringIs(path(), kSmallRing);
    c.trace();
    const auto records = Skein::readTrace(path());
    ASSERT_FALSE(records.empty());
    EXPECT_EQ(records.back().text(), c.text);
    EXPECT_EQ(records.back().site->source, "./P4RuntimePlugin/VrfSm");
    EXPECT_EQ(records.back().site->function, "handleEntry");
    EXPECT_EQ(records.back().site->line, c.text[0] == 'a' ? 24u : 32u);
  }
}

TEST_F(Trace, LongValues_AreCutAtTheEndOfTheRecord) {
  const std::string most(2048 - 24 - 2, 'x');
  Skein::ringIs(path(), kSmallRing);
  Skein::message(kTwo, most + "yz", "lost");
  Skein::message(kTwo, most.substr(3), "lost");
  Skein::message(kTwo, "short", "kept");
  const auto records = Skein::readTrace(path());
  ASSERT_GE(records.size(), 3u);
  EXPECT_EQ(records[records.size() - 3].values, std::vector<std::string>{most});
  EXPECT_EQ(records[records.size() - 2].values, (std::vector<std::string>{most.substr(3), "l"}));
  EXPECT_EQ(records.back().text(), "short is kept");
}

TEST_F(Trace, EarlierMessages_MoveToTheFile) {
  Skein::ringIs(path("first"), kSmallRing);
  for (unsigned i = 0; i < 50; ++i) Skein::message(kPlain, i);
  Skein::ringIs(path("second"), 4 * kSmallRing);
  Skein::message(kPlain, 50u);
  const auto records = Skein::readTrace(path("second"));
  ASSERT_GE(records.size(), 51u);
  for (std::size_t i = 0; i <= 50; ++i) {
    EXPECT_EQ(records[records.size() - 51 + i].text(), "add vrf " + std::to_string(i));
  }
}

TEST_F(Trace, Wrap_KeepsTheNewestWithoutAGap) {
  Skein::ringIs(path(), kSmallRing);
  constexpr unsigned kMessages = 20'000;
  for (unsigned i = 0; i < kMessages; ++i) Skein::message(kTwo, i, std::string(i % 50, 'a'));
  const auto records = Skein::readTrace(path());
  // 24 bytes and two values of at most 57 bytes: more than this stands in what is not at risk of overwriting.
  ASSERT_GE(records.size(), (kSmallRing - 2 * 2048) / 96);
  for (std::size_t i = 0; i < records.size(); ++i) {
    const std::size_t number = kMessages - records.size() + i;
    ASSERT_EQ(records[i].values,
              (std::vector<std::string>{std::to_string(number), std::string(number % 50, 'a')}));
  }
}

TEST_F(Trace, Times_AreThoseOfTheClocks) {
  const auto now = [](clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<std::uint64_t>(time.tv_sec) * 1'000'000'000u +
           static_cast<std::uint64_t>(time.tv_nsec);
  };
  constexpr std::size_t kMessages = 200;
  Skein::ringIs(path(), kSmallRing);
  std::array<std::uint64_t, kMessages> monotonic;
  const std::uint64_t wall = now(CLOCK_REALTIME);
  for (std::uint64_t& at : monotonic) {
    const std::uint64_t until = now(CLOCK_MONOTONIC_RAW) + 100'000;
    while ((at = now(CLOCK_MONOTONIC_RAW)) < until) continue;
    Skein::message(kPlain, 1u);
  }
  const auto records = Skein::readTrace(path());
  ASSERT_GE(records.size(), kMessages);
  // Between the clock and the message the process may be interrupted, but not every time.
  double closest = 1e9;
  for (std::size_t i = kMessages / 2; i < kMessages; ++i) {
    const auto& record = records[records.size() - kMessages + i];
    const auto distance = static_cast<double>(static_cast<std::int64_t>(record.monotonic - monotonic[i]));
    EXPECT_GT(distance, -5e3);
    closest = std::min(closest, distance);
  }
  EXPECT_LT(closest, 5e3);
  EXPECT_NEAR(static_cast<double>(records.back().wall - wall),
              static_cast<double>(records.back().monotonic - monotonic[0]), 1e6);
}

TEST_F(Trace, File_IsPrivateAndKeepsTheOneBefore) {
  std::ofstream(path("target")) << "untouched";
  std::filesystem::create_symlink(path("target"), path());
  Skein::ringIs(path(), kSmallRing);  // where a link stands, the link is set aside and not followed
  struct stat status {};
  ASSERT_EQ(lstat(path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
  EXPECT_EQ(std::filesystem::file_size(path("target")), 9u);
  EXPECT_THROW(Skein::readTrace(path() + ".old"), Cairn::SystemException);

  Skein::message(kPlain, 7u);
  Skein::ringIs(path(), kSmallRing);
  EXPECT_EQ(Skein::readTrace(path() + ".old").back().text(), "add vrf 7");
}

TEST_F(Trace, RefusedRing_LeavesTheOneInUse) {
  Skein::ringIs(path(), kSmallRing);
  EXPECT_THROW(Skein::ringIs(path("missing/ring"), kSmallRing), Cairn::SystemException);
  EXPECT_THROW(Skein::ringIs(path("small"), kSmallRing - 1), Cairn::Exception);
  EXPECT_THROW(Skein::ringIs(path("large"), Braid::kMaxRingBytes + 1), Cairn::Exception);
  std::filesystem::create_directories(path("folder"));
  EXPECT_THROW(Skein::ringIs(path("folder") + "/", kSmallRing), Cairn::SystemException);
  Skein::message(kPlain, 8u);
  EXPECT_EQ(Skein::readTrace(path()).back().text(), "add vrf 8");
  for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
    EXPECT_TRUE(entry.path() == path() || entry.path() == path("folder")) << entry.path();
  }
}

TEST_F(Trace, Sites_AreWrittenOnceAndTheLastOnesGoWithout) {
  const auto ring = Braid::Ring::makeFile(path(), kSmallRing);
  EXPECT_EQ(ring->site("source", 1, "function", "format"), 1u);
  EXPECT_EQ(ring->site("source", 2, "function", "format"), 6u);  // 16 bytes and 20 of text, filled up to 40
  EXPECT_EQ(ring->site("source", 1, "function", "format"), 1u);
  std::uint32_t line = 3;
  while (ring->site("source", line, "function", "format") != Braid::kNoSite) ++line;
  EXPECT_EQ(line - 1, Braid::kSiteAreaBytes / 40);
  EXPECT_EQ(ring->site("source", 2, "function", "format"), 6u);
}

}  // namespace
