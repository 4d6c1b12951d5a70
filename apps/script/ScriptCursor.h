// Walks a script and hands out its steps one by one, loops unrolled on the way, so that a script of a few
// lines that stands for many thousand updates needs room for one batch at a time.
#pragma once

#include <string>
#include <variant>
#include <vector>

#include "apps/script/Script.h"

namespace Agent {

/// One update with all its values filled in.
struct ScriptUpdate {
  struct Field {
    std::string_view name;  ///< in the script's own memory
    std::string value;
  };
  int line = 0;
  UpdateType type = UpdateType::insert;
  std::string_view table;  ///< in the script's own memory
  std::vector<Field> fields;
  Expectation expectation;
  std::string malformed;  ///< what was expected and what came; empty for an update that can be read
};

struct BatchStep {
  std::vector<ScriptUpdate> updates;
};
struct PrintStep {
  std::string text;
};
struct ShowStep {
  std::string table;
};
struct CleanupStep {};
struct EndStep {};
using ScriptStep = std::variant<BatchStep, PrintStep, ShowStep, CleanupStep, EndStep>;

class ScriptCursor {
 public:
  /// Updates beyond this number in one batch are refused; they stand as one malformed update.
  static constexpr std::size_t kMaxBatch = 100'000;
  /// Rounds of one loop, and of all loops in one batch; those beyond are refused.
  static constexpr std::int64_t kMaxRounds = 1'000'000;

  /// `script` is not owned and outlives the cursor and every step it hands out.
  explicit ScriptCursor(const std::vector<Statement>& script);
  /// The next step; EndStep once the script is through, and from then on. A batch without updates stands for
  /// many rounds of loops without any step.
  ScriptStep next();

 private:
  /// A sequence of statements being walked; a loop's sequence is walked again for each value of its variable.
  struct Frame {
    const std::vector<Statement>* body;
    std::size_t at;
    std::int64_t last;  // of the loop variable, which is the innermost one
    bool isLoop;
  };
  bool enter(const Statement& statement, const LoopStatement& loop, BatchStep& batch);
  bool advance();
  void expand(const Statement& statement, BatchStep& batch);
  void expandAll(const std::vector<Statement>& body, BatchStep& batch);
  void append(const Statement& statement, BatchStep& batch) const;

  std::vector<Frame> frames_;
  VariableValues variables_;
  std::int64_t rounds_ = 0;  // since the last step
};

}  // namespace Agent
