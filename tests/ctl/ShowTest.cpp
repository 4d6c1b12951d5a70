// tolmarctl show and diff over real segments, with a hardware agent that runs, is stopped and is killed.
#include <nlohmann/json.hpp>

#include "CtlFixture.h"
#include "apps/ctl/Tables.h"
#include "cairn/Hash.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class ShowTest : public CtlTest {
 protected:
  /// Every state of an entry; the hardware agent is stopped at the end.
  void fill() {
    startWith({1, 2, 4, 98, 99}, {"--fail", "l3IifTH3:l3Iif=98:7", "--fail", "l3IifTH3:l3Iif=99:8"});
    hardware_->signal(SIGSTOP);
    put(2, 20, 1);
    put(3, 30);
    remove(4);
    Agent::BeforeImages images(path() + "/p4rt-agent.undo", {.batches = 8, .records = 8, .rowBytes = 200});
    const auto undecided = images.begin();
    images.add(undecided, 3, true, rowOf(entryOf(2, 10)));
    images.add(undecided, 3, false, rowOf(entryOf(98, 10)));
    const auto decided = images.begin();
    images.add(decided, 3, false, rowOf(entryOf(1, 10)));
    images.decide(decided);
  }
  static Lumen::BaseRow rowOf(const Config& entry) {
    using Layout = TolmarHwLib::RowLayout<Config>;
    Lumen::BaseRow row = Lumen::BaseRow::fromBytes(std::vector<std::byte>(Layout::kFixedLength));
    row.clear(Layout::kFixedLength);
    TolmarHwLib::forEachIndex<Layout::kCount>([&]<std::size_t I>() {
      row.setColumn(Layout::kOffsets[I], entry.*std::get<I>(Layout::kColumns).member, Layout::kFixedLength);
    });
    return row;
  }
};

const std::string kHead = "l3IifTH3: 5 config and 5 status rows of 8192; ";
const std::string kProgrammed =
    R"(  l3Iif=1   programmed                                  handle=# config genId=# vrf=10; status genId=#
)";
const std::string kDifferent =
    R"(  l3Iif=2   pending for at most AGE, undecided         handle=# config genId=# vrf=20; status genId=#; before genId=# vrf=10
  l3Iif=3   pending for at most AGE                    handle=# config genId=# vrf=30
  l3Iif=4   status without config for at most AGE      status handle=# genId=#
  l3Iif=98  failed for at most AGE, code 7, undecided  handle=# config genId=# vrf=10; status genId=# errorCode=7; before no entry
  l3Iif=99  not programmed for at most AGE, code 8     handle=# config genId=# vrf=10; status genId=# errorCode=8
)";

TEST_F(ShowTest, Show_EveryStateOfAnEntry) {
  fill();
  const std::string head = kHead + "p4rt-agent PID running, hw-agent PID stopped by a signal\n";
  EXPECT_EQ(run({"diff"}), (Result{1, head + kDifferent + "5 of 6 entries differ\n"}));
  EXPECT_EQ(run({"show", "l3IifTH3"}), (Result{0, head + kProgrammed + kDifferent}));
  kill();
  config_.reset();
  const auto before = files();
  EXPECT_EQ(run({"diff", "l3IifTH3"}).text,
            kHead + "p4rt-agent not writing, hw-agent PID killed\n" + kDifferent + "5 of 6 entries differ\n");
  EXPECT_EQ(run({"diff", "--key", "l3Iif=0x1"}), (Result{0, "0 of 1 entries differ\n"}));
  const auto json = nlohmann::json::parse(runIn(path(), {"show", "--json", "--key", "l3Iif=2"}).text);
  EXPECT_EQ(files(), before);
  const auto& entry = json["tables"][0]["entries"][0];
  EXPECT_EQ(json["tables"].size(), 1u);
  EXPECT_EQ(entry["key"].dump() + entry["state"].dump() + entry["undecided"].dump(),
            R"({"l3Iif":2}"pending"true)");
  EXPECT_EQ(
      entry["config"]["vrf"].dump() + entry["config"]["intEnable"].dump() + entry["before"]["vrf"].dump(),
      "20false10");
}

// Each leaves the folder as it was.
TEST_F(ShowTest, Show_SaysWhatIsWrongWithTheFolder) {
  fill();
  kill();
  config_.reset();
  const std::string status = segment("status");
  const std::string version5 = files()[status];
  const auto written = [&](std::size_t word, std::uint64_t value) {
    std::string bytes = version5;
    std::memcpy(&bytes[word * 8], &value, 8);
    return bytes;
  };
  std::string older = written(Vesta::kVersionAt, 4);
  const std::uint64_t check =
      Vesta::sealed(Cairn::checksum(older.data(), Vesta::kHeaderCheckAt * 8), Vesta::kHeaderCheckAt);
  std::memcpy(&older[Vesta::kHeaderCheckAt * 8], &check, 8);
  const Vesta::Layout layout(Vesta::shapeOf<Key, TolmarHwLib::L3IifTH3StatusEntry>(8192));
  const struct {
    std::string bytes;
    const char* text;
    int rows;
  } rows[] = {
      {older,
       "DAMAGED p4runtime/outputTables/tolmar/l3IifTH3Table/status/table: layout version: expected 0x5, "
       "found 0x4\n",
       0},
      {written(layout.slotAt(0) + 2, 77), ": slot 0 version ", 4},
      {written(Vesta::kMagicAt, 0), ": header: expected magic ", 5},
      {version5.substr(0, version5.size() / 2), ": size: expected ", 5},
      {"short", ": size: expected ", 0},
  };
  for (const auto& row : rows) {
    std::ofstream(status, std::ios::binary) << row.bytes;
    const auto before = files();
    for (const char* const command : {"show", "diff"}) {
      const auto result = run({command, "l3IifTH3"});
      EXPECT_EQ(result.code, 2);
      EXPECT_THAT(result.text, HasSubstr(row.text));
      EXPECT_THAT(result.text, HasSubstr("5 config and " + std::to_string(row.rows) + " status rows"));
    }
    EXPECT_EQ(files(), before);
  }
  std::filesystem::remove(status);
  const auto missing = run({"diff", "l3IifTH3"});
  EXPECT_EQ(missing.code, 2);
  EXPECT_THAT(missing.text, HasSubstr("MISSING " + l3Iif("status") + "/table\n"));
  std::filesystem::remove_all(path() + "/p4runtime/outputTables");
  EXPECT_THAT(run({"show"}).text,
              StartsWith("tolmarctl: runtime folder FOLDER: no table in it, expected p4runtime/"));
  std::filesystem::remove_all(path() + "/p4runtime");
  for (const char* const file : {"hw-agent.trace", "p4rt-agent.undo"})
    std::filesystem::remove(path() + "/" + file);
  EXPECT_THAT(run({"check"}).text, HasSubstr("hw-agent.counters: "));
  std::filesystem::remove(path() + "/hw-agent.counters");
  EXPECT_THAT(run({"show"}).text, StartsWith("tolmarctl: runtime folder FOLDER: neither tables (p4runtime/"));
  EXPECT_EQ(run({"show"}).code, 2);
  EXPECT_EQ(runIn("/dev/shm/no-such", {"show"}).text,
            "tolmarctl: runtime folder /dev/shm/no-such: there is none; neither program has run with it "
            "(--runtime-folder DIR)\n");
  EXPECT_TRUE(files().empty());
}

TEST_F(ShowTest, Arguments_AreCheckedAndExplained) {
  startHardware();
  const struct {
    Strings arguments;
    const char* text;
  } rows[] = {
      {{}, "tolmarctl: expected a command (show, diff, explain, "},
      {{"foo"}, ", clean), got \"foo\"\n"},
      {{"metrics", "--listen", ""}, "tolmarctl: --listen: expected a value, got an empty one\n"},
      {{"trace", "--since=", "--follow"}, "tolmarctl: --since: expected a value, got an empty one\n"},
      {{"show", "no"},
       "expected a table of l3TunnelIpv4TH3, l3TunnelIpv6TH3, myStationTcamTH3, l3IifTH3, got \"no\""},
      {{"show", "--key", "vrf=1"}, "expected a key field of the selected tables, got \"vrf\""},
      {{"show", "l3IifTH3", "--key", "sip=1"}, "expected a key field of the selected tables, got \"sip\""},
      {{"explain", "l3IifTH3", "l3Iif=6"}, "l3IifTH3: expected the key of one entry, found 0 with it"},
      {{"trace", "--since", "soon"}, "expected a time such as"},
      {{"metrics", "--listen", "localhost:80"}, "--listen: expected ADDRESS:PORT, got \"localhost:80\""},
      {{"diff", "--key", "l3Iif"}, "expected FIELD=VALUE, got \"l3Iif\""},
      {{"diff", "--key", "sip=1.2.3"}, "column \"sip\": expected an IPv4 or IPv6 address"},
  };
  for (const auto& row : rows) {
    const auto result = run(row.arguments);
    EXPECT_EQ(result.code, 2);
    EXPECT_THAT(result.text, HasSubstr(row.text));
  }
}

// Words of both segments, zeroed, set to their maximum and with a bit flipped: an answer or an error.
TEST_F(ShowTest, Hostile_SegmentsAreReadToTheEnd) {
  fill();
  hardware_.reset();
  config_.reset();
  const Ctl::Folder folder(path());
  std::uint64_t random = 1;
  for (const char* const side : {"config", "status"}) {
    std::fstream file(segment(side), std::ios::in | std::ios::out | std::ios::binary);
    std::uint64_t word = 0;
    const std::size_t words = std::filesystem::file_size(segment(side)) / 8;
    for (int step = 0; step < 150; ++step) {
      random = random * 6364136223846793005u + 1442695040888963407u;
      // Half of them in the first pages and the first slots.
      const Vesta::Layout layout(Vesta::shapeOf<Key, Config>(8192));
      const std::size_t at = step % 4 == 0   ? (random >> 33) % words
                             : step % 4 == 1 ? (random >> 33) % 2048
                                             : layout.slotAt(0) + (random >> 33) % 200;
      const auto place = static_cast<std::streamoff>(at * 8);
      file.seekg(place).read(reinterpret_cast<char*>(&word), 8);
      const std::uint64_t intact = word;
      for (const std::uint64_t value :
           {std::uint64_t{0}, ~std::uint64_t{0}, intact ^ std::uint64_t{1} << (random >> 58), intact}) {
        word = value;
        file.seekp(place).write(reinterpret_cast<const char*>(&word), 8).flush();
        const Ctl::Table table = Ctl::readTables(folder, {{"l3IifTH3"}, {}}).front();
        EXPECT_LE(table.config.rows, 5u);
        EXPECT_LE(table.entries.size(), 6u);
      }
    }
  }
}

}  // namespace
