// Ring files as hostile input: whatever the bytes, the reader ends, stays in bounds and says so.
#include <random>

#include "RingFixture.h"
#include "cairn/Hash.h"

namespace {

constexpr std::size_t kRecordArea = Braid::kPageBytes + Braid::kSiteAreaBytes;

class DamagedTrace : public RingFixture {
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

struct Damage {
  const char* name;
  std::size_t offset;
  std::size_t bytes;
  std::uint64_t value;
  Expected expected;
  bool sealed = false;  // the header's checksum is made right
};

constexpr std::size_t kFourth = kRecordArea + 120;
constexpr std::size_t kFirstSite = Braid::kPageBytes;

constexpr Damage kDamages[] = {
    {"magic", 0, 8, 0x1234, refused},
    {"version", 8, 4, 2, refused, true},
    {"pid changed", 12, 4, 1, refused},
    {"ring of zero", 16, 8, 0, refused, true},
    {"ring not a power of two", 16, 8, 16384 + 8, refused, true},
    {"ring larger than the file", 16, 8, 32768, refused, true},
    {"site area", 24, 8, 128 * 1024, refused, true},
    {"head not aligned", 128, 8, 41, refused},
    {"head beyond any", 128, 8, ~std::uint64_t{7}, refused},
    {"record: position", kFourth, 2, 121, leftOut},
    {"record: bytes not aligned", kFourth + 20, 2, 41, leftOut},
    {"record: bytes too few", kFourth + 20, 2, 24, leftOut},
    {"record: no bytes", kFourth + 20, 2, 0, leftOut},
    {"record: bytes beyond head", kFourth + 20, 2, 2048, leftOut},
    {"record: values too many", kFourth + 22, 2, 0xffff, leftOut},
    {"record: values too few", kFourth + 22, 2, 9, leftOut},
    {"record: value over the end", kFourth + 24, 2, 9, leftOut},
    {"record: second value over the end", kFourth + 30, 2, 0xffff, leftOut},
    {"record: no site", kFourth + 16, 4, 0, withoutSite},
    {"record: site's middle", kFourth + 16, 4, 2, withoutSite},
    {"record: site beyond the area", kFourth + 16, 4, 0xffffffff, withoutSite},
    {"site: source over the end", kFirstSite + 8, 2, 0xffff, withoutSite},
    {"site: text", kFirstSite + 30, 2, 0xffff, withoutSite},
};

TEST_F(DamagedTrace, Damage_IsLeftOutOrRefused) {
  EXPECT_EQ(read(bytes_).at(3).text(), "row line of bb");
  for (const Damage& damage : kDamages) {
    SCOPED_TRACE(damage.name);
    std::string bytes = bytes_;
    std::memcpy(bytes.data() + damage.offset, &damage.value, damage.bytes);
    const std::uint32_t checksum = Cairn::checksum(bytes.data(), 96);
    if (damage.sealed) std::memcpy(bytes.data() + 96, &checksum, sizeof checksum);
    if (damage.expected == refused) {
      EXPECT_THROW(read(bytes), Cairn::CorruptionDetectedException);
      continue;
    }
    const auto records = read(bytes);
    EXPECT_EQ(records.size(), damage.expected);
    EXPECT_EQ(records.at(3).text(), damage.expected == leftOut ? "row line of aa" : "line bb");
  }
  EXPECT_THROW(read(bytes_.substr(0, bytes_.size() - 1)), Cairn::CorruptionDetectedException);
  EXPECT_THROW(read(bytes_.substr(0, 100)), Cairn::CorruptionDetectedException);
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
