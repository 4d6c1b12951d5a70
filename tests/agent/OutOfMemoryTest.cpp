// Agent and hardware agent in one process, so that each allocation of either can be made to fail.
#include <gtest/gtest.h>

#include <new>
#include <set>

#include "apps/agent/AgentProcess.h"
#include "apps/hw/Tables.h"
#include "cairn/Exception.h"
#include "tests/AllocationCount.h"
#include "tests/RuntimeFolder.h"

namespace {

using namespace Agent;
using namespace std::chrono_literals;

using Wanted = std::vector<std::pair<UpdateType, std::string>>;
constexpr UpdateType kInsert = UpdateType::insert;
constexpr UpdateType kModify = UpdateType::modify;
constexpr UpdateType kRemove = UpdateType::remove;

class BothPrograms {
 public:
  /// Lets the `nth` allocation during calls of results() fail.
  explicit BothPrograms(std::size_t nth) : failing_(nth) {}

  /// The results of one batch. Empty when there was no memory to submit it.
  std::vector<Result> results(const Wanted& wanted) {
    std::vector<Result> got;
    const std::size_t before = allocationCount();
    allocationFailureIs(failing_);
    try {
      agent_.submit(updates(wanted), [&got](std::vector<Result> all) { got = std::move(all); });
      while (got.empty()) step();
    } catch (const std::bad_alloc&) {
    } catch (const Cairn::MemoryResourceException&) {
    }
    allocationFailureIs(0);
    failing_ -= std::min(failing_, allocationCount() - before);
    return got;
  }
  /// Whether it has.
  bool failed() const { return failing_ == 0; }
  std::size_t inFlight() { return agent_.core().inFlight(); }

 private:
  std::vector<Update> updates(const Wanted& wanted) {
    std::vector<Update> made;
    for (const auto& [type, id] : wanted) {
      ConfigTable* const table = agent_.core().table("l3IifTH3");
      const std::vector<Lumen::ColumnText> fields = {{"l3Iif", id}, {"vrf", "9"}};
      made.push_back({type, table, table->row(fields), {}});
    }
    return made;
  }
  /// As Process::MainLoop does it.
  void step() {
    try {
      loop_.step(1000ms);
      return;
    } catch (const std::bad_alloc&) {
    } catch (const Cairn::MemoryResourceException&) {
    }
    agent_.recover();
    hardware_.recover();
  }

  std::size_t failing_;
  RuntimeFolder folder_{"/dev/shm"};
  Quill::EventLoop loop_;
  HwAgent::Tables hardware_{Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_), {}};
  AgentProcess agent_{loop_, folder_.path(), PLUGIN, 60s};
};

/// What an update comes to if there is memory for it; `present` is then as it leaves the table.
Code expected(UpdateType type, const std::string& id, std::set<std::string>& present) {
  if (type == kInsert) return present.insert(id).second ? Code::ok : Code::alreadyExists;
  if (type == kModify) return present.contains(id) ? Code::ok : Code::notFound;
  return present.erase(id) != 0 ? Code::ok : Code::notFound;
}

// From the first batch that the programs see to one over entries that exist, for each of their allocations:
// one request fails at most, either a batch that could not be submitted or one update of it, no answer is
// lost, and the tables are as the results say.
TEST(OutOfMemory, FailsOneRequestAndNoMore) {
  const Wanted batches[] = {{{kInsert, "1"}, {kInsert, "2"}, {kInsert, "3"}},
                            {{kModify, "1"}, {kRemove, "2"}, {kInsert, "4"}},
                            {{kInsert, "2"}, {kRemove, "3"}, {kModify, "4"}},
                            {{kRemove, "1"}, {kRemove, "2"}, {kRemove, "3"}, {kRemove, "4"}}};
  bool failed = true;
  for (std::size_t nth = 1; failed; ++nth) {
    SCOPED_TRACE(nth);
    BothPrograms programs(nth);
    std::set<std::string> present;
    int refused = 0;
    for (const Wanted& wanted : batches) {
      const std::vector<Result> results = programs.results(wanted);
      refused += results.empty() ? 1 : 0;
      for (std::size_t i = 0; i < results.size(); ++i) {
        std::set<std::string> after = present;
        const Code code = expected(wanted[i].first, wanted[i].second, after);
        if (results[i].code == code) {
          present = after;
        } else {
          ++refused;
          EXPECT_EQ(codeName(results[i].code), "RESOURCE_EXHAUSTED") << results[i].message;
        }
      }
    }
    failed = programs.failed();
    EXPECT_LE(refused, 1);
    EXPECT_EQ(programs.inFlight(), 0u);
  }
}

}  // namespace
