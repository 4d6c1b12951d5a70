#include "apps/core/AgentCore.h"

#include <algorithm>
#include <bit>
#include <string_view>
#include <utility>

#include "cairn/Exception.h"

namespace Agent {

struct AgentCore::Batch {
  std::vector<Update> updates;
  std::vector<Result> results;
  std::vector<bool> answered;
  std::size_t open;
  Clock::time_point deadline;
  Done done;
  Progress progress;
};

namespace {

/// "l3IifTH3" for "LumenL3IifTH3ConfigTable"; "" for a table of another kind.
std::string shortNameOf(std::string_view tableName) {
  constexpr std::string_view kPrefix = "Lumen";
  constexpr std::string_view kSuffix = "ConfigTable";
  const bool ours = tableName.starts_with(kPrefix) && tableName.ends_with(kSuffix) &&
                    tableName.size() > kPrefix.size() + kSuffix.size();
  if (!ours) return {};
  std::string name(tableName.substr(kPrefix.size(), tableName.size() - kPrefix.size() - kSuffix.size()));
  if (name[0] >= 'A' && name[0] <= 'Z') name[0] = static_cast<char>(name[0] - 'A' + 'a');
  return name;
}

}  // namespace

AgentCore::AgentCore(std::shared_ptr<Lumen::LumenDB> lumenDb, Quill::Ptr<P4Runtime::BatchStatus> batchStatus,
                     const Settings& settings)
    : lumenDb_(std::move(lumenDb)),
      batchStatus_(std::move(batchStatus)),
      settings_(settings),
      nextHandle_(settings_.firstHandle) {
  for (const auto& registered : lumenDb_->tables()) {
    const std::string shortName = shortNameOf(registered->name());
    if (shortName.empty()) continue;
    tables_.push_back(std::make_unique<ConfigTable>(shortName, registered));
    nextHandle_ = std::max(nextHandle_, tables_.back()->greatestNumber() + 1);
  }
  nextGenId_ = nextHandle_;
}

AgentCore::~AgentCore() = default;

ConfigTable* AgentCore::table(std::string_view shortName) {
  const auto named = [shortName](const auto& table) { return table->name() == shortName; };
  const auto found = std::find_if(tables_.begin(), tables_.end(), named);
  return found == tables_.end() ? nullptr : found->get();
}

std::vector<std::string> AgentCore::tableNames() const {
  std::vector<std::string> names;
  for (const auto& table : tables_) names.push_back(table->name());
  return names;
}

void AgentCore::submit(std::vector<Update> updates, Done done, Progress progress, Clock::time_point now) {
  const std::size_t count = updates.size();
  batches_.push_back(
      std::make_unique<Batch>(Batch{std::move(updates), std::vector<Result>(count), std::vector<bool>(count),
                                    count, now + settings_.timeout, std::move(done), std::move(progress)}));
  Batch& batch = *batches_.back();
  for (std::size_t i = 0; i < count; ++i) {
    Update& update = batch.updates[i];
    if (update.table == nullptr || !update.defect.empty()) {
      answer({&batch, i}, {Code::invalidArgument, 0, std::move(update.defect)});
    }
  }
  refuseRepeatedKeys(batch);
  for (std::size_t i = 0; i < count; ++i) {
    if (!batch.answered[i]) attempt({&batch, i});
  }
}

/// Answers every update whose key comes more than once in the batch. Keys are found by open addressing over
/// the numbers of the updates.
void AgentCore::refuseRepeatedKeys(Batch& batch) {
  const std::size_t cells = std::bit_ceil(batch.updates.size() * 2 + 1);
  constexpr std::size_t kFree = static_cast<std::size_t>(-1);
  std::vector<std::size_t> firstWithKey(cells, kFree);
  std::vector<bool> repeated(batch.updates.size());
  for (std::size_t i = 0; i < batch.updates.size(); ++i) {
    const Update& update = batch.updates[i];
    if (batch.answered[i]) continue;
    std::size_t cell = update.table->keyHash(update.row) & (cells - 1);
    for (; firstWithKey[cell] != kFree; cell = (cell + 1) & (cells - 1)) {
      const std::size_t other = firstWithKey[cell];
      const Update& candidate = batch.updates[other];
      if (candidate.table != update.table || !update.table->keyEquals(candidate.row, update.row)) continue;
      repeated[i] = repeated[other] = true;
      break;
    }
    if (!repeated[i]) firstWithKey[cell] = i;
  }
  for (std::size_t i = 0; i < repeated.size(); ++i) {
    if (!repeated[i]) continue;
    answer({&batch, i},
           {Code::invalidArgument, 0, "expected each key once in a batch, got it more than once"});
  }
}

/// Writes the update, or queues it behind the one that its entry has in flight.
void AgentCore::attempt(const Operation& operation) {
  Update& update = operation.batch->updates[operation.index];
  try {
    const std::optional<std::uint64_t> stored = update.table->storedHandle(update.row);
    const std::optional<std::uint64_t> known = stored ? stored : update.table->removal(update.row);
    const auto entry = known ? byHandle_.find(*known) : byHandle_.end();
    if (entry != byHandle_.end()) {
      entry->second.waiting.push_back(operation);
    } else if (update.type == UpdateType::insert) {
      if (stored) return answer(operation, {Code::alreadyExists, 0, "the entry exists"});
      write(operation, nextHandle_++);
    } else {
      if (!stored && !settings_.readable(update.table->name())) {
        return answer(operation, {Code::internal, 0, "the table was found damaged"});
      }
      if (!stored) return answer(operation, {Code::notFound, 0, "there is no such entry"});
      write(operation, *stored);
    }
  } catch (const Cairn::ResourceExhaustedException& exhausted) {
    answer(operation, {Code::resourceExhausted, 0, exhausted.message()});
  } catch (const std::exception& failure) {
    answer(operation, {Code::internal, 0, failure.what()});
  }
}

void AgentCore::write(const Operation& operation, std::uint64_t handle) {
  Update& update = operation.batch->updates[operation.index];
  if (update.type == UpdateType::remove) {
    update.table->remove(update.row);
    update.table->removalIs(update.row, handle);
  } else {
    update.table->write(update.row, nextGenId_++, handle);
  }
  byHandle_.emplace(handle,
                    Entry{update.table, update.row, update.type == UpdateType::remove, operation, {}});
}

void AgentCore::completionsReady() {
  batchStatus_->notificationTake();
  for (const P4Runtime::BatchStatusEntry& completion : batchStatus_->completedTransactionStatusDelAll()) {
    complete(completion);
  }
}

void AgentCore::complete(const P4Runtime::BatchStatusEntry& completion) {
  const auto entry = byHandle_.find(completion.entryHandle);
  if (entry == byHandle_.end()) {
    ++unexpectedCompletions_;
    return;
  }
  const Operation operation = entry->second.current;
  if (operation.batch == nullptr) {
    ++unexpectedCompletions_;
  } else if (completion.errorCode == 0) {
    answer(operation, {});
  } else {
    answer(operation, {Code::hardwareError, completion.errorCode, completion.errorMessage});
  }
  release(entry);
}

/// The entry has nothing in flight any more: attempts what waited for it. The first that is written puts the
/// others behind itself again.
void AgentCore::release(Entries::iterator entry) {
  const Entry released = std::move(entry->second);
  byHandle_.erase(entry);
  if (released.current.batch == nullptr) --overdue_;
  if (released.removed) released.table->removalDel(released.key);
  for (const Operation& operation : released.waiting) attempt(operation);
}

void AgentCore::expire(Clock::time_point now) {
  for (const auto& batch : batches_) {
    if (batch->deadline > now) break;
    if (batch->open == 0) continue;
    for (auto& [handle, entry] : byHandle_) {
      if (entry.current.batch == batch.get()) {
        entry.current.batch = nullptr;
        ++overdue_;
      }
      std::erase_if(entry.waiting,
                    [&batch](const Operation& waiting) { return waiting.batch == batch.get(); });
    }
    for (std::size_t i = 0; i < batch->updates.size(); ++i) {
      if (!batch->answered[i]) answer({batch.get(), i}, {Code::deadlineExceeded, 0, "no answer in time"});
    }
  }
}

void AgentCore::answersOwed(const std::vector<std::uint64_t>& handles) {
  for (const std::uint64_t handle : handles) byHandle_.try_emplace(handle);
  overdue_ = byHandle_.size();
}

void AgentCore::hardwareRestarted() {
  std::vector<std::uint64_t> given;
  for (const auto& [handle, entry] : byHandle_) {
    if (entry.current.batch == nullptr) given.push_back(handle);
  }
  for (const std::uint64_t handle : given) release(byHandle_.find(handle));
}

void AgentCore::answer(const Operation& operation, Result result) {
  operation.batch->results[operation.index] = std::move(result);
  operation.batch->answered[operation.index] = true;
  --operation.batch->open;
}

void AgentCore::reportProgress() const {
  for (const auto& batch : batches_) {
    if (batch->progress) batch->progress(batch->updates.size() - batch->open);
  }
}

std::size_t AgentCore::finish() {
  std::vector<std::unique_ptr<Batch>> finished;
  for (auto& batch : batches_) {
    if (batch->open == 0) finished.push_back(std::move(batch));
  }
  std::erase(batches_, nullptr);
  for (const auto& batch : finished) batch->done(std::move(batch->results));
  return finished.size();
}

std::optional<AgentCore::Clock::time_point> AgentCore::nextDeadline() const {
  if (batches_.empty()) return std::nullopt;
  return batches_.front()->deadline;
}

}  // namespace Agent
