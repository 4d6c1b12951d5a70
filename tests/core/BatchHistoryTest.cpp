// Histories of batches, answers, time-outs and restarts, as rows of one table.
#include <sstream>

#include "CoreFixture.h"

namespace {

using Strings = std::vector<std::string>;

/// One step a line, followed by "-> W..." if it has the agent write the rows W; no other rows are written:
///   continue U...     submits a batch that continues on error; updates as in the fixture
///   rollback U...     submits one that is all or nothing
///   ok N..., no N...  the hardware applies, or refuses with code 7, these writes (from 0, since the fill)
///   fill N            fills the table but for N entries, which readers are not shown here
///   time              the time of every batch so far runs out
///   hardware          the hardware agent has restarted and has answered nothing more
///   agent             the agent is killed and started again
///   unwritten E       it is killed before it has written the row of entry E, and started again
///   shows E...        what a reader is shown
///   gets N C...       the results of batch N, without their texts; "-" while there are none
struct History {
  const char* name;
  const char* steps;
};
std::ostream& operator<<(std::ostream& out, const History& history) { return out << history.name; }

class BatchHistory : public CoreFixture, public testing::WithParamInterface<History> {
 protected:
  void run(const std::string& line) {
    std::istringstream in(line);
    std::string verb;
    in >> verb;
    Strings words{std::istream_iterator<std::string>(in), {}};
    const auto arrow = std::find(words.begin(), words.end(), "->");
    const Strings written(arrow == words.end() ? arrow : arrow + 1, words.end());
    words.erase(arrow, words.end());
    step(verb, words);
    EXPECT_EQ(Strings(writes().begin() + static_cast<std::ptrdiff_t>(wrote_), writes().end()), written);
    wrote_ = writes().size();
  }
  void step(const std::string& verb, Strings words) {
    if (verb == "continue") {
      submit(words);
    } else if (verb == "rollback") {
      submit(words, Agent::Atomicity::rollbackOnError);
    } else if (verb == "ok" || verb == "no") {
      for (const std::string& write : words) answer(filled_ + std::stoul(write), verb == "ok" ? 0 : 7);
    } else if (verb == "fill") {
      fill(std::stoul(words.at(0)));
    } else if (verb == "time") {
      expireAfter(std::chrono::seconds(1));
    } else if (verb == "hardware") {
      core_->hardwareRestarted();
      core_->finish();
    } else if (verb == "agent" || verb == "unwritten") {
      if (!words.empty()) config().tableDel({std::stoul(words.at(0))});
      start(restarts_ += 1'000'000, answers_);
    } else if (verb == "shows") {
      Strings seen = shown();
      std::erase_if(seen, [](const std::string& text) { return std::stoul(text) >= kFiller; });
      EXPECT_EQ(seen, words);
    } else if (verb == "gets") {
      Strings results = results_.at(std::stoul(words.at(0)));
      for (std::string& result : results) result.resize(std::min(result.find(':'), result.size()));
      words.erase(words.begin());
      EXPECT_EQ(results, words == Strings{"-"} ? Strings() : words);
    } else {
      FAIL() << "unknown step " << verb;
    }
  }
  /// The status row first, then the completion, as the hardware agent and the tracker do it.
  void answer(std::size_t write, std::uint16_t code) {
    const auto& entry = writes_->entries.at(write);
    answers_[entry.entryHandle] = {entry.genId, code, writes().at(write)[0] == '-'};
    complete(entry.entryHandle, code);
  }

  void fill(std::size_t room) {
    Strings updates;
    for (std::size_t i = config().table().members(); i + room < 8192; ++i)
      updates.push_back("+" + std::to_string(kFiller + i));
    results_.at(submit(updates)).clear();
    for (; wrote_ < writes().size(); ++wrote_) answer(wrote_, 0);
    filled_ = wrote_;
    results_.pop_back();
  }

  static constexpr std::size_t kFiller = 10'000;
  Agent::HardwareAnswers answers_;
  std::uint64_t restarts_ = kFirstHandle;
  std::size_t wrote_ = 0;
  std::size_t filled_ = 0;
};

TEST_P(BatchHistory, Holds) {
  start(kFirstHandle);
  std::istringstream steps(GetParam().steps);
  for (std::string line; std::getline(steps, line);) {
    if (line.find_first_not_of(' ') == std::string::npos) continue;
    SCOPED_TRACE(line);
    run(line);
  }
}

constexpr History kHistories[] = {
    {"HeldEntry_LetsLaterUpdatesWaitInOrder", R"(
        continue +1=1 +2=2 -> 1=1 2=2
        continue ~1=3
        continue -1
        rollback +1=4 ~2=5
        ok 0
        ok 1 -> 1=3
        shows 1=1 2=2
        ok 2 -> -1
        ok 3 -> 1=4 2=5
        ok 4 5
        gets 3 OK OK
        shows 1=4 2=5)"},
    {"RefusedUndo_IsRepeatedOnceAfterAHardwareRestart", R"(
        continue +1=1 -> 1=1
        ok 0
        continue ~1=5 -> 1=5
        no 1 -> 1=1
        no 2
        shows 1=1
        hardware -> 1=1
        no 3
        hardware
        shows 1=1)"},
    {"Rollback_ChecksAllBeforeItWritesAnything", R"(
        continue +1=1 -> 1=1
        ok 0
        rollback +2=2 +1=5 ~3=3
        gets 1 ABORTED ALREADY_EXISTS NOT_FOUND
        rollback +2=2 +4=4 +4=5
        gets 2 ABORTED INVALID_ARGUMENT INVALID_ARGUMENT)"},
    {"Rollback_UndoesAllWhenOneIsRefused", R"(
        continue +1=1 +2=2 -> 1=1 2=2
        ok 0 1
        rollback ~1=5 -2 +3=3 +4=4 -> 1=5 -2 3=3 4=4
        ok 2 3
        no 4 -> -3 2=2 1=1
        gets 1 ABORTED ABORTED REFUSED ABORTED
        shows 1=1 2=2
        continue +4=9
        ok 5 -> -4
        ok 9 -> 4=9)"},
    {"Rollback_OutOfTimeIsNeverCommitted", R"(
        rollback +1=1 +2=2 -> 1=1 2=2
        ok 0
        time -> -1
        gets 0 ABORTED DEADLINE_EXCEEDED
        shows
        ok 1 -> -2
        ok 2 3
        shows)"},
    {"OutOfTime_IsDecidedByTheLateAnswer", R"(
        continue +1=1 +2=2 +3=3 -> 1=1 2=2 3=3
        ok 2
        continue ~1=7
        time
        gets 0 DEADLINE_EXCEEDED DEADLINE_EXCEEDED OK
        gets 1 DEADLINE_EXCEEDED
        shows 3=3
        continue ~1=8
        ok 0 -> 1=8
        no 1 -> -2
        shows 1=1 3=3
        ok 3
        shows 1=8 3=3)"},
    {"OutOfTime_IsUndoneWhenARestartedHardwareAgentSaysNothing", R"(
        continue +1=1 -> 1=1
        time
        hardware -> -1
        hardware
        continue +1=2 -> 1=2)"},
    {"FailedUpdate_KeepsItsEntryUntilItsBatchIsDecided", R"(
        continue +1=1 -> 1=1
        ok 0
        continue -1 ~2=5 +3=3 -> -1 3=3
        continue +2=2
        continue +3=4
        no 2 -> -3
        ok 3
        ok 1 -> 2=2 3=4
        gets 1 OK NOT_FOUND REFUSED
        ok 4 5
        shows 2=2 3=4)"},
    {"Room_OfARemovedRowIsFreeOnceItsBatchIsDecided", R"(
        fill 1
        continue +1=1 -> 1=1
        ok 0
        continue -1 ~10000=2 -> -1 10000=2
        ok 1
        continue +2=2
        gets 2 RESOURCE_EXHAUSTED
        ok 2
        continue +2=2 -> 2=2)"},
    {"Room_OfItsOwnRemovalsIsForTheInsertionsOfABatch", R"(
        fill 1
        continue +1=1 -> 1=1
        ok 0
        continue -1 +2=2 +3=3 -> -1
        continue +4=4
        gets 2 RESOURCE_EXHAUSTED
        ok 1 -> 2=2
        ok 2
        gets 1 OK OK RESOURCE_EXHAUSTED
        continue -2 +5=5 -> -2
        no 3 -> 2=2
        gets 3 REFUSED RESOURCE_EXHAUSTED
        continue -2 +5=5
        ok 4 -> -2
        time
        gets 4 DEADLINE_EXCEEDED DEADLINE_EXCEEDED
        no 5 -> 2=2
        ok 6
        continue +7=7 -8 -2 -> -2
        gets 5 -
        ok 7 -> 7=7
        ok 8
        gets 5 OK NOT_FOUND OK
        shows 7=7)"},
    {"Room_OfItsOwnRemovalsIsGivenBackByTheUndosOfABatch", R"(
        fill 1
        continue +1=1 -> 1=1
        ok 0
        rollback -1 +2=2 +3=3
        gets 1 ABORTED ABORTED RESOURCE_EXHAUSTED
        rollback -1 +2=2 -> -1 2=2
        continue +4=4
        gets 3 RESOURCE_EXHAUSTED
        no 1
        gets 2 REFUSED ABORTED
        ok 2 -> -2 1=1
        ok 3 4
        rollback -1 +5=5 -> -1 5=5
        agent
        ok 5
        shows 1=1
        ok 6 -> -5 1=1
        ok 7 8
        rollback -1 +6=6 -> -1 6=6
        ok 9 10
        gets 5 OK OK
        shows 6=6)"},
    {"KilledAgent_UndoesWhatWasUndecided", R"(
        continue +1=1 +2=2 -> 1=1 2=2
        ok 0 1
        continue ~1=5 +3=3 -> 1=5 3=3
        rollback -2 +4=4 -> -2 4=4
        ok 2 4
        agent -> 2=2 1=1
        shows 1=1 2=2
        ok 3 5 -> -3 -4
        shows 1=1 2=2
        agent
        shows 1=1 2=2
        continue +5=5 -> 5=5
        unwritten 5 -> -5
        shows 1=1 2=2
        continue +5=6 -> 5=6)"},
    {"KilledAgent_KeepsWhatWasDecided", R"(
        continue +1=1 +2=2 -> 1=1 2=2
        ok 0
        time
        gets 0 OK DEADLINE_EXCEEDED
        agent
        shows 1=1
        ok 1 -> -2
        shows 1=1)"},
    {"Metadata_FollowsItsRow", R"(
        continue +1=1:a +2=2:b +3=3 -> 1=1 2=2 3=3
        ok 0 1 2
        continue ~1=5:c -2 +4=4:d ~3=3:e -> 1=5 -2 4=4 3=3
        shows 1=1:a 2=2:b 3=3
        no 3 4 5 -> 1=1 2=2 -4
        ok 6
        shows 1=1:a 2=2:b 3=3:e
        ok 7 8 9
        gets 1 REFUSED REFUSED REFUSED OK
        agent
        shows 1=1:a 2=2:b 3=3:e
        continue ~3=4 -> 3=4
        ok 10
        continue ~1=5:c -2 -> 1=5 -2
        agent
        shows 1=1:a 2=2:b 3=4
        ok 11 12 13 14 -> 1=1 2=2
        shows 1=1:a 2=2:b 3=4
        agent
        shows 1=1:a 2=2:b 3=4)"},
};

INSTANTIATE_TEST_SUITE_P(Core, BatchHistory, testing::ValuesIn(kHistories),
                         [](const auto& history) { return std::string(history.param.name); });

}  // namespace
