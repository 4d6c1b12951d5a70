// Prints what became of a script's updates: one line each for a short batch, the failures and a sample for a
// long one, and the totals.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/client/Script.h"

namespace Client {

class ResultTable {
 public:
  /// Where the text goes, whole lines at a time.
  using Output = std::function<void(std::string_view)>;
  enum class Style { plain, coloured };

  ResultTable(Output output, Style style) : output_(std::move(output)), style_(style) {}

  struct Totals {
    std::size_t updates = 0;
    std::size_t answered = 0;  ///< all but those that are lost
    std::size_t failedAsExpected = 0;
    std::size_t unexpected = 0;
  };

  void batch(const std::vector<ScriptUpdate>& updates, const std::vector<Outcome>& outcomes, double seconds);
  void text(std::string_view line);
  /// The last line: "passed: " or "failed: " and the totals. `failedReads` count as not as expected, too.
  void totals(double seconds, std::size_t failedReads);

  const Totals& totals() const noexcept { return totals_; }

 private:
  /// Batches up to this size are printed update by update.
  static constexpr std::size_t kShortBatch = 40;
  /// Of a longer one, so many failures and so many successes are printed.
  static constexpr std::size_t kFailures = 20;
  static constexpr std::size_t kSample = 3;

  void header();
  void update(const ScriptUpdate& update, const Outcome& outcome);
  void summary(const std::vector<ScriptUpdate>& updates, const std::vector<Outcome>& outcomes,
               double seconds);
  std::string coloured(const char* colour, const std::string& text) const;

  Output output_;
  Style style_;
  Totals totals_;
  bool headerShown_ = false;
};

}  // namespace Client
