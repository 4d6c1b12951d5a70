// Prints what became of a script's updates: one line each for a short batch, the failures and a sample for a
// long one, and the totals.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/core/Status.h"
#include "apps/script/ScriptCursor.h"

namespace Agent {

class ResultTable {
 public:
  /// Where the text goes, whole lines at a time, save the progress on a terminal.
  using Output = std::function<void(std::string_view)>;
  enum class Style { plain, terminal };

  /// In terminal style results are coloured and the progress of a batch is shown in place.
  ResultTable(Output output, Style style) : output_(std::move(output)), style_(style) {}

  struct Totals {
    std::size_t updates = 0;
    std::size_t answered = 0;  ///< by the agent or the hardware, in time
    std::size_t failedAsExpected = 0;
    std::size_t unexpected = 0;
  };

  void progress(std::size_t answered, std::size_t updates);
  void batch(const std::vector<ScriptUpdate>& updates, const std::vector<UpdateStatus>& results,
             double seconds);
  void text(std::string_view line);
  /// The last line: "passed: " or "failed: " and the totals. `failedSteps` are statements other than updates.
  void totals(double seconds, std::size_t failedSteps);

  const Totals& totals() const noexcept { return totals_; }

 private:
  /// Batches up to this size are printed update by update.
  static constexpr std::size_t kShortBatch = 40;
  /// Of a longer one, so many failures and so many successes are printed.
  static constexpr std::size_t kFailures = 20;
  static constexpr std::size_t kSample = 3;

  void header();
  void update(const ScriptUpdate& update, const UpdateStatus& result);
  void summary(const std::vector<ScriptUpdate>& updates, const std::vector<UpdateStatus>& results,
               double seconds);
  void clearProgress();
  std::string coloured(const char* colour, const std::string& text) const;

  Output output_;
  Style style_;
  Totals totals_;
  std::size_t progressQuarter_ = 0;
  bool progressShown_ = false;
  bool headerShown_ = false;
};

}  // namespace Agent
