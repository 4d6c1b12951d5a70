// From the hardware's answer, or its absence, to the decision and the results.
#include "apps/core/AgentCore.h"

#include <algorithm>
#include <utility>

#include "skein/Ring.h"
#include "skein/Skein.h"
#include "vesta/DeferredWakeups.h"

namespace Agent {

using EntryState = HeldEntry::State;
using State = Operation::State;

void AgentCore::completionsReady() {
  const Vesta::DeferredWakeups wakeups;
  const auto completions = batchStatus_->completedTransactionStatusDelAll();
  batchStatus_->notificationTake();
  const std::size_t count = completions.size();
  const std::uint64_t ticks = Braid::ticks();
  for (std::size_t i = 0; i < count; ++i) {
    if (i + 2 * HeldEntries::kAhead < count)
      entries_.prefetchHandle(completions[i + 2 * HeldEntries::kAhead].entryHandle);
    if (i + HeldEntries::kAhead < count)
      entries_.prefetchEntry(completions[i + HeldEntries::kAhead].entryHandle);
    complete(completions[i], ticks);
  }
  proceed();
}

void AgentCore::complete(const P4Runtime::BatchStatusEntry& completion, std::uint64_t ticks) noexcept {
  HeldEntry* const entry = entries_.find(completion.entryHandle);
  count(entry, completion, ticks);
  if (entry == nullptr) return;
  entries_.handleDel(*entry);
  switch (entry->state) {
    case EntryState::writing:
      return answered(*entry, completion);
    case EntryState::late:
      return completion.errorCode == 0 ? commit(*entry) : undo(*entry);
    case EntryState::doomed:
      return undo(*entry);
    case EntryState::undoing:
      return undone(*entry, completion.errorCode);
    case EntryState::outstanding:
    case EntryState::untouched:
    case EntryState::written:
      return release(*entry);
  }
}

void AgentCore::count(const HeldEntry* entry, const P4Runtime::BatchStatusEntry& completion,
                      std::uint64_t ticks) noexcept {
  if (entry == nullptr || entry->state == EntryState::outstanding) {
    counters_.unexpected(entry == nullptr ? nullptr : entry->table, completion.errorCode);
  } else {
    counters_.completed(*entry->table, completion.errorCode, ticks - entry->writtenAt);
  }
}

void AgentCore::answered(HeldEntry& entry, const P4Runtime::BatchStatusEntry& completion) noexcept {
  Operation& operation = *entry.holder;
  Batch& batch = *operation.batch;
  removalEnded(operation, completion.errorCode == 0);
  if (completion.errorCode == 0) {
    entry.state = EntryState::written;
    batch.applied(operation);
  } else {
    entry.holder = nullptr;
    counters_.failed(entry.table, StatusCode::internal, completion.errorCode, completion.entryHandle);
    batch.answer(operation, StatusCode::internal, completion.errorMessage, completion.errorCode);
    undo(entry);
    if (batch.atomicity == Atomicity::rollbackOnError) return rollBack(batch);
  }
  if (batch.undecided == 0) decide(batch);
}

void AgentCore::decide(Batch& batch) noexcept {
  static constinit const Skein::Site site{"./apps/core/AgentCore", 5, "decide", "batch %s"};
  Skein::message(site, batch.number);
  if (batch.images != BeforeImages::kNone) images_->decide(std::exchange(batch.images, BeforeImages::kNone));
  const auto applied = [&batch](std::size_t i) {
    return i < batch.operations.size() && batch.operations[i].state == State::applied;
  };
  for (std::size_t i = 0; i < batch.operations.size(); ++i) {
    if (applied(i + 2 * HeldEntries::kAhead))
      HeldEntries::prefetch(*batch.operations[i + 2 * HeldEntries::kAhead].entry);
    if (applied(i + HeldEntries::kAhead)) {
      entries_.prefetchKey(batch.operations[i + HeldEntries::kAhead].hash);
      HeldEntries::prefetch(batch.operations[i + HeldEntries::kAhead].entry->row);
    }
    Operation& operation = batch.operations[i];
    if (operation.state != State::applied && batch.atomicity == Atomicity::rollbackOnError) continue;
    HeldEntry* const entry = std::exchange(operation.entry, nullptr);
    if (entry == nullptr) continue;
    entry->undecided = nullptr;
    if (operation.state == State::applied) {
      batch.answer(operation, StatusCode::ok, {});
      images_->forget(std::exchange(entry->image, BeforeImages::kNone));
      metadata_->remove(entry->handleBefore, entry->genIdBefore);
      release(*entry);
    } else if (entry->settled) {
      release(*entry);
    }
  }
}

/// Answers what has no result ABORTED and undoes it, the last update first.
void AgentCore::rollBack(Batch& batch) noexcept {
  static constinit const Skein::Site site{"./apps/core/AgentCore", 6, "rollBack", "batch %s"};
  Skein::message(site, batch.number);
  for (std::size_t i = batch.operations.size(); i-- > 0;) {
    Operation& operation = batch.operations[i];
    if (operation.state == State::answered) continue;
    giveUp(operation, StatusCode::aborted, "another update of the batch failed");
  }
  if (batch.images != BeforeImages::kNone) images_->abandon(std::exchange(batch.images, BeforeImages::kNone));
}

/// Answers the operation before its time. What it has written is undone, at once or when the outstanding
/// answer has come; of a batch that continues, a late success commits it.
void AgentCore::giveUp(Operation& operation, StatusCode code, std::string_view text) noexcept {
  HeldEntry* const entry = operation.entry;
  const State state = operation.state;
  if (state == State::answered) return;
  counters_.failed(operation.update().table, code, 0, entry == nullptr ? 0 : entry->entryHandle);
  if (state != State::inFlight && state != State::applied) {
    leave(operation);
    return operation.batch->answer(operation, code, text);
  }
  const bool continues = operation.batch->atomicity == Atomicity::continueOnError;
  operation.batch->answer(operation, code, text);
  entry->holder = nullptr;
  if (state == State::applied) return undo(*entry);
  entry->state = continues ? EntryState::late : EntryState::doomed;
  if (continues) images_->lateIs(entry->image);
}

void AgentCore::expire(Clock::time_point now) {
  // What has arrived is in time, whether or not the descriptor has been handled.
  completionsReady();
  const ConfigTable* asked = nullptr;  // the table that `text` is about
  const char* text = "";
  for (const auto& batch : batches_) {
    if (batch->deadline > now) break;
    if (batch->isDone()) continue;
    for (Operation& operation : batch->operations) {
      if (operation.state != State::waiting && operation.state != State::inFlight) continue;
      if (const ConfigTable* const table = operation.update().table; table != asked) {
        asked = table;
        text = settings_.hardwareRuns(table->name()) ? "no answer in time"
                                                     : "no answer in time: no hardware agent runs";
      }
      if (isStopping_) {
        giveUp(operation, StatusCode::unavailable, "the agent is stopping");
      } else {
        giveUp(operation, StatusCode::deadlineExceeded, text);
      }
    }
    settle(*batch);
  }
  proceed();
}

/// Some operations of the batch have their results before it is decided.
void AgentCore::settle(Batch& batch) noexcept {
  if (batch.atomicity == Atomicity::rollbackOnError) return rollBack(batch);
  if (batch.undecided == 0) decide(batch);
}

void AgentCore::outOfService(ConfigTable& table, const std::string& reason) {
  table.outOfServiceIs(reason);
  for (const auto& batch : batches_) {
    bool concerned = false;
    for (Operation& operation : batch->operations) {
      if (operation.update().table != &table || operation.state == State::answered) continue;
      concerned = true;
      giveUp(operation, StatusCode::internal, reason);
    }
    if (concerned) settle(*batch);
  }
  proceed();
}

std::size_t AgentCore::finish() {
  std::size_t finished = 0;
  while (true) {
    const auto isFree = [](const auto& batch) { return batch->isFree(); };
    const auto found = std::find_if(batches_.begin(), batches_.end(), isFree);
    if (found == batches_.end()) return finished;
    const std::unique_ptr<Batch> batch = std::move(*found);
    batches_.erase(found);
    ++finished;
    batch->done(std::move(batch->results));
  }
}

void AgentCore::count() {
  counters_.correctTimes();
  for (const auto& table : tables_) {
    if (table->outOfService().empty()) table->counters().used.set(table->used());
  }
}

bool AgentCore::hasUpdates(const ConfigTable& table) const {
  return std::any_of(batches_.begin(), batches_.end(), [&table](const auto& batch) {
    const auto& operations = batch->operations;
    return std::any_of(operations.begin(), operations.end(), [&table](const Operation& operation) {
      return operation.state != State::answered && operation.update().table == &table;
    });
  });
}

std::optional<AgentCore::Clock::time_point> AgentCore::nextDeadline() const {
  if (batches_.empty()) return std::nullopt;
  return batches_.front()->deadline;
}

}  // namespace Agent
