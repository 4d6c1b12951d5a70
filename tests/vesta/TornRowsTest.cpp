#include <signal.h>

#include "Support.h"

namespace VestaTest {
namespace {

// A writer process at full speed; every lookup here must yield a row that was written whole, and keys that
// were never removed must never be absent, whatever the index does meanwhile. An unsettled read fails the
// test too.
TEST_F(TableTest, TornRows_EveryLookupIsWholeAndPresent) {
  constexpr std::uint32_t kCapacity = 256;
  const struct {
    std::uint64_t hotKeys;  // rewritten without pause
    std::uint64_t churned;  // keys inserted and removed between the rewrites, in turn
  } loads[] = {{1, 0}, {3, 0}, {40, 200}};
  for (const auto& load : loads) {
    SCOPED_TRACE(load.hotKeys);
    startOver();
    Child child([&] {
      const auto table = writer(kCapacity);
      for (std::uint64_t id = 0; id < load.hotKeys; ++id) put(*table, id, 1);
      raise(SIGSTOP);
      for (std::uint64_t stamp = 2;; ++stamp) {
        put(*table, stamp % load.hotKeys, stamp);
        if (load.churned == 0 || stamp % 3 != 0) continue;
        const std::uint64_t turn = stamp / 3;
        put(*table, 1000 + turn % load.churned, stamp);
        put(*table, 1000 + (turn + load.churned / 2) % load.churned, 0);
      }
      return 0;
    });
    child.pass();
    const auto table = reader(kCapacity);
    Ids newest(load.hotKeys);
    const std::uint64_t lookups = scaled(10000000);
    for (std::uint64_t i = 0; i < lookups; ++i) {
      const std::uint64_t id = i % load.hotKeys;
      bool found = false;
      const TestEntry& entry = table->directLookup(TestKey{id}, found, nullptr);
      ASSERT_TRUE(found) << id;
      ASSERT_TRUE(entry.id == id && entry.whole()) << id;
      ASSERT_GE(entry.stamp, newest[id]) << "time went backwards for " << id;
      newest[id] = entry.stamp;
      if (load.churned != 0 && i % 8 == 0) stampOf(*table, 1000 + i % load.churned);
    }
    EXPECT_GT(newest[0], 2u);
    EXPECT_GT(table->readerCounters().retries, 0u) << "never met the writer: proves nothing";
    child.signal(SIGKILL);
  }
}

}  // namespace
}  // namespace VestaTest
