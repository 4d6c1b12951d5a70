// The agent's side: the hash map under its collections, batch status and VRF id counts.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <random>

#include "p4runtime/BatchStatus.h"
#include "p4runtime/VrfIdCollection.h"
#include "quill/HashMap2018.h"

namespace {

using P4Runtime::BatchStatusEntry;
using P4Runtime::VrfId;

/// A hash that tells few keys apart, so that chains are long.
struct Node {
  using Key = int;
  using Value = std::string;
  static std::uint32_t hash(int key) { return static_cast<std::uint32_t>(key) % 7; }
  Key key;
  Value value;
};

std::map<int, std::string> contents(Quill::HashMap2018<Node>& map) {
  std::map<int, std::string> result;
  for (auto at = map.first(); at.nonNull(); at.next())
    EXPECT_TRUE(result.emplace(at.key(), at.value()).second);
  return result;
}

TEST(HashMap, RandomChanges_AgreeWithAnOrderedMap) {
  std::mt19937 random(2018);
  Quill::HashMap2018<Node> map;
  std::map<int, std::string> expected;
  for (int step = 0; step < 20000; ++step) {
    const int key = static_cast<int>(random() % 200);
    switch (random() % 5) {
      case 0:
      case 1:
        map.set(key, std::to_string(step));
        expected[key] = std::to_string(step);
        break;
      case 2:
      case 3:
        EXPECT_EQ(map.del(key), expected.erase(key) == 1);
        break;
      default:
        EXPECT_EQ(map.find(key) == nullptr ? "none" : *map.find(key),
                  expected.contains(key) ? expected[key] : "none");
    }
    ASSERT_EQ(map.size(), expected.size());
  }
  EXPECT_EQ(contents(map), expected);
}

TEST(HashMap, Walk_GoesOnWhateverIsAddedOrRemoved) {
  Quill::HashMap2018<Node> map;
  for (int i = 0; i < 50; ++i) map.set(i, "x");
  std::vector<int> met;
  for (auto at = map.first(); at.nonNull(); at.next()) {
    met.push_back(at.key());
    if (at.key() % 2 == 0) at.del();
    if (met.size() == 10) map.del(30);  // ahead of the walk
    if (met.size() == 20) {
      for (int i = 100; i < 200; ++i) map.set(i, "y");  // grows under the walk
    }
  }
  for (int i = 0; i < 50; ++i) EXPECT_EQ(std::count(met.begin(), met.end(), i), i == 30 ? 0 : 1) << i;
  for (int i = 0; i < 50; ++i) EXPECT_EQ(map.find(i) != nullptr, i % 2 == 1) << i;
}

bool readable(int descriptor) {
  pollfd one{descriptor, POLLIN, 0};
  return ::poll(&one, 1, 0) == 1;
}

TEST(BatchStatus, Completions_OneForEachHandleUntilTaken) {
  const auto batch = Quill::allocate<P4Runtime::BatchStatus>();
  constexpr std::uint64_t kHigh = std::uint64_t{1} << 40;
  for (const BatchStatusEntry& entry : {BatchStatusEntry{1, 0, ""}, BatchStatusEntry{kHigh + 1, 3, "late"},
                                        BatchStatusEntry{1, 2, "again"}}) {
    batch->completedTransactionStatusIs(entry);
  }
  EXPECT_EQ(batch->completedTransactionStatus(2), nullptr);
  auto taken = batch->completedTransactionStatusDelAll();
  std::sort(taken.begin(), taken.end(),
            [](const auto& a, const auto& b) { return a.entryHandle < b.entryHandle; });
  EXPECT_EQ(taken, (std::vector<BatchStatusEntry>{{1, 2, "again"}, {kHigh + 1, 3, "late"}}));
  EXPECT_EQ(batch->completedTransactionStatus(1), nullptr);
  EXPECT_TRUE(batch->completedTransactionStatusDelAll().empty());
}

TEST(BatchStatus, Descriptor_IsReadableFromAWriteUntilTaken) {
  const auto batch = Quill::allocate<P4Runtime::BatchStatus>();
  const int descriptor = batch->notificationDescriptor();
  EXPECT_FALSE(readable(descriptor));
  EXPECT_FALSE(batch->notificationTake());  // and does not block
  const std::uint64_t one = 1;
  ASSERT_EQ(::write(descriptor, &one, sizeof one), 8);
  ASSERT_EQ(::write(descriptor, &one, sizeof one), 8);
  EXPECT_TRUE(readable(descriptor));
  EXPECT_TRUE(batch->notificationTake());
  EXPECT_FALSE(readable(descriptor));
}

TEST(VrfIds, Counts_NeverFallBelowNothing) {
  const auto vrfs = Quill::allocate<P4Runtime::VrfIdCollection>();
  struct Step {
    int by;
    std::uint32_t count;
    std::size_t ids;
  };
  for (const Step& step : {Step{1, 1, 1}, Step{3, 4, 1}, Step{-2, 2, 1}, Step{0, 2, 1}, Step{-2, 0, 0},
                           Step{-1, 0, 0}, Step{0, 0, 0}, Step{2, 2, 1}, Step{-5, 0, 0}}) {
    const unsigned n = static_cast<unsigned>(std::abs(step.by));
    const VrfId id(65535);
    EXPECT_EQ(step.by < 0 ? vrfs->vrfIdRefCountDec(id, n) : vrfs->vrfIdRefCountInc(id, n), step.count);
    EXPECT_EQ(vrfs->vrfIds(), step.ids);
  }
}

}  // namespace
