// The VRF tracker: how counts and the map follow the config table, with the traces; and what it leaves alone.
#include "P4RuntimePlugin/VrfSm.h"

#include <locale>
#include <map>

#include "PluginFixture.h"
#include "ScriptedTable.h"

namespace {

using P4Runtime::VrfId;
using P4RuntimeTolmar::VrfSm;
using TolmarHwLib::L3IifTH3Config;
using TolmarHwLib::L3IifTH3ConfigEntry;

using Counts = std::map<unsigned, unsigned>;      // by VRF
using Lines = std::map<std::uint64_t, unsigned>;  // VRF by key

class Vrf : public PluginFixture {
 protected:
  /// An entry that is not valid, which is nothing to the tracker.
  static L3IifTH3ConfigEntry entry(std::uint64_t l3Iif, std::uint16_t vrf) {
    L3IifTH3ConfigEntry result;
    result.l3Iif = l3Iif;
    result.vrf = vrf;
    return result;
  }
  /// A tracker over `table` whose counts start from nothing.
  void make(const VrfSm::L3IifTH3ConfigPtr& table) {
    tracker_ = nullptr;
    vrfIds_ = Quill::allocate<P4Runtime::VrfIdCollection>();
    tracker_ = P4RuntimeTolmar::vrfSmFactory(
        table, Quill::allocate<P4Runtime::PluginContext>(nullptr, nullptr, nullptr, vrfIds_));
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

  ScriptedEntity<L3IifTH3Config> config_{folder_.path()};
  ScriptedEntity<L3IifTH3Config> other_{folder_.path(), "other"};
  Quill::Ptr<P4Runtime::VrfIdCollection> vrfIds_;
  Quill::Ptr<VrfSm> tracker_;
};

constexpr int kGone = -1;
constexpr int kAgain = -2;  // notified once more

struct CountCase {
  const char* name;
  std::vector<std::pair<std::uint64_t, int>> steps;  // key; VRF it is written with, or one of the above
  Counts counts;
  Lines lines;
};

TEST_F(Vrf, Counts_FollowTheNumberOfAddNotifications) {
  constexpr std::uint64_t kHigh = std::uint64_t{1} << 32;
  static const CountCase kCases[] = {
      {"two keys of one VRF", {{1, 5}, {2, 5}}, {{5, 2}}, {{1, 5}, {2, 5}}},
      {"one of two gone", {{1, 5}, {2, 5}, {1, kGone}}, {{5, 1}}, {{2, 5}}},
      {"VRF 0, and gone", {{1, 0}, {1, kGone}}, {}, {}},
      {"largest VRF", {{1, 65535}}, {{65535, 1}}, {{1, 65535}}},
      {"written twice", {{1, 7}, {1, 7}}, {{7, 2}}, {{1, 7}}},
      {"notified again, gone", {{1, 7}, {1, kAgain}, {1, kGone}}, {{7, 1}}, {}},
      {"moved to another VRF", {{1, 5}, {1, 6}}, {{5, 1}, {6, 1}}, {{1, 6}}},
      {"moved and gone", {{1, 5}, {1, 6}, {1, kGone}}, {{5, 1}}, {}},
      {"moved to VRF 0", {{1, 5}, {1, 0}}, {{5, 1}}, {{1, 5}}},
      {"moved to VRF 0 and gone", {{1, 5}, {1, 0}, {1, kGone}}, {}, {}},
      {"gone twice", {{1, 5}, {1, kGone}, {1, kAgain}}, {}, {}},
      {"keys alike in 32 bits", {{1, 5}, {kHigh + 1, 6}, {1, kGone}}, {{6, 1}}, {{kHigh + 1, 6}}},
  };
  for (const CountCase& c : kCases) {
    SCOPED_TRACE(c.name);
    make(config_.entity);
    for (const auto& [key, vrf] : c.steps) {
      if (vrf >= 0) config_.entity->tableIs(entry(key, static_cast<std::uint16_t>(vrf)));
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

TEST_F(Vrf, Start_CountsEveryRowThatIsThereOnceAndAgainOnRequest) {
  for (std::uint16_t i = 1; i <= 100; ++i) config_.entity->tableIs(entry(i, i % 2 == 0 ? 4 : 0));
  make(config_.entity);
  EXPECT_EQ(counts(), (Counts{{4, 50}}));
  EXPECT_EQ(lines().size(), 50u);
  tracker_->hasNotificationActiveIs(false);
  config_.table->onReadIs([this](std::size_t read) {  // in the second row, it and the fourth go
    if (read == 6) config_.entity->tableDel({2});
    if (read == 7) config_.entity->tableDel({4});
  });
  tracker_->handleInitialized();
  EXPECT_EQ(counts(), (Counts{{4, 98}}));
  tracker_->initializedIs(false);
  tracker_->handleL3IifTH3ConfigEntry({6});
  EXPECT_EQ(counts(), (Counts{{4, 98}}));
}

TEST_F(Vrf, Binding_NewTableIsFollowedButNotCounted) {
  other_.entity->tableIs(entry(1, 9));
  make(config_.entity);
  tracker_->l3IifTH3ConfigIs(other_.entity);
  config_.entity->tableIs(entry(2, 5));
  EXPECT_EQ(counts(), Counts{});
  other_.entity->tableIs(entry(2, 9));
  EXPECT_EQ(counts(), (Counts{{9, 1}}));
  tracker_->hasNotificationActiveIs(false);
  other_.entity->tableIs(entry(3, 9));
  tracker_->hasNotificationActiveIs(true);
  tracker_->quillDoZombieReactors(true);
  other_.entity->tableIs(entry(3, 9));
  tracker_->quillDoZombieReactors(false);
  tracker_->l3IifTH3ConfigDel();
  other_.entity->tableIs(entry(3, 9));
  EXPECT_EQ(counts(), (Counts{{9, 1}}));
}

TEST_F(Vrf, Damage_StopsTheWalkAndLeavesTheTrackerAtWork) {
  // At start each of the two rows takes three reads: the walk's step, its presence, its VRF; the 7th is the
  // end of the walk. Then the second row is notified again.
  const std::pair<std::size_t, Counts> cases[] = {{1, {}},       {2, {}},       {3, {}},       {4, {{5, 1}}},
                                                  {6, {{5, 1}}}, {7, {{5, 2}}}, {8, {{5, 1}}}, {9, {{5, 2}}}};
  for (const auto& [read, expected] : cases) {
    SCOPED_TRACE(read);
    ScriptedEntity<L3IifTH3Config> damaged(folder_.path(), "damaged");
    for (const std::uint64_t key : {1u, 2u}) damaged.entity->tableIs(entry(key, 5));
    damaged.table->damageIs(read);
    make(damaged.entity);
    if (read > 7) tracker_->handleL3IifTH3ConfigEntry({2});
    EXPECT_FALSE(damaged.entity->attached());
    EXPECT_EQ(counts(), expected);
  }
}

/// A locale that writes 65000 as 65,000; no trace may.
struct Grouping final : std::numpunct<char> {
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(Vrf, Trace_TextsLinesAndValues) {
  make(config_.entity);
  const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
  const Traces traces(folder_, "VrfSm", 7);
  tracker_->handleInitialized();
  config_.entity->tableIs(entry(1234567, 65000));
  config_.entity->tableIs(entry(2, 0));
  config_.entity->tableDel({1234567});
  const std::string source = "./P4RuntimePlugin/VrfSm";
  const std::string entry = " handleL3IifTH3ConfigEntry: handleL3IifTH3ConfigEntry";
  Log expected = {source + ":40 handleInitialized: handleInitialized",
                  source + ":14" + entry,
                  source + ":17" + entry + "  add key 1234567",
                  source + ":24" + entry + " add vrf 65000 refCount 1",
                  source + ":14" + entry,
                  source + ":17" + entry + "  add key 2",
                  source + ":14" + entry,
                  source + ":27" + entry + " del key 1234567",
                  source + ":32" + entry + " del vrf 65000 refCount 0"};
  std::locale::global(before);
  EXPECT_EQ(traces.ofHandle, expected);
  const char* const values[] = {"", "", "|1234567", "|65000|1", "", "|2", "", "|1234567", "|65000|0"};
  for (std::size_t i = 0; i < expected.size(); ++i) expected[i] += values[i];
  EXPECT_EQ(traces.fast(), expected);
}

}  // namespace
