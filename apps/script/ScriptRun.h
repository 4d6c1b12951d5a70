#pragma once

#include <functional>
#include <string>

#include "apps/core/AgentCore.h"
#include "apps/script/ResultTable.h"
#include "apps/script/ScriptCursor.h"

namespace Agent {

/// Runs one script against the agent core, batch after batch, and prints the results as they come.
class ScriptRun {
 public:
  using Clock = AgentCore::Clock;
  /// `core` is not owned. `cleanup` carries out the script's cleanup statement; what it throws is printed and
  /// counts as a failure.
  ScriptRun(std::string_view script, AgentCore& core, ResultTable::Output output, ResultTable::Style style,
            std::function<void()> cleanup);

  /// Goes on up to the next batch that is not answered yet, or for a bounded number of steps, and returns
  /// whether there is more to do at once. To be called at the start and after each AgentCore::finish(); what
  /// it submits needs another finish().
  bool proceed();

  /// Ends the script, which has no batch in progress, for want of memory.
  void abandon() noexcept;

  bool finished() const { return finished_; }
  /// Whether every update so far came out as the script expects.
  bool asExpected() const { return failedSteps_ == 0 && table_.totals().unexpected == 0; }

 private:
  void submit(BatchStep step);
  Update updateOf(const ScriptUpdate& from);
  std::vector<std::string> tableNames() const;
  void show(const std::string& tableName);
  void cleanup();

  std::vector<Statement> script_;
  ScriptCursor cursor_;
  AgentCore& core_;  // not owned
  ResultTable table_;
  std::function<void()> cleanup_;
  Clock::time_point started_ = Clock::now();
  std::size_t batchSize_ = 0;  // of the batch in progress; 0 when there is none
  std::size_t failedSteps_ = 0;
  bool finished_ = false;
};

}  // namespace Agent
