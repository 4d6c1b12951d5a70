// The agent's side: the hash map under its collections, and VRF id counts.
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "p4runtime/VrfIdCollection.h"
#include "quill/HashMap2018.h"

namespace {

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
  std::map<unsigned, unsigned> walked;
  for (auto at = map.first(); at.nonNull(); at.next())
    EXPECT_TRUE(walked.emplace(at.key(), at.value()).second);
  EXPECT_EQ(walked, expected);
}

TEST(VrfIds, Counts_NeverFallBelowNothing) {
  const auto vrfs = Quill::allocate<P4Runtime::VrfIdCollection>();
  const P4Runtime::VrfId id(65535);
  EXPECT_EQ(vrfs->vrfIdRefCountInc(id, 3), 3u);
  EXPECT_EQ(vrfs->vrfIdRefCountDec(id, 2), 1u);
  EXPECT_EQ(vrfs->vrfIdRefCountDec(id, 5), 0u);
  EXPECT_EQ(vrfs->vrfIds(), 0u);
}

}  // namespace
