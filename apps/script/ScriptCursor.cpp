#include "apps/script/ScriptCursor.h"

namespace Agent {

namespace {
ScriptUpdate malformed(const Statement& statement, std::string message, const Expectation& expectation) {
  ScriptUpdate update;
  update.line = statement.line;
  update.malformed = std::move(message);
  update.expectation = expectation;
  return update;
}

ScriptUpdate filledIn(const Statement& statement, const UpdateStatement& from,
                      const VariableValues& variables) {
  ScriptUpdate update{statement.line, from.type, from.table, {}, from.expectation, {}};
  update.fields.reserve(from.fields.size());
  for (const UpdateStatement::Field& field : from.fields) {
    update.fields.push_back({field.name, field.value.text(variables)});
  }
  return update;
}
struct Bounds {
  std::int64_t first;
  std::int64_t last;
};

Bounds boundsOf(const LoopStatement& loop, const VariableValues& variables) {
  const Bounds bounds{loop.first.value(variables), loop.last.value(variables)};
  std::int64_t rounds = 0;
  if (__builtin_sub_overflow(bounds.last, bounds.first, &rounds) || rounds >= ScriptCursor::kMaxRounds) {
    throw ScriptError("expected a loop of at most " + std::to_string(ScriptCursor::kMaxRounds) +
                      " rounds, got " + std::to_string(bounds.first) + ".." + std::to_string(bounds.last));
  }
  return bounds;
}
}  // namespace

ScriptCursor::ScriptCursor(const std::vector<Statement>& script) {
  frames_.push_back({&script, 0, 0, false});
}

ScriptStep ScriptCursor::next() {
  rounds_ = 0;
  while (advance()) {
    if (rounds_ > kMaxRounds) return BatchStep{};
    const Statement& statement = (*frames_.back().body)[frames_.back().at++];
    BatchStep batch;
    if (const auto* loop = std::get_if<LoopStatement>(&statement.what)) {
      if (!enter(statement, *loop, batch)) return batch;
      continue;
    }
    if (const auto* print = std::get_if<PrintStatement>(&statement.what)) {
      try {
        return PrintStep{print->text.text(variables_)};
      } catch (const ScriptError& error) {
        return PrintStep{error.what()};
      }
    }
    if (const auto* show = std::get_if<ShowStatement>(&statement.what)) return ShowStep{show->table};
    if (std::holds_alternative<CleanupStatement>(statement.what)) return CleanupStep{};
    expand(statement, batch);
    if (!batch.updates.empty()) return batch;
  }
  return EndStep{};
}

/// Stands on the next statement to take; false at the end of the script.
bool ScriptCursor::advance() {
  while (frames_.back().at == frames_.back().body->size()) {
    Frame& frame = frames_.back();
    if (frame.isLoop && variables_.back() < frame.last) {
      ++variables_.back();
      ++rounds_;
      frame.at = 0;
      continue;
    }
    if (frames_.size() == 1) return false;
    if (frame.isLoop) variables_.pop_back();
    frames_.pop_back();
  }
  return true;
}

/// Begins a loop outside a batch; false when its bounds cannot be computed, which then is the step.
bool ScriptCursor::enter(const Statement& statement, const LoopStatement& loop, BatchStep& batch) {
  try {
    const auto [first, last] = boundsOf(loop, variables_);
    if (first > last || loop.body.empty()) return true;
    frames_.push_back({&loop.body, 0, last, true});
    variables_.push_back(first);
    return true;
  } catch (const ScriptError& error) {
    batch.updates.push_back(malformed(statement, error.what(), {}));
    return false;
  }
}

void ScriptCursor::expandAll(const std::vector<Statement>& body, BatchStep& batch) {
  for (const Statement& inner : body) expand(inner, batch);
}

void ScriptCursor::expand(const Statement& statement, BatchStep& batch) {
  if (batch.updates.size() > kMaxBatch) return;
  if (const auto* inner = std::get_if<BatchStatement>(&statement.what)) {
    expandAll(inner->body, batch);
  } else if (const auto* loop = std::get_if<LoopStatement>(&statement.what)) {
    try {
      const auto [first, last] = boundsOf(*loop, variables_);
      variables_.push_back(first);
      for (; variables_.back() <= last && batch.updates.size() <= kMaxBatch; ++variables_.back()) {
        if (++rounds_ > kMaxRounds) break;
        expandAll(loop->body, batch);
      }
      variables_.pop_back();
      if (rounds_ > kMaxRounds)
        throw ScriptError("expected loops of at most " + std::to_string(kMaxRounds) +
                          " rounds in a batch, got more");
    } catch (const ScriptError& error) {
      batch.updates.push_back(malformed(statement, error.what(), {}));
    }
  } else {
    append(statement, batch);
  }
}

void ScriptCursor::append(const Statement& statement, BatchStep& batch) const {
  if (batch.updates.size() == kMaxBatch) {
    const std::string most = std::to_string(kMaxBatch);
    batch.updates.push_back(
        malformed(statement, "expected at most " + most + " updates in a batch, got more", {}));
  } else if (const auto* unreadable = std::get_if<MalformedStatement>(&statement.what)) {
    batch.updates.push_back(malformed(statement, unreadable->message, unreadable->expectation));
  } else {
    const UpdateStatement& update = std::get<UpdateStatement>(statement.what);
    try {
      batch.updates.push_back(filledIn(statement, update, variables_));
    } catch (const ScriptError& error) {
      batch.updates.push_back(malformed(statement, error.what(), update.expectation));
    }
  }
}

}  // namespace Agent
