// Agent and hardware agent in one process, so that each allocation of either can be made to fail.
#include <gtest/gtest.h>

#include <new>
#include <set>

#include "apps/agent/AgentProcess.h"
#include "apps/hw/Tables.h"
#include "cairn/Exception.h"
#include "tests/AllocationCount.h"
#include "tests/RuntimeFolder.h"
#include "tests/core/Updates.h"

namespace {

using namespace Agent;
using namespace std::chrono_literals;
using Strings = std::vector<std::string>;

/// Whether `call` found the memory that it needed.
template <class Call>
bool succeeds(const Call& call) {
  try {
    call();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  } catch (const Cairn::MemoryResourceException&) {
    return false;
  }
}

class BothPrograms {
 public:
  /// Lets the `nth` allocation during calls of results() fail.
  explicit BothPrograms(std::size_t nth) : failing_(nth) {}

  /// The results of one batch. Empty when there was no memory to submit it.
  std::vector<UpdateStatus> results(const Strings& texts) {
    std::vector<UpdateStatus> got;
    const std::size_t before = allocationCount();
    allocationFailureIs(failing_);
    const bool submitted = succeeds([&] {
      std::vector<Update> updates;
      for (const std::string& text : texts) updates.push_back(updateFrom(agent_.core(), text));
      agent_.submit(std::move(updates), Atomicity::continueOnError,
                    [&got](std::vector<UpdateStatus> all) { got = std::move(all); });
    });
    while (submitted && got.empty()) {
      if (succeeds([this] { loop_.step(1000ms); })) continue;
      agent_.recover();  // as the programs do
      hardware_.recover();
    }
    allocationFailureIs(0);
    failing_ -= std::min(failing_, allocationCount() - before);
    return got;
  }
  /// Whether it has.
  bool failed() const { return failing_ == 0; }
  std::size_t inFlight() { return agent_.core().held(); }

 private:
  std::size_t failing_;
  RuntimeFolder folder_{"/dev/shm"};
  Quill::EventLoop loop_;
  HwAgent::Tables hardware_{Quill::allocate<Orrery::EntityManager>(folder_.path(), loop_), {}};
  AgentProcess agent_{loop_, folder_.path(), PLUGIN, 60s};
};

/// What the update comes to if there is memory for it; `present` then has the entries that it leaves.
StatusCode expected(const std::string& update, std::set<std::string>& present) {
  const std::string id = update.substr(1);
  if (update[0] == '+') return present.insert(id).second ? StatusCode::ok : StatusCode::alreadyExists;
  return (update[0] == '~' ? present.count(id) : present.erase(id)) != 0 ? StatusCode::ok
                                                                         : StatusCode::notFound;
}

// From the first batch that the programs see to one that removes all entries, for each of their allocations:
// at most one request fails, either a batch that could not be submitted or one update of it, no answer is
// lost, and the tables are as the results say.
TEST(OutOfMemory, FailsOneRequestAndNoMore) {
  const Strings batches[] = {
      {"+1", "+2", "+3"}, {"~1", "-2", "+4"}, {"+2", "-3", "~4"}, {"~3", "-1", "-2", "-4"}};
  bool failed = true;
  for (std::size_t nth = 1; failed; ++nth) {
    SCOPED_TRACE(nth);
    BothPrograms programs(nth);
    std::set<std::string> present;
    int refused = 0;
    for (const Strings& batch : batches) {
      const std::vector<UpdateStatus> results = programs.results(batch);
      refused += results.empty() ? 1 : 0;
      for (std::size_t i = 0; i < results.size(); ++i) {
        std::set<std::string> after = present;
        const StatusCode code = expected(batch[i], after);
        if (results[i].code == code) {
          present = after;
        } else {
          ++refused;
          EXPECT_EQ(statusCodeName(results[i].code), "RESOURCE_EXHAUSTED") << results[i].message;
        }
      }
    }
    failed = programs.failed();
    EXPECT_LE(refused, 1);
    EXPECT_EQ(programs.inFlight(), 0u);
  }
}

}  // namespace
