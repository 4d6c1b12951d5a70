// The VRF tracker: how counts and the map follow the config table, with the traces; and what it leaves alone.
#include "P4RuntimePlugin/VrfSm.h"

#include <map>

#include "PluginFixture.h"
#include "ScriptedTable.h"
#include "orrery/EntityManager.h"

namespace {

using P4Runtime::VrfId;
using P4RuntimeTolmar::VrfSm;
using TolmarHwLib::L3IifTH3Config;
using TolmarHwLib::L3IifTH3ConfigEntry;
using TolmarHwLib::L3IifTH3Key;

using Counts = std::map<unsigned, unsigned>;      // by VRF
using Lines = std::map<std::uint64_t, unsigned>;  // VRF by key

L3IifTH3ConfigEntry entry(std::uint64_t l3Iif, std::uint16_t vrf, bool valid = true) {
  L3IifTH3ConfigEntry result;
  result.l3Iif = l3Iif;
  result.vrf = vrf;
  result.valid = valid;
  return result;
}

class Vrf : public PluginFixture {
 protected:
  void SetUp() override { make(); }
  void TearDown() override {
    tracker_ = nullptr;
    config_.entity = nullptr;
    other_.entity = nullptr;
    context_ = nullptr;
    vrfs_ = nullptr;
    PluginFixture::TearDown();
  }

  void make() {
    vrfs_ = Quill::allocate<P4Runtime::VrfIdCollection>();
    context_ = Quill::allocate<P4Runtime::PluginContext>(nullptr, nullptr, nullptr, vrfs_);
    tracker_ = VrfSm::VrfSmIs(config_.entity, context_);
  }
  Counts counts() const {
    Counts result;
    vrfs_->forEachVrfId([&result](VrfId id, std::uint32_t count) { result[id.value()] = count; });
    return result;
  }
  Lines lines() const {
    Lines result;
    for (auto line = tracker_->vrfIdIterator(); line.nonNull(); line.next())
      result[line.key().l3Iif] = line.value();
    return result;
  }

  ScriptedEntity<L3IifTH3Config> config_{folder_.path()};
  ScriptedEntity<L3IifTH3Config> other_{folder_.path(), "other"};
  Quill::Ptr<P4Runtime::VrfIdCollection> vrfs_;
  Quill::Ptr<P4Runtime::PluginContext> context_;
  Quill::Ptr<VrfSm> tracker_;
};

struct Step {
  enum { add, addInvalid, del, notify } what;
  std::uint64_t l3Iif;
  std::uint16_t vrf;
};

struct CountCase {
  const char* name;
  std::vector<Step> steps;
  Counts counts;
  Lines lines;
};

TEST_F(Vrf, Counts_FollowTheNumberOfAddNotifications) {
  constexpr std::uint64_t kHigh = std::uint64_t{1} << 32;
  static const CountCase kCases[] = {
      {"two keys of one VRF", {{Step::add, 1, 5}, {Step::add, 2, 5}}, {{5, 2}}, {{1, 5}, {2, 5}}},
      {"one of two gone", {{Step::add, 1, 5}, {Step::add, 2, 5}, {Step::del, 1, 0}}, {{5, 1}}, {{2, 5}}},
      {"both gone", {{Step::add, 1, 5}, {Step::add, 2, 5}, {Step::del, 1, 0}, {Step::del, 2, 0}}, {}, {}},
      {"VRF 0", {{Step::add, 1, 0}}, {}, {}},
      {"VRF 0 gone", {{Step::add, 1, 0}, {Step::del, 1, 0}}, {}, {}},
      {"largest VRF", {{Step::add, 1, 65535}}, {{65535, 1}}, {{1, 65535}}},
      {"not valid, yet present", {{Step::addInvalid, 1, 7}}, {{7, 1}}, {{1, 7}}},
      {"written twice", {{Step::add, 1, 7}, {Step::add, 1, 7}}, {{7, 2}}, {{1, 7}}},
      {"written twice, gone", {{Step::add, 1, 7}, {Step::add, 1, 7}, {Step::del, 1, 0}}, {{7, 1}}, {}},
      {"notified again", {{Step::add, 1, 7}, {Step::notify, 1, 0}}, {{7, 2}}, {{1, 7}}},
      {"moved to another VRF", {{Step::add, 1, 5}, {Step::add, 1, 6}}, {{5, 1}, {6, 1}}, {{1, 6}}},
      {"moved and gone", {{Step::add, 1, 5}, {Step::add, 1, 6}, {Step::del, 1, 0}}, {{5, 1}}, {}},
      {"moved to VRF 0", {{Step::add, 1, 5}, {Step::add, 1, 0}}, {{5, 1}}, {{1, 5}}},
      {"moved to VRF 0 and gone", {{Step::add, 1, 5}, {Step::add, 1, 0}, {Step::del, 1, 0}}, {}, {}},
      {"never seen, gone", {{Step::notify, 9, 0}}, {}, {}},
      {"gone twice", {{Step::add, 1, 5}, {Step::del, 1, 0}, {Step::notify, 1, 0}}, {}, {}},
      {"keys alike in 32 bits",
       {{Step::add, 1, 5}, {Step::add, kHigh + 1, 6}, {Step::del, 1, 0}},
       {{6, 1}},
       {{kHigh + 1, 6}}},
  };
  for (const CountCase& c : kCases) {
    SCOPED_TRACE(c.name);
    make();
    for (const Step& step : c.steps) {
      if (step.what == Step::del) {
        config_.entity->tableDel({step.l3Iif});
      } else if (step.what == Step::notify) {
        tracker_->handleL3IifTH3ConfigEntry({step.l3Iif});
      } else {
        config_.entity->tableIs(entry(step.l3Iif, step.vrf, step.what == Step::add));
      }
    }
    EXPECT_EQ(counts(), c.counts);
    EXPECT_EQ(lines(), c.lines);
    tracker_ = nullptr;
    config_.entity->tableDelAll();
  }
}

TEST_F(Vrf, Start_CountsEveryRowThatIsThereOnceAndAgainOnRequest) {
  tracker_ = nullptr;
  for (std::uint16_t i = 1; i <= 100; ++i) config_.entity->tableIs(entry(i, i % 2 == 0 ? 4 : 0));
  make();
  EXPECT_EQ(counts(), (Counts{{4, 50}}));
  EXPECT_EQ(lines().size(), 50u);
  tracker_->handleInitialized();
  EXPECT_EQ(counts(), (Counts{{4, 100}}));
}

TEST_F(Vrf, Start_IgnoresNotificationsUntilInitialized) {
  tracker_->initializedIs(false);
  HandleLines handle("VrfSm", 7);
  config_.entity->tableIs(entry(1, 5));
  EXPECT_TRUE(handle.lines.empty());
  EXPECT_TRUE(counts().empty());
}

TEST_F(Vrf, End_GivesNothingBack) {
  config_.entity->tableIs(entry(1, 5));
  tracker_ = nullptr;
  EXPECT_EQ(counts(), (Counts{{5, 1}}));
  EXPECT_TRUE(config_.entity->notifieeList().empty());
}

TEST_F(Vrf, Map_ChangedByHandTouchesNoCount) {
  config_.entity->tableIs(entry(1, 5));
  tracker_->vrfIdIs({1}, 6);
  tracker_->vrfIdIs({2}, 7);
  tracker_->vrfIdDel({3});
  EXPECT_EQ(lines(), (Lines{{1, 6}, {2, 7}}));
  tracker_->vrfIdDelAll();
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(counts(), (Counts{{5, 1}}));
}

TEST_F(Vrf, Binding_NewTableIsFollowedButNotCounted) {
  other_.entity->tableIs(entry(1, 9));
  config_.entity->tableIs(entry(1, 5));
  tracker_->l3IifTH3ConfigIs(other_.entity);
  EXPECT_EQ(counts(), (Counts{{5, 1}}));
  config_.entity->tableIs(entry(2, 5));
  other_.entity->tableIs(entry(2, 9));
  EXPECT_EQ(counts(), (Counts{{5, 1}, {9, 1}}));
  tracker_->l3IifTH3ConfigDel();
  other_.entity->tableIs(entry(3, 9));
  EXPECT_EQ(counts(), (Counts{{5, 1}, {9, 1}}));
  tracker_->l3IifTH3ConfigIs(config_.entity);
  tracker_->quillDoZombieReactors(true);
  config_.entity->tableIs(entry(4, 5));
  EXPECT_EQ(counts(), (Counts{{5, 1}, {9, 1}}));
}

TEST_F(Vrf, Damage_StopsTheWalkAndLeavesTheTrackerAtWork) {
  struct Case {
    const char* name;
    std::size_t read;  // at start, each row takes three: the walk's step, its presence, its VRF
    Counts counts;
  };
  static const Case kCases[] = {{"first row", 1, {}},
                                {"presence of the first row", 2, {}},
                                {"VRF of the first row", 3, {}},
                                {"step to the second row", 4, {{5, 1}}},
                                {"VRF of the second row", 6, {{5, 1}}},
                                {"end of the walk", 7, {{5, 2}}}};
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    ScriptedEntity<L3IifTH3Config> damaged(folder_.path(), "damaged");
    for (const std::uint64_t key : {1u, 2u}) damaged.entity->tableIs(entry(key, 5));
    damaged.table->reads = 0;
    damaged.table->damagedAtRead = c.read;
    make();
    const auto tracker = VrfSm::VrfSmIs(damaged.entity, context_);
    EXPECT_FALSE(damaged.entity->attached());
    EXPECT_EQ(counts(), c.counts);
    EXPECT_TRUE(tracker->hasNotificationActive());
  }
}

TEST_F(Vrf, Trace_TextsLinesAndValues) {
  const FastTrace fast(folder_);
  HandleLines handle("VrfSm", 7);
  tracker_->handleInitialized();
  config_.entity->tableIs(entry(1, 5));
  config_.entity->tableIs(entry(2, 0));
  config_.entity->tableDel({1});
  struct Expected {
    int line;
    std::string function;
    std::string text;
    std::vector<std::string> values;
  };
  const std::string f = "handleL3IifTH3ConfigEntry";
  const std::vector<Expected> expected = {
      {40, "handleInitialized", "handleInitialized", {}},
      {14, f, f, {}},
      {17, f, f + "  add key 1", {"1"}},
      {24, f, f + " add vrf 5 refCount 1", {"5", "1"}},
      {14, f, f, {}},
      {17, f, f + "  add key 2", {"2"}},
      {14, f, f, {}},
      {27, f, f + " del key 1", {"1"}},
      {32, f, f + " del vrf 5 refCount 0", {"5", "0"}},
  };
  const auto records = fast.records();
  ASSERT_EQ(handle.lines.size(), expected.size());
  ASSERT_EQ(records.size(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    SCOPED_TRACE(i);
    const Expected& e = expected[i];
    EXPECT_EQ(handle.lines[i],
              (TraceLine{"VrfSm", 7, "./P4RuntimePlugin/VrfSm", e.line, e.function, e.text}));
    EXPECT_EQ(records[i].text(), e.text);
    EXPECT_EQ(records[i].values, e.values);
    EXPECT_EQ(records[i].site->source, "./P4RuntimePlugin/VrfSm");
    EXPECT_EQ(records[i].site->line, static_cast<std::uint32_t>(e.line));
    EXPECT_EQ(records[i].site->function, e.function);
  }
}

}  // namespace
