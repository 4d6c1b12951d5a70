// Batches of updates, with each allocation of agent and hardware agent failing once.
#include <gtest/gtest.h>

#include <set>

#include "BothPrograms.h"
#include "tests/core/Updates.h"

namespace {

using namespace Agent;
using Strings = std::vector<std::string>;

class Batches : public BothPrograms {
 public:
  using BothPrograms::BothPrograms;
  /// The results of one batch. Empty when there was no memory to submit it.
  std::vector<UpdateStatus> results(const Strings& texts) {
    std::vector<UpdateStatus> got;
    const Armed armed(*this);
    const bool submitted = succeeds([&] {
      std::vector<Update> updates;
      for (const std::string& text : texts) updates.push_back(updateFrom(agent_.core(), text));
      agent_.submit(std::move(updates), Atomicity::continueOnError,
                    [&got](std::vector<UpdateStatus> all) { got = std::move(all); });
    });
    while (submitted && got.empty()) step(std::chrono::seconds(1));
    return got;
  }
  std::size_t inFlight() { return agent_.core().held(); }
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
    Batches programs(nth);
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
