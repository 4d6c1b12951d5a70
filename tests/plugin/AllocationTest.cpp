// What the plugin allocates, and what becomes of it when an allocation fails.
#include <new>

#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "PluginFixture.h"
#include "ScriptedTable.h"
#include "tests/quill/AllocationCount.h"

namespace {

using namespace TolmarHwLib;

class Allocation : public PluginFixture {
 protected:
  /// Makes the i-th allocation of `act` fail, for every i until none of at least `least` is left to fail.
  template <class Act>
  static void failEach(std::size_t least, const Act& act) {
    for (std::size_t i = 1;; ++i) {
      const NothingLeft nothingLeft;
      allocationFailureIs(i);
      try {
        act();
        allocationFailureIs(0);
        EXPECT_GT(i, least);
        return;
      } catch (const std::bad_alloc&) {
        allocationFailureIs(0);
      }
    }
  }

  ScriptedEntity<L3IifTH3Config> config_{folder_.path()};
  ScriptedEntity<L3IifTH3Status> status_{folder_.path(), "status"};
  ScriptedEntity<L3IifTH3Status> other_{folder_.path(), "other"};
};

TEST_F(Allocation, Failure_LeavesNothingBehind) {
  // The first message of a process takes memory, and does without if there is none.
  const Traces traces(folder_, "VrfSm", 0);
  L3IifTH3ConfigEntry entry;
  entry.vrf = 5;
  for (entry.l3Iif = 1; entry.l3Iif < 40; ++entry.l3Iif) config_.entity->tableIs(entry);
  const Quill::Name name("a name too long to be short");
  failEach(3, [&] { P4RuntimeTolmar::tolmarP4RuntimePluginFactory(name); });
  failEach(2, [&] { l3IifTH3PendingHwProgrammingSmFactory(batch_, status_.entity); });
  failEach(5, [&] { P4RuntimeTolmar::vrfSmFactory(config_.entity, context_); });
  EXPECT_TRUE(config_.entity->notifieeList().empty());
  EXPECT_TRUE(status_.entity->notifieeList().empty());
}

TEST_F(Allocation, Failure_ToMoveLeavesTheTrackerAtItsTable) {
  const auto tracker = l3IifTH3PendingHwProgrammingSmFactory(batch_, status_.entity);
  allocationFailureIs(1);
  EXPECT_THROW(tracker->statusIs(other_.entity), std::bad_alloc);
  EXPECT_EQ(tracker->status(), status_.entity);
  EXPECT_TRUE(other_.entity->notifieeList().empty());
  status_.entity->tableIs({});
  EXPECT_EQ(taken(), Log{"completed 0 0"});
  tracker->statusIs(other_.entity);
  EXPECT_TRUE(status_.entity->notifieeList().empty());
}

TEST_F(Allocation, None_ForASuccessfulStatusRowOfAKnownHandle) {
  const auto batch = Quill::allocate<P4Runtime::BatchStatus>();
  const auto tracker = l3IifTH3PendingHwProgrammingSmFactory(batch, status_.entity);
  L3IifTH3StatusEntry row;
  for (row.l3Iif = 0; row.l3Iif < 100; row.entryHandle = ++row.l3Iif) status_.entity->tableIs(row);
  const std::size_t before = allocationCount();
  for (std::uint64_t i = 0; i < 100; ++i) tracker->onStatusRow({i});
  EXPECT_EQ(allocationCount(), before);
}

}  // namespace
