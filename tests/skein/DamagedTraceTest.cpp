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
  template <class Value>
  std::vector<Skein::TraceRecord> readWith(std::size_t offset, Value value, bool sealed = false) const {
    std::string bytes = bytes_;
    std::memcpy(bytes.data() + offset, &value, sizeof value);
    const std::uint32_t checksum = Cairn::checksum(bytes.data(), 96);
    if (sealed) std::memcpy(bytes.data() + 96, &checksum, sizeof checksum);
    return read(bytes);
  }

  std::string bytes_;  // of the intact file
};

TEST_F(DamagedTrace, Header_IsRefused) {
  static constexpr struct {
    const char* name;
    std::size_t offset;
    std::uint64_t value;
    bool sealed = false;
  } kCases[] = {{"magic", 0, 0x1234},
                {"version", 8, 2, true},
                {"pid changed", 12, 1},
                {"ring of zero", 16, 0, true},
                {"ring not a power of two", 16, 16384 + 8, true},
                {"ring larger than the file", 16, 32768, true},
                {"site area", 24, 128 * 1024, true},
                {"head not aligned", 128, 41},
                {"head beyond any", 128, ~std::uint64_t{7}}};
  for (const auto& c : kCases) {
    EXPECT_THROW(readWith(c.offset, c.value, c.sealed), Cairn::CorruptionDetectedException) << c.name;
  }
  EXPECT_THROW(read(bytes_.substr(0, bytes_.size() - 1)), Cairn::CorruptionDetectedException);
  EXPECT_THROW(read(bytes_.substr(0, 100)), Cairn::CorruptionDetectedException);
  EXPECT_THROW(Skein::readTrace("/dev/null"), Cairn::CorruptionDetectedException);
  EXPECT_THROW(Skein::readTrace(folder_.path()), Cairn::Exception);
}

TEST_F(DamagedTrace, Record_IsLeftOutAndTheOthersRead) {
  EXPECT_EQ(read(bytes_).at(3).text(), "row line of bb");
  static constexpr struct {
    const char* name;
    std::size_t offset;  // in the fourth record, which stands at 120
    std::uint16_t value;
  } kCases[] = {{"position", 0, 121},
                {"bytes not aligned", 20, 41},
                {"bytes too few", 20, 24},
                {"bytes too many", 20, 0},
                {"bytes beyond head", 20, 2048},
                {"values too many", 22, 0xffff},
                {"values too few", 22, 9},
                {"value over the end", 24, 9},
                {"value longest", 24, 0xfffe},
                {"number over the end", 30, 0xffff}};
  for (const auto& c : kCases) {
    EXPECT_EQ(readWith(kRecordArea + 120 + c.offset, c.value).size(), 9u) << c.name;
  }
}

TEST_F(DamagedTrace, Site_IsLeftOutAndTheRecordRead) {
  for (const std::size_t offset : {0u, 4u, 8u, 10u, 12u, 16u, 30u}) {
    const auto records = readWith(Braid::kPageBytes + offset, std::uint16_t{0xffff});
    ASSERT_EQ(records.size(), 10u) << offset;
    EXPECT_EQ(records[0].site->format, "") << offset;
    EXPECT_EQ(records[0].text(), "line aa") << offset;
  }
  for (const std::uint32_t number : {0u, 2u, 8192u, 8193u, 0xffffffffu}) {
    EXPECT_EQ(readWith(kRecordArea + 16, number).at(0).site->source, "") << number;
  }
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
      continue;
    }
  }
}

}  // namespace
