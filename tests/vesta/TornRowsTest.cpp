#include <signal.h>

#include <filesystem>

#include "Support.h"

namespace VestaTest {
namespace {

struct Load {
  const char* name;
  std::uint64_t hotKeys;  // rewritten without pause
  std::uint64_t churned;  // keys removed and inserted between the rewrites
};

class TornRows : public TableTest, public ::testing::WithParamInterface<Load> {};

// A writer process at full speed; every lookup here must yield a row that was written whole, and keys that
// were never removed must never be absent, whatever the index does meanwhile. An unsettled read fails the
// test too.
TEST_P(TornRows, Processes_EveryLookupIsWholeAndPresent) {
  constexpr std::uint32_t kCapacity = 256;
  Pipe ready;
  Child child([&] {
    const auto table = writer(kCapacity);
    for (std::uint64_t id = 0; id < GetParam().hotKeys; ++id) put(*table, id, 1);
    ready.say();
    for (std::uint64_t stamp = 2;; ++stamp) {
      put(*table, stamp % GetParam().hotKeys, stamp);
      if (GetParam().churned != 0 && stamp % 3 == 0) {
        const std::uint64_t id = 1000 + stamp / 3 % (2 * GetParam().churned);
        if (stamp / 3 / GetParam().churned % 2 == 0) {
          if (table->members() < kCapacity) put(*table, id, stamp);
        } else {
          table->remove(TestKey{1000 + (stamp / 3 - GetParam().churned) % (2 * GetParam().churned)}, nullptr);
        }
      }
    }
    return 0;
  });
  ready.await();
  const auto table = reader(kCapacity);
  std::uint64_t lookups = scaled(10000000);
  std::vector<std::uint64_t> newest(GetParam().hotKeys);
  for (std::uint64_t i = 0; i < lookups; ++i) {
    const std::uint64_t id = i % GetParam().hotKeys;
    bool found = false;
    const TestEntry& entry = table->directLookup(TestKey{id}, found, nullptr);
    ASSERT_TRUE(found) << id;
    ASSERT_TRUE(entry.id == id && entry.whole()) << id;
    ASSERT_GE(entry.stamp, newest[id]) << "time went backwards for " << id;
    newest[id] = entry.stamp;
    if (GetParam().churned != 0 && i % 8 == 0) stampOf(*table, 1000 + i % (2 * GetParam().churned));
  }
  EXPECT_GT(newest[0], 2u);
  EXPECT_GT(table->readerCounters().retries, 0u) << "never met the writer: proves nothing";
  child.signal(SIGKILL);
}

INSTANTIATE_TEST_SUITE_P(Loads, TornRows,
                         ::testing::Values(Load{"OneKey", 1, 0}, Load{"ThreeKeys", 3, 0},
                                           Load{"WithChurn", 40, 100}),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace VestaTest
