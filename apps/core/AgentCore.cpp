#include "apps/core/AgentCore.h"

#include <algorithm>
#include <bit>
#include <string_view>
#include <utility>

#include "P4RuntimeTolmar/OutputTables.h"
#include "cairn/Exception.h"
#include "vesta/DeferredWakeups.h"

namespace Agent {

namespace {

void refuseDefects(Batch& batch) {
  for (Operation& operation : batch.operations) {
    const std::string& defect = operation.update().defect;
    if (!defect.empty()) batch.answer(operation, Code::invalidArgument, defect);
  }
}

/// Answers every update whose key comes more than once in the batch. Keys are found by open addressing over
/// the numbers of the updates.
void refuseRepeatedKeys(Batch& batch) {
  const std::size_t cells = std::bit_ceil(batch.updates.size() * 2 + 1);
  constexpr std::size_t kFree = static_cast<std::size_t>(-1);
  std::vector<std::size_t> firstWithKey(cells, kFree);
  std::vector<bool> repeated(batch.updates.size());
  for (std::size_t i = 0; i < batch.updates.size(); ++i) {
    const Update& update = batch.updates[i];
    if (batch.operations[i].state == Operation::State::answered) continue;
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
    batch.answer(batch.operations[i], Code::invalidArgument,
                 "expected each key once in a batch, got it more than once");
  }
}

}  // namespace

AgentCore::AgentCore(std::shared_ptr<Lumen::LumenDB> lumenDb, Quill::Ptr<P4Runtime::BatchStatus> batchStatus,
                     const Settings& settings)
    : lumenDb_(std::move(lumenDb)),
      batchStatus_(std::move(batchStatus)),
      settings_(settings),
      nextHandle_(settings_.firstHandle) {
  TolmarHwLib::forEachOutputTable([this]<std::size_t>(const auto& table) {
    const auto registered = lumenDb_->table(TolmarHwLib::rowTableName(table.name));
    if (!registered) return;
    tables_.push_back(std::make_unique<ConfigTable>(std::string(table.name), registered));
    tables_.back()->eachStored([this](const ConfigTable::Stored& stored) {
      nextHandle_ = std::max({nextHandle_, stored.handle + 1, stored.genId + 1});
    });
  });
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
  auto made = std::make_unique<Batch>(std::move(updates), std::move(done), std::move(progress),
                                      now + settings_.timeout);
  refuseDefects(*made);
  refuseRepeatedKeys(*made);
  batches_.push_back(std::move(made));
  const Vesta::DeferredWakeups wakeups;
  for (Operation& operation : batches_.back()->operations) {
    if (operation.state == Operation::State::submitted) attempt(operation);
  }
}

/// Writes the update, or queues it behind the one that its entry has in flight.
void AgentCore::attempt(Operation& operation) noexcept {
  constexpr const char* kNoMemory = "out of memory";
  try {
    attemptOrThrow(operation);
  } catch (const Cairn::ResourceExhaustedException& exhausted) {
    operation.batch->answer(operation, Code::resourceExhausted, exhausted.what());
  } catch (const std::bad_alloc&) {
    operation.batch->answer(operation, Code::resourceExhausted, kNoMemory);
  } catch (const Cairn::MemoryResourceException&) {
    operation.batch->answer(operation, Code::resourceExhausted, kNoMemory);
  } catch (const std::exception& failure) {
    refuse(operation, Code::internal, failure.what());
  }
}

void AgentCore::attemptOrThrow(Operation& operation) {
  const Update& update = operation.update();
  Batch& batch = *operation.batch;
  if (const std::string& reason = update.table->outOfService(); !reason.empty()) {
    return batch.answer(operation, Code::internal, reason);
  }
  const auto stored = update.table->stored(update.row);
  const auto known =
      stored ? std::optional(stored->handle) : entries_.removed(EntryKey{update.table, update.row});
  if (EntryInFlight* const entry = known ? entries_.find(*known) : nullptr) {
    entry->waiting.push_back(&operation);
    operation.state = Operation::State::waiting;
    operation.handle = *known;
  } else if (update.type == UpdateType::insert) {
    if (stored) return batch.answer(operation, Code::alreadyExists, "the entry exists");
    write(operation, nextHandle_++);
  } else {
    if (!stored) return refuse(operation, Code::notFound, "there is no such entry");
    write(operation, stored->handle);
  }
}

/// The entry is in flight before its table is written, so that nothing can fail afterwards.
void AgentCore::write(Operation& operation, Handle handle) {
  Update& update = operation.update();
  try {
    if (update.type == UpdateType::remove) {
      entries_.addRemoval(handle, operation, {update.table, update.row});
      update.table->remove(update.row);
    } else {
      const std::uint64_t genId = nextGenId_++;
      entries_.add(handle, operation, genId);
      update.table->write(update.row, genId, handle);
    }
  } catch (...) {
    if (entries_.find(handle) != nullptr) entries_.del(handle);
    throw;
  }
  operation.state = Operation::State::inFlight;
  operation.handle = handle;
}

/// A fault of the table is the better reason, whatever layer has found out about it first.
void AgentCore::refuse(Operation& operation, Code code, const char* text) noexcept {
  try {
    if (const std::string fault = settings_.fault(operation.update().table->name()); !fault.empty()) {
      return operation.batch->answer(operation, Code::internal, fault);
    }
  } catch (const std::exception&) {
    // without it, then
  }
  operation.batch->answer(operation, code, text);
}

void AgentCore::completionsReady() {
  const auto completions = batchStatus_->completedTransactionStatusDelAll();
  batchStatus_->notificationTake();
  for (const P4Runtime::BatchStatusEntry& completion : completions) complete(completion);
}

void AgentCore::complete(const P4Runtime::BatchStatusEntry& completion) noexcept {
  const EntryInFlight* const entry = entries_.find(completion.entryHandle);
  if (entry == nullptr || entry->state == EntryInFlight::State::overdue) {
    ++unexpectedCompletions_;
    if (entry == nullptr) return;
  } else if (completion.errorCode == 0) {
    entry->operation->batch->answer(*entry->operation, Code::ok, {});
  } else {
    entry->operation->batch->answer(*entry->operation, Code::hardwareError, completion.errorMessage,
                                    completion.errorCode);
  }
  release(completion.entryHandle);
}

/// The entry has nothing in flight any more: attempts what waited for it. The first that is written puts the
/// others behind itself again.
void AgentCore::release(Handle handle) noexcept {
  for (Operation* const operation : entries_.del(handle)) attempt(*operation);
}

void AgentCore::giveUp(Operation& operation, Code code, std::string_view text) noexcept {
  if (operation.state == Operation::State::answered) return;
  EntryInFlight& entry = *entries_.find(operation.handle);
  if (operation.state == Operation::State::inFlight) {
    entries_.overdueIs(entry);
  } else {
    std::erase(entry.waiting, &operation);
  }
  operation.batch->answer(operation, code, text);
}

void AgentCore::expire(Clock::time_point now) {
  // What has arrived is in time, whether or not the descriptor has been handled.
  completionsReady();
  const ConfigTable* asked = nullptr;  // the table that `text` is about
  const char* text = "";
  for (const auto& batch : batches_) {
    if (batch->deadline > now) break;
    if (batch->open == 0) continue;
    for (Operation& operation : batch->operations) {
      if (operation.state == Operation::State::answered) continue;
      if (const ConfigTable* const table = operation.update().table; table != asked) {
        asked = table;
        text = settings_.hardwareRuns(table->name()) ? "no answer in time"
                                                     : "no answer in time: no hardware agent runs";
      }
      giveUp(operation, Code::deadlineExceeded, text);
    }
  }
}

void AgentCore::outOfService(ConfigTable& table, const std::string& reason) {
  table.outOfServiceIs(reason);
  for (const auto& batch : batches_) {
    for (Operation& operation : batch->operations) {
      if (operation.update().table == &table) giveUp(operation, Code::internal, reason);
    }
  }
}

void AgentCore::outstandingAre(const HardwareAnswers& answers) {
  for (const auto& table : tables_) {
    table->eachStored([&](const ConfigTable::Stored& stored) {
      const auto answer = answers.find(stored.handle);
      const bool answered =
          answer != answers.end() && !answer->second.deleted && answer->second.genId == stored.genId;
      if (!answered && entries_.find(stored.handle) == nullptr) entries_.addOverdue(stored.handle);
    });
  }
}

void AgentCore::recoverCompletions(const HardwareAnswers& answers) {
  entries_.forEach([&](Handle handle, const EntryInFlight& entry) {
    const auto answer = answers.find(handle);
    const bool present = answer != answers.end() && !answer->second.deleted;
    const bool answered = entry.removal ? !present : present && answer->second.genId == entry.genId;
    if (!answered) return;
    P4Runtime::BatchStatusEntry completion{handle, present ? answer->second.errorCode : std::uint16_t{0}, {}};
    completion.setErrorMessage();
    complete(completion);
  });
}

void AgentCore::hardwareRestarted() {
  entries_.forEach([this](Handle handle, const EntryInFlight& entry) {
    if (entry.state == EntryInFlight::State::overdue) release(handle);
  });
}

void AgentCore::reportProgress() const {
  for (const auto& batch : batches_) {
    if (batch->progress) batch->progress(batch->updates.size() - batch->open);
  }
}

std::size_t AgentCore::finish() {
  std::size_t finished = 0;
  while (true) {
    const auto complete = [](const auto& batch) { return batch->open == 0; };
    const auto found = std::find_if(batches_.begin(), batches_.end(), complete);
    if (found == batches_.end()) return finished;
    const std::unique_ptr<Batch> batch = std::move(*found);
    batches_.erase(found);
    ++finished;
    batch->done(std::move(batch->results));
  }
}

std::optional<AgentCore::Clock::time_point> AgentCore::nextDeadline() const {
  if (batches_.empty()) return std::nullopt;
  return batches_.front()->deadline;
}

}  // namespace Agent
