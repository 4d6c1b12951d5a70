// What the plugin allocates, and what becomes of it when an allocation fails.
#include <gtest/gtest.h>

#include <new>

#include "FailingAllocation.h"
#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "PluginFixture.h"
#include "ScriptedTable.h"
#include "orrery/EntityManager.h"

namespace {

using FailingAllocation::allocations;
using FailingAllocation::failAt;

class Allocation : public PluginFixture {
 protected:
  /// Makes the i-th allocation of `make` fail, for every i until none is left to fail. Returns how many did.
  template <class Make>
  static std::size_t failEach(const Make& make) {
    for (std::size_t i = 1;; ++i) {
      const std::int64_t before = Quill::AllocTrackTypeInfo::liveTotal();
      allocations = 0;
      failAt = i;
      try {
        make();
        failAt = 0;
        return i - 1;
      } catch (const std::bad_alloc&) {
        failAt = 0;
        EXPECT_EQ(Quill::AllocTrackTypeInfo::liveTotal(), before) << "allocation " << i;
      }
    }
  }
};

TEST_F(Allocation, Failure_LeavesNothingBehind) {
  const FastTrace fast(
      folder_);  // the first message of a process takes memory, and does without if there is none
  ScriptedEntity<TolmarHwLib::L3IifTH3Config> config(folder_.path());
  ScriptedEntity<TolmarHwLib::L3IifTH3Status> status(folder_.path(), "status");
  TolmarHwLib::L3IifTH3ConfigEntry entry;
  for (entry.l3Iif = 1; entry.l3Iif < 40; ++entry.l3Iif) {
    entry.vrf = 5;
    config.entity->tableIs(entry);
  }
  const auto batch = Quill::allocate<P4Runtime::BatchStatus>();
  const auto vrfs = Quill::allocate<P4Runtime::VrfIdCollection>();
  const auto context = Quill::allocate<P4Runtime::PluginContext>(nullptr, nullptr, batch, vrfs);
  EXPECT_GE(failEach([] {
              P4RuntimeTolmar::tolmarP4RuntimePluginFactory(Quill::Name("a name too long to be short"));
            }),
            3u);
  EXPECT_GE(failEach([&] { TolmarHwLib::l3IifTH3PendingHwProgrammingSmFactory(batch, status.entity); }), 2u);
  EXPECT_GE(failEach([&] { P4RuntimeTolmar::vrfSmFactory(config.entity, context); }), 5u);
  EXPECT_TRUE(config.entity->notifieeList().empty());
  EXPECT_TRUE(status.entity->notifieeList().empty());
}

TEST_F(Allocation, None_ForASuccessfulStatusRowOfAKnownHandle) {
  ScriptedEntity<TolmarHwLib::L3IifTH3Status> status(folder_.path());
  const auto batch = Quill::allocate<P4Runtime::BatchStatus>();
  const auto tracker = TolmarHwLib::l3IifTH3PendingHwProgrammingSmFactory(batch, status.entity);
  TolmarHwLib::L3IifTH3StatusEntry row;
  for (row.l3Iif = 0; row.l3Iif < 100; ++row.l3Iif) {
    row.entryHandle = row.l3Iif;
    status.entity->tableIs(row);
  }
  allocations = 0;
  for (std::uint64_t i = 0; i < 100; ++i) tracker->onStatusRow({i});
  EXPECT_EQ(allocations, 0u);
}

}  // namespace
