// The VRF tracker: how counts and the map follow the config table, with the traces; what it leaves alone; and
// the map.
#include "P4RuntimePlugin/VrfSm.h"

#include <gmock/gmock.h>

#include <locale>
#include <map>
#include <random>

#include "PluginFixture.h"
#include "ScriptedTable.h"

namespace {

using P4Runtime::VrfId, P4RuntimeTolmar::VrfSm, TolmarHwLib::L3IifTH3Config, TolmarHwLib::L3IifTH3ConfigEntry;

using Counts = std::map<unsigned, unsigned>;      // by VRF
using Lines = std::map<std::uint64_t, unsigned>;  // VRF by key

class Vrf : public PluginFixture {
 protected:
  using Table = ScriptedEntity<L3IifTH3Config>;

  /// Writes an entry that is not valid, which is nothing to the tracker.
  static void write(const Table& table, std::uint64_t l3Iif, int vrf) {
    L3IifTH3ConfigEntry entry;
    entry.l3Iif = l3Iif;
    entry.vrf = static_cast<std::uint16_t>(vrf);
    table.entity->tableIs(entry);
  }
  /// A tracker over `table` whose counts start from nothing.
  void make(const Table& table) {
    tracker_ = nullptr;
    vrfIds_ = Quill::allocate<P4Runtime::VrfIdCollection>();
    tracker_ = P4RuntimeTolmar::vrfSmFactory(
        table.entity, Quill::allocate<P4Runtime::PluginContext>(nullptr, nullptr, nullptr, vrfIds_));
  }
  Counts counts() const {
    Counts result;
    vrfIds_->forEachVrfId([&result](VrfId id, std::uint32_t count) { result[id.value()] = count; });
    return result;
  }
  Lines lines() const {
    Lines result;
    tracker_->vrfId().forEach([&result](const auto& key, unsigned vrf) { result[key.l3Iif] = vrf; });
    return result;
  }

  Table config_{folder_.path()};
  Quill::Ptr<P4Runtime::VrfIdCollection> vrfIds_;
  Quill::Ptr<VrfSm> tracker_;
};

constexpr int kGone = -1;
constexpr int kAgain = -2;  // notified once more

TEST_F(Vrf, Counts_FollowTheNumberOfAddNotifications) {
  constexpr std::uint64_t kHigh = std::uint64_t{1} << 32;
  const struct {
    const char* name;
    std::vector<std::pair<std::uint64_t, int>> steps;  // key; VRF it is written with, or one of the above
    Counts counts;
    Lines lines;
  } cases[] = {
      {"one of two gone", {{1, 5}, {2, 5}, {1, kGone}}, {{5, 1}}, {{2, 5}}},
      {"VRF 0, and gone", {{1, 0}, {1, kGone}}, {}, {}},
      {"largest VRF", {{1, 65535}}, {{65535, 1}}, {{1, 65535}}},
      {"written twice", {{1, 7}, {1, 7}}, {{7, 2}}, {{1, 7}}},
      {"notified again, gone", {{1, 7}, {1, kAgain}, {1, kGone}}, {{7, 1}}, {}},
      {"moved to another VRF", {{1, 5}, {1, 6}}, {{5, 1}, {6, 1}}, {{1, 6}}},
      {"moved and gone", {{1, 5}, {1, 6}, {1, kGone}}, {{5, 1}}, {}},
      {"moved to VRF 0 and gone", {{1, 5}, {1, 0}, {1, kGone}}, {}, {}},
      {"gone twice", {{1, 5}, {1, kGone}, {1, kAgain}}, {}, {}},
      {"keys alike in 32 bits", {{1, 5}, {kHigh + 1, 6}, {1, kGone}}, {{6, 1}}, {{kHigh + 1, 6}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    make(config_);
    for (const auto& [key, vrf] : c.steps) {
      if (vrf >= 0) write(config_, key, vrf);
      if (vrf == kGone) config_.entity->tableDel({key});
      if (vrf == kAgain) tracker_->handleL3IifTH3ConfigEntry({key});
    }
    EXPECT_EQ(counts(), c.counts);
    EXPECT_EQ(lines(), c.lines);
    tracker_->vrfIdDelAll();
    EXPECT_TRUE(lines().empty());
    tracker_ = nullptr;
    EXPECT_EQ(counts(), c.counts) << "neither gives anything back";
    config_.entity->tableDelAll();
  }
}

TEST_F(Vrf, Binding_NewTableIsFollowedButCountedOnRequestOnly) {
  Table other(folder_.path(), "other");
  write(other, 1, 9);
  make(config_);
  tracker_->l3IifTH3ConfigIs(other.entity);
  write(config_, 2, 5);
  EXPECT_EQ(counts(), Counts{});
  tracker_->handleInitialized();
  write(other, 2, 9);
  tracker_->hasNotificationActiveIs(false);
  write(other, 3, 5);
  tracker_->hasNotificationActiveIs(true);
  tracker_->quillDoZombieReactors(true);
  write(other, 3, 5);
  tracker_->quillDoZombieReactors(false);
  tracker_->l3IifTH3ConfigDel();
  write(other, 3, 5);
  EXPECT_EQ(counts(), (Counts{{9, 2}}));
  for (const bool walks : {false, true}) {
    tracker_->l3IifTH3ConfigIs(config_.entity);
    config_.table->onReadIs(1, [this] {
      tracker_->l3IifTH3ConfigDel();
      EXPECT_EQ(config_.entity->references(), 2u) << "the table is held while it is read";
    });
    walks ? tracker_->handleInitialized() : tracker_->handleL3IifTH3ConfigEntry({2});
  }
}

TEST_F(Vrf, Damage_StopsTheWalkAndLeavesTheTrackerAtWork) {
  // At start each of the two rows takes three reads: the walk's step, its presence, its VRF; the 7th is the
  // end of the walk. Then the second row is notified again.
  const Counts none, one{{5, 1}}, two{{5, 2}};
  const Counts counted[] = {none, none, none, one, one, one, two, one, two};
  for (std::size_t read = 1; read <= std::size(counted); ++read) {
    SCOPED_TRACE(read);
    Table damaged(folder_.path(), "damaged");
    for (const std::uint64_t key : {1u, 2u}) write(damaged, key, 5);
    damaged.table->damageIs(read);
    make(damaged);
    if (read > 7) tracker_->handleL3IifTH3ConfigEntry({2});
    EXPECT_FALSE(damaged.entity->attached());
    EXPECT_THAT(damaged.logged, testing::HasSubstr("/damaged row 3: bad checksum"));
    EXPECT_EQ(counts(), counted[read - 1]);
  }
}

/// Ends with the tracker that counts in it, and calls `onEnd` then.
struct LastCounts final : P4Runtime::VrfIdCollection {
  std::function<void()> onEnd;
  ~LastCounts() override { onEnd(); }
};

TEST_F(Vrf, End_FollowsNoTableWhileTheTrackerReleasesTheRest) {
  auto last = Quill::allocate<LastCounts>();
  last->onEnd = [this] { EXPECT_TRUE(config_.entity->notifieeList().empty()); };
  make(config_);
  tracker_->vrfIdCollectionIs(std::exchange(last, nullptr));
  tracker_ = nullptr;
}

/// A locale that writes 65000 as 65,000; no trace may.
struct Grouping final : std::numpunct<char> {
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(Vrf, Trace_TextsLinesAndValues) {
  make(config_);
  const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
  traceIs("VrfSm", 7);
  tracker_->handleInitialized();
  write(config_, 1234567, 65000);
  write(config_, 2, 0);
  config_.entity->tableDel({1234567});
  tracker_->initializedIs(false);
  write(config_, 3, 6);  // neither counted nor traced
  std::locale::global(before);
  EXPECT_EQ(counts(), Counts{});
  const std::string source = "./P4RuntimePlugin/VrfSm";
  const std::string entry = " handleL3IifTH3ConfigEntry: handleL3IifTH3ConfigEntry";
  Log expected = {source + ":40 handleInitialized: handleInitialized",
                  source + ":14" + entry,
                  source + ":17" + entry + "  add key 1234567|1234567",
                  source + ":24" + entry + " add vrf 65000 refCount 1|65000|1",
                  source + ":14" + entry,
                  source + ":17" + entry + "  add key 2|2",
                  source + ":14" + entry,
                  source + ":27" + entry + " del key 1234567|1234567",
                  source + ":32" + entry + " del vrf 65000 refCount 0|65000|0"};
  EXPECT_EQ(fastTrace(), expected);
  for (std::string& line : expected) line = line.substr(0, line.find('|')) + " at 7";
  EXPECT_EQ(taken(), expected);
}

TEST(VrfIds, Counts_NeverFallBelowNothing) {
  const auto vrfs = Quill::allocate<P4Runtime::VrfIdCollection>();
  vrfs->vrfIdRefCountInc(VrfId(65535), 3);
  EXPECT_EQ(vrfs->vrfIdRefCountDec(VrfId(65535), 5), 0u);
  EXPECT_EQ(vrfs->vrfIds(), 0u);
}

/// A hash with few values, so that chains are long.
struct Node {
  using Key = unsigned;
  using Value = unsigned;
  static std::uint32_t hash(unsigned key) { return key % 7; }
  Key key;
  Value value;
};

TEST(HashMap, RandomChanges_AgreeWithAnOrderedMap) {
  std::mt19937 random(2018);
  Quill::HashMap2018<Node> map;
  std::map<unsigned, unsigned> expected;
  for (unsigned step = 0; step < 20000; ++step) {
    const auto key = static_cast<unsigned>(random() % 200);
    const unsigned* const found = map.find(key);
    const auto known = expected.find(key);
    ASSERT_EQ(found == nullptr, known == expected.end());
    ASSERT_TRUE(found == nullptr || *found == known->second);
    if (random() % 2 == 0) {
      map.set(key, step);
      expected[key] = step;
    } else {
      ASSERT_EQ(map.del(key), expected.erase(key) == 1);
    }
    ASSERT_EQ(map.size(), expected.size());
  }
  for (auto at = map.first(); at.nonNull(); at.next()) {
    EXPECT_EQ(expected.at(at.key()), at.value());
    expected.erase(at.key());
  }
  EXPECT_TRUE(expected.empty());
}

}  // namespace
