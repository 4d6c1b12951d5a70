// Ring files as hostile input: whatever the bytes, the reader ends, stays in bounds and says so.
#include <random>

#include "RingFixture.h"
#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace {

constexpr std::size_t kRecordArea = Braid::kPageBytes + Braid::kSiteAreaBytes;

class DamagedTrace : public RingFixture {
 protected:
  void SetUp() override {
    RingFixture::SetUp();
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
    ASSERT_EQ(bytes_.size(), kRecordArea + kSmallRing);
  }

  template <class Value>
  void overwrite(std::size_t offset, Value value) {
    std::memcpy(bytes_.data() + offset, &value, sizeof value);
  }
  void sealHeader() { overwrite(96, Cairn::checksum(bytes_.data(), 96)); }
  std::vector<Skein::TraceRecord> read() {
    std::ofstream(path("damaged"), std::ios::binary)
        .write(bytes_.data(), static_cast<std::streamsize>(bytes_.size()));
    return Skein::readTrace(path("damaged"));
  }

  std::string bytes_;
};

TEST_F(DamagedTrace, Intact_IsReadWhole) {
  const auto records = read();
  ASSERT_EQ(records.size(), 10u);
  EXPECT_EQ(records[3].text(), "row line of bb");
}

struct HeaderCase {
  const char* name;
  std::size_t offset;
  std::uint64_t value;
  bool sealed;
};

TEST_F(DamagedTrace, Header_IsRefused) {
  static constexpr HeaderCase kCases[] = {
      {"magic", 0, 0x1234, false},
      {"version", 8, 2, true},
      {"checksum", 96, 0, false},
      {"pid changed", 12, 1, false},
      {"ring of zero", 16, 0, true},
      {"ring not a power of two", 16, 16384 + 8, true},
      {"ring larger than the file", 16, 32768, true},
      {"ring of all ones", 16, ~std::uint64_t{0}, true},
      {"ring larger than allowed", 16, std::uint64_t{1} << 40, true},
      {"site area", 24, 128 * 1024, true},
      {"head not aligned", 128, 41, false},
      {"head beyond any", 128, ~std::uint64_t{7}, false},
  };
  const std::string intact = bytes_;
  for (const HeaderCase& c : kCases) {
    SCOPED_TRACE(c.name);
    bytes_ = intact;
    overwrite(c.offset, c.value);
    if (c.sealed) sealHeader();
    EXPECT_THROW(read(), Cairn::CorruptionDetectedException);
  }
  bytes_ = intact.substr(0, intact.size() - 1);
  EXPECT_THROW(read(), Cairn::CorruptionDetectedException);
  bytes_ = intact.substr(0, 100);
  EXPECT_THROW(read(), Cairn::CorruptionDetectedException);
  EXPECT_THROW(Skein::readTrace("/dev/null"), Cairn::CorruptionDetectedException);
  EXPECT_THROW(Skein::readTrace(folder_), Cairn::Exception);
}

struct RecordCase {
  const char* name;
  std::size_t offset;  // in the fourth record, which stands at 120
  std::uint16_t value;
};

TEST_F(DamagedTrace, Record_IsLeftOutAndTheOthersRead) {
  static constexpr RecordCase kCases[] = {
      {"position", 0, 121},      {"bytes not aligned", 20, 41},   {"bytes too few", 20, 24},
      {"bytes too many", 20, 0}, {"bytes beyond head", 20, 2048}, {"values too many", 22, 0xffff},
      {"values too few", 22, 9}, {"value over the end", 24, 9},   {"value longest", 24, 0xffff},
  };
  const std::string intact = bytes_;
  for (const RecordCase& c : kCases) {
    SCOPED_TRACE(c.name);
    bytes_ = intact;
    overwrite(kRecordArea + 120 + c.offset, c.value);
    EXPECT_EQ(read().size(), 9u);
  }
}

TEST_F(DamagedTrace, Site_IsLeftOutAndTheRecordRead) {
  const std::string intact = bytes_;
  for (const std::size_t offset : {0u, 4u, 8u, 10u, 12u, 16u, 30u}) {
    SCOPED_TRACE(offset);
    bytes_ = intact;
    overwrite(Braid::kPageBytes + offset, std::uint16_t{0xffff});
    const auto records = read();
    ASSERT_EQ(records.size(), 10u);
    EXPECT_EQ(records[0].site->format, "");
    EXPECT_EQ(records[0].text(), "line aa");
  }
  for (const std::uint32_t number : {0u, 2u, 8192u, 8193u, 0xffffffffu}) {
    SCOPED_TRACE(number);
    bytes_ = intact;
    overwrite(kRecordArea + 16, number);
    EXPECT_EQ(read()[0].site->source, "");
  }
}

TEST_F(DamagedTrace, RandomBytes_NeverLeadAstray) {
  std::mt19937 random(20);
  const std::string intact = bytes_;
  const std::size_t places[] = {128, Braid::kPageBytes, kRecordArea};
  for (int round = 0; round < 500; ++round) {
    bytes_ = intact;
    for (int i = 0; i < 4; ++i) {
      const std::size_t at = places[random() % 3] + random() % 400;
      bytes_[at] = static_cast<char>(random());
    }
    try {
      for (const auto& record : read()) EXPECT_LE(record.text().size(), 4u * 2048);
    } catch (const Cairn::CorruptionDetectedException&) {
      continue;
    }
  }
}

}  // namespace
