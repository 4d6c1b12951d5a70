// Traces of this process, of others that write or are killed, and of damaged files.
#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>

#include "cairn/Hash.h"
#include "skein/Skein.h"
#include "skein/TraceReader.h"
#include "tests/vesta/Support.h"

namespace {

using Texts = std::vector<std::string>;
using VestaTest::Child;

constexpr std::size_t kSmallRing = Braid::kMinRingBytes;
constinit const Skein::Site kPlain{"./P4RuntimePlugin/VrfSm", 24, "handleEntry", "add vrf %s"};
constinit const Skein::Site kTwo{"./P4RuntimePlugin/VrfSm", 32, "handleEntry", "%s is %s"};
constinit const Skein::Site kCount{"./count", 1, "count", "%s %s"};
constinit const Skein::Site kTurn{"./turn", 2, "turn", "turn %s"};

class Trace : public ::testing::Test {
 protected:
  std::string path(const std::string& name = "ring") const { return folder_.path() + "/" + name; }
  /// The texts of the last `count` messages in the ring.
  Texts lastTexts(std::size_t count, const std::string& name = "ring") const {
    Texts texts;
    for (const auto& record : Skein::readTrace(path(name))) texts.push_back(record.text());
    texts.erase(texts.begin(), texts.end() - static_cast<std::ptrdiff_t>(std::min(count, texts.size())));
    return texts;
  }
  RuntimeFolder folder_;
};

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
  EXPECT_EQ(site->source + " " + site->function + std::to_string(site->line),
            "./P4RuntimePlugin/VrfSm handleEntry24");
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
    return double(time.tv_sec) * 1e9 + double(time.tv_nsec);
  };
  Skein::ringIs(path(), kSmallRing);
  double closest = 1e9;  // between clocks and message the process may be interrupted, but not every time
  for (int i = 0; i < 100; ++i) {
    const double monotonic = now(CLOCK_MONOTONIC_RAW);
    const double wall = now(CLOCK_REALTIME);
    Skein::message(kPlain, 1u);
    const auto record = Skein::readTrace(path()).back();
    const double off =
        std::max(std::abs(double(record.monotonic) - monotonic), std::abs(double(record.wall) - wall));
    closest = std::min(closest, off);
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

/// Fails unless the counting messages follow each other without a gap and whole. Returns the last number.
std::uint64_t checkCounting(const std::vector<Skein::TraceRecord>& records) {
  std::uint64_t last = 0;
  for (const auto& record : records) {
    if (record.site->format != "%s %s") continue;
    const std::uint64_t number = std::stoull(record.values.at(0));
    EXPECT_TRUE(last == 0 || number == last + 1) << number << " after " << last;
    EXPECT_EQ(record.values.at(1), std::string(number % 61, static_cast<char>('a' + number % 26)));
    last = number;
  }
  return last;
}

TEST_F(Trace, Writer_IsReadAtFullSpeedAndAfterSigkill) {
  for (int round = 0; round < 15; ++round) {
    Child child([&] {
      Skein::ringIs(path(), 16 * kSmallRing);  // large, so that the writer gets far while it is read
      for (std::uint64_t i = 1;; ++i) {
        Skein::message(kCount, i, std::string(i % 61, static_cast<char>('a' + i % 26)));
        if (i == 1000) raise(SIGSTOP);
      }
      return 0;
    });
    child.pass();
    for (int i = 0; i < 20; ++i) checkCounting(Skein::readTrace(path()));
    const auto pid = static_cast<std::uint32_t>(child.pid());
    child.signal(SIGKILL);
    EXPECT_EQ(child.wait(), -SIGKILL);
    const auto records = Skein::readTrace(path());
    EXPECT_GE(std::min<std::uint64_t>(checkCounting(records), records.size()), 1000u);
    EXPECT_EQ(records.back().process->pid, pid);
    EXPECT_EQ(records.back().process->name, program_invocation_short_name);
  }
}

TEST_F(Trace, Child_ContinuesInARingOfItsOwnAndBothAreMerged) {
  constexpr int kTurns = 200;
  Skein::ringIs(path("a"), kSmallRing);
  Skein::message(kTurn, "parent");
  Child child([&] {
    Skein::message(kTurn, "child");
    Skein::ringIs(path("b"), kSmallRing);  // begins with what was traced before
    EXPECT_EQ(lastTexts(9, "b"), Texts{"turn child"});
    for (int i = 1; i < kTurns; i += 2) {
      raise(SIGSTOP);
      Skein::message(kTurn, i);
    }
    return 0;
  });
  Texts expected = {"turn parent", "turn child"};
  for (int i = 0; i < kTurns; i += 2) {
    EXPECT_EQ(child.wait(), -SIGSTOP);
    Skein::message(kTurn, i);
    child.signal(SIGCONT);
    expected.insert(expected.end(), {"turn " + std::to_string(i), "turn " + std::to_string(i + 1)});
  }
  EXPECT_EQ(child.wait(), 0);
  auto records = Skein::readTrace(path("b"));
  std::ranges::copy(Skein::readTrace(path("a")), std::back_inserter(records));
  Skein::sortByTime(records);
  ASSERT_GE(records.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    ASSERT_EQ(records[records.size() - expected.size() + i].text(), expected[i]);
  }
}

constexpr std::size_t kRecordArea = Braid::kPageBytes + Braid::kSiteAreaBytes;

class DamagedTrace : public Trace {
 protected:
  void SetUp() override {
    const auto ring = Braid::Ring::makeFile(path(), kSmallRing);
    for (unsigned i = 0; i < 10; ++i) {  // written by hand: records of 40 bytes from position 0 on
      const Braid::RecordHeader header{ring->head(), Braid::ticks(),
                                       ring->site("source", 10, "write", "row %s of %s"), 40, 10};
      std::memcpy(ring->room(), &header, sizeof header);
      std::memcpy(ring->room() + sizeof header, "\x04\0line\x02\0", 8);
      std::memcpy(ring->room() + sizeof header + 8, i % 2 == 0 ? "aa" : "bb", 2);
      ring->publish(header.bytes, header.ticks);
    }
    std::ifstream file(path(), std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
  }

  std::vector<Skein::TraceRecord> read(const std::string& bytes) const {
    std::ofstream(path("damaged"), std::ios::binary) << bytes;
    return Skein::readTrace(path("damaged"));
  }
  std::string bytes_;  // of the intact file
};

enum Expected : std::size_t { refused = 0, leftOut = 9, withoutSite = 10 };

constexpr std::size_t kFourth = kRecordArea + 120;
constexpr std::size_t kFirstSite = Braid::kPageBytes;

const struct Damage {
  const char* name;
  std::size_t offset;
  std::size_t bytes;
  std::vector<std::uint64_t> values;
  Expected expected;
  bool sealed = false;  // the header's checksum is made right
} kDamages[] = {
    {"magic", 0, 8, {0x1234}, refused},
    {"version", 8, 4, {2}, refused, true},
    {"pid changed", 12, 4, {1}, refused},
    {"ring of zero, of no power of two, larger than the file", 16, 8, {0, 16384 + 8, 32768}, refused, true},
    {"site area", 24, 8, {128 * 1024}, refused, true},
    {"head not aligned, beyond any", 128, 8, {41, ~std::uint64_t{7}}, refused},
    {"record: position", kFourth, 2, {121}, leftOut},
    {"record: bytes not aligned, too few, none, beyond head", kFourth + 20, 2, {41, 24, 0, 2048}, leftOut},
    {"record: values too many, too few", kFourth + 22, 2, {0xffff, 9}, leftOut},
    {"record: value over the end", kFourth + 24, 2, {9}, leftOut},
    {"record: second value over the end", kFourth + 30, 2, {0xffff}, leftOut},
    {"record: no site, its middle, beyond the area", kFourth + 16, 4, {0, 2, 0xffffffff}, withoutSite},
    {"site: source over the end", kFirstSite + 8, 2, {0xffff}, withoutSite},
    {"site: text", kFirstSite + 30, 2, {0xffff}, withoutSite},
};

TEST_F(DamagedTrace, Damage_IsLeftOutOrRefused) {
  EXPECT_EQ(read(bytes_).at(3).text(), "row line of bb");
  const auto readDamaged = [this](const Damage& damage, std::uint64_t value) {
    std::string bytes = bytes_;
    std::memcpy(bytes.data() + damage.offset, &value, damage.bytes);
    const std::uint32_t checksum = Cairn::checksum(bytes.data(), 96);
    if (damage.sealed) std::memcpy(bytes.data() + 96, &checksum, sizeof checksum);
    return read(bytes);
  };
  for (const Damage& damage : kDamages) {
    for (const std::uint64_t value : damage.values) {
      SCOPED_TRACE(damage.name + (" " + std::to_string(value)));
      if (damage.expected == refused) {
        EXPECT_THROW(readDamaged(damage, value), Cairn::CorruptionDetectedException);
        continue;
      }
      const auto records = readDamaged(damage, value);
      EXPECT_EQ(records.size(), damage.expected);
      EXPECT_EQ(records.at(3).text(), damage.expected == leftOut ? "row line of aa" : "line bb");
    }
  }
  for (const std::size_t size : {bytes_.size() - 1, std::size_t{100}, std::size_t{0}}) {
    EXPECT_THROW(read(bytes_.substr(0, size)), Cairn::CorruptionDetectedException) << size;
  }
  EXPECT_THROW(Skein::readTrace("/dev/null"), Cairn::CorruptionDetectedException);
  EXPECT_THROW(Skein::readTrace(folder_.path()), Cairn::Exception);
}

TEST_F(DamagedTrace, RandomBytes_NeverLeadAstray) {
  std::mt19937 random(20);
  const std::size_t places[] = {128, Braid::kPageBytes, kRecordArea};
  for (int round = 0; round < 500; ++round) {
    std::string bytes = bytes_;
    for (int i = 0; i < 4; ++i) bytes[places[random() % 3] + random() % 400] = static_cast<char>(random());
    try {
      for (const auto& record : read(bytes)) EXPECT_LE(record.text().size(), 4u * 2048);
    } catch (const Cairn::CorruptionDetectedException&) {
    }
  }
}

}  // namespace
