#include "apps/core/AgentCore.h"

#include <algorithm>
#include <array>
#include <new>
#include <string_view>
#include <utility>

#include "P4RuntimeTolmar/Names.h"
#include "P4RuntimeTolmar/OutputTables.h"
#include "cairn/Exception.h"
#include "vesta/DeferredWakeups.h"

namespace Agent {

using EntryState = HeldEntry::State;
using State = Operation::State;

namespace {

constexpr std::size_t kBatchWords = 4096;
constexpr std::size_t kLongestAddress = 16;  // bytes in a row's variable area
constexpr std::size_t kAhead = 6;            // updates between a prefetch and its use
constexpr const char* kNoMemory = "out of memory";

void prefetchBytes(const Lumen::BaseRow& row) {
  if (!row.isNull()) __builtin_prefetch(row.bytes().data);
}

/// Brings near what the attempts after this one will read.
void prefetchNext(const Operation& operation) {
  const Operation* const next = operation.next;
  if (next == nullptr || next->entry == nullptr) return;
  prefetchBytes(next->entry->row);
  if (next->next != nullptr && next->next->entry != nullptr) HeldEntries::prefetch(*next->next->entry);
}

/// Answers updates that could not be read, and hashes the keys of the others.
void readUpdates(Batch& batch) {
  const std::vector<Update>& updates = batch.updates;
  for (std::size_t i = 0; i < updates.size(); ++i) {
    if (i + kAhead < updates.size()) prefetchBytes(updates[i + kAhead].row);
    const Update& update = updates[i];
    if (update.defect == nullptr) {
      batch.operations[i].hash = update.table->keyHash(update.row);
    } else {
      batch.answer(batch.operations[i], update.defect->code, update.defect->message);
    }
  }
}

bool isAnswered(const ConfigTable& table, const Lumen::BaseRow& row, const HardwareAnswers& answers) {
  const auto answer = answers.find(table.handle(row));
  return answer != answers.end() && !answer->second.deleted && answer->second.genId == table.genId(row);
}

bool isKnown(std::uint64_t handle, const HardwareAnswers& answers) {
  const auto answer = answers.find(handle);
  return answer != answers.end() && !answer->second.deleted;
}

}  // namespace

AgentCore::AgentCore(std::shared_ptr<Lumen::LumenDB> lumenDb, Quill::Ptr<P4Runtime::BatchStatus> batchStatus,
                     Settings settings)
    : lumenDb_(std::move(lumenDb)),
      batchStatus_(std::move(batchStatus)),
      settings_(std::move(settings)),
      nextHandle_(settings_.firstHandle),
      nextGenId_(settings_.firstHandle) {
  std::size_t rows = 0;
  std::size_t rowBytes = 0;
  TolmarHwLib::forEachOutputTable([&]<std::size_t number>(const auto& table) {
    const std::string rowTable = TolmarHwLib::rowTableName(table.name);
    const auto registered = lumenDb_->table(rowTable);
    if (!registered) throw Cairn::Exception("no row table " + rowTable + " is registered");
    tables_.push_back(
        std::make_unique<ConfigTable>(std::string(table.name), registered, number, table.capacity));
    rows += table.capacity;
    const Lumen::LmClass& rowClass = tables_.back()->rowClass();
    rowBytes =
        std::max(rowBytes, rowClass.fixedLength() + kLongestAddress * rowClass.variableColumns().size());
  });
  images_.emplace(settings_.beforeImages, BeforeImages::Capacity{kBatchWords, rows, rowBytes});
  metadata_.emplace(settings_.metadata, Metadata::Capacity{2 * rows + 1, settings_.maxMetadata});
}

AgentCore::~AgentCore() = default;

ConfigTable* AgentCore::table(std::string_view shortName) {
  const auto named = [shortName](const auto& table) { return table->name() == shortName; };
  const auto found = std::find_if(tables_.begin(), tables_.end(), named);
  return found == tables_.end() ? nullptr : found->get();
}

// The start.

void AgentCore::start(const HardwareAnswers& answers) {
  for (const std::string& fault : {images_->fault(), metadata_->fault()}) {
    if (!fault.empty()) settings_.log(fault);
  }
  std::vector<BeforeImages::Image> undecided = images_->undecided();
  const auto above = [this](const ConfigTable& table, const Lumen::BaseRow& row) {
    nextHandle_ = std::max({nextHandle_, table.handle(row) + 1, table.genId(row) + 1});
  };
  for (const auto& table : tables_) {
    table->eachRow([&](const Lumen::BaseRow& row) { above(*table, row); });
  }
  std::erase_if(undecided, [&](BeforeImages::Image& image) { return !restorable(image, above); });
  nextGenId_ = nextHandle_;
  retainMetadata(undecided);
  if (!undecided.empty()) {
    settings_.log("undoing " + std::to_string(undecided.size()) +
                  " updates that the previous run left undecided");
  }
  for (BeforeImages::Image& image : undecided) restore(image, answers);
  for (const auto& table : tables_) {
    std::vector<Lumen::BaseRow> unanswered;
    table->eachRow([&](const Lumen::BaseRow& row) {
      if (!isAnswered(*table, row, answers)) unanswered.push_back(row);
    });
    for (Lumen::BaseRow& row : unanswered) {
      const std::uint32_t hash = table->keyHash(row);
      if (entries_.find(*table, hash, row) != nullptr) continue;
      HeldEntry& entry = entries_.add(*table, hash, row);
      entry.state = EntryState::outstanding;
      entries_.handleIs(entry, table->handle(row));
    }
  }
}

/// Keeps what belongs to a row of a table or of a before-image.
void AgentCore::retainMetadata(const std::vector<BeforeImages::Image>& undecided) {
  std::unordered_map<std::uint64_t, std::array<std::uint64_t, 2>> genIds;  // by handle: in the table, before
  for (const auto& table : tables_) {
    table->eachRow([&](const Lumen::BaseRow& row) { genIds[table->handle(row)][0] = table->genId(row); });
  }
  for (const BeforeImages::Image& image : undecided) {
    const ConfigTable& table = *tables_[image.table];
    if (image.present) genIds[table.handle(image.row)][1] = table.genId(image.row);
  }
  metadata_->retain([&genIds](std::uint64_t handle, std::uint64_t genId) {
    const auto found = genIds.find(handle);
    return found != genIds.end() && (found->second[0] == genId || found->second[1] == genId);
  });
}

/// Whether the image is that of a table of this core.
bool AgentCore::restorable(BeforeImages::Image& image,
                           const std::function<void(const ConfigTable&, const Lumen::BaseRow&)>& visit) {
  try {
    if (image.table >= tables_.size()) throw Cairn::Exception("it belongs to a table that is not served");
    tables_[image.table]->adopt(image.row);
    visit(*tables_[image.table], image.row);
    return true;
  } catch (const Cairn::Exception& failure) {
    settings_.log("a before-image is not used: " + failure.message());
    images_->remove(image.place);
    return false;
  }
}

/// The row may still await its answer, and only one may be outstanding: then that one leads to the undo.
void AgentCore::restore(BeforeImages::Image& image, const HardwareAnswers& answers) {
  ConfigTable& table = *tables_[image.table];
  const std::uint32_t hash = table.keyHash(image.row);
  if (entries_.find(table, hash, image.row) != nullptr) return images_->remove(image.place);
  const Lumen::BaseRow current = table.stored(image.row);
  HeldEntry& entry = entries_.add(table, hash, image.row);
  entry.image = image.place;
  if (image.present) beforeIs(entry, std::move(image.row));
  entry.removed = current.isNull();
  if (entry.removed && image.present) reserve(entry, true);
  entry.entryHandle = table.handle(entry.removed ? entry.row : current);
  if (!entry.removed) entry.genId = table.genId(current);
  const bool awaited =
      entry.removed ? isKnown(entry.entryHandle, answers) : !isAnswered(table, current, answers);
  if (!awaited) return undo(entry);
  entry.state = EntryState::doomed;
  entries_.handleIs(entry, entry.entryHandle);
}

// From submission to the table.

void AgentCore::submit(std::vector<Update> updates, Atomicity atomicity, Done done, Progress progress,
                       Clock::time_point now) {
  auto made = std::make_unique<Batch>(std::move(updates), tables_.size(), atomicity, std::move(done),
                                      std::move(progress), now + settings_.timeout);
  std::vector<bool> repeated(made->updates.size());
  batches_.push_back(std::move(made));
  const Vesta::DeferredWakeups wakeups;
  Batch& batch = *batches_.back();
  readUpdates(batch);
  for (std::size_t i = 0; i < batch.operations.size(); ++i) {
    if (i + kAhead < batch.operations.size()) entries_.prefetchKey(batch.operations[i + kAhead].hash);
    if (batch.operations[i].state == State::submitted) hold(batch.operations[i], repeated);
  }
  for (std::size_t i = 0; i < repeated.size(); ++i) {
    if (!repeated[i]) continue;
    refuse(batch.operations[i], StatusCode::invalidArgument,
           "expected each key once in a batch, got it more than once");
  }
  const bool refused = batch.unanswered != batch.updates.size();
  if (atomicity == Atomicity::rollbackOnError && refused) rollBack(batch);
  if (batch.undecided == 0) decide(batch);
  proceed();
}

/// Gives the operation its place: it holds the entry, or stands behind those that wait for it.
void AgentCore::hold(Operation& operation, std::vector<bool>& repeated) {
  Batch& batch = *operation.batch;
  Update& update = operation.update();
  const auto numberOf = [&batch](const Operation& of) {
    return static_cast<std::size_t>(&of - batch.operations.data());
  };
  try {
    HeldEntry* entry = entries_.find(*update.table, operation.hash, update.row);
    if (entry == nullptr) {
      entry = &entries_.add(*update.table, operation.hash, std::move(update.row));
      entry->holder = &operation;
      makeReady(operation);
    } else if (Operation* const last = entry->last(); last != nullptr && last->batch == &batch) {
      repeated[numberOf(*last)] = repeated[numberOf(operation)] = true;
      return;
    } else {
      operation.next = nullptr;
      (entry->lastWaiting == nullptr ? entry->firstWaiting : entry->lastWaiting->next) = &operation;
      entry->lastWaiting = &operation;
      operation.state = State::waiting;
    }
    ++batch.unready;
    operation.entry = entry;
    if (update.type == UpdateType::remove) ++batch.rooms[update.table->index()].removing;
  } catch (const std::bad_alloc&) {
    batch.answer(operation, StatusCode::resourceExhausted, kNoMemory);
  }
}

void AgentCore::proceed() noexcept {
  constexpr int kAttempts = 128;
  const Vesta::DeferredWakeups wakeups;
  for (int i = 0; i < kAttempts && hasReady(); ++i) {
    Operation& operation = *ready_.take();
    Batch& batch = *operation.batch;
    --batch.queued;
    if (operation.state != State::ready) continue;
    prefetchNext(operation);
    if (batch.atomicity == Atomicity::rollbackOnError && !batch.checked) {
      if (--batch.unready == 0) begin(batch);
    } else if (batch.checked || check(operation)) {
      if (operation.state == State::ready && !write(operation)) settle(batch);
    } else {
      settle(batch);
    }
  }
}

/// All entries are the batch's own: checks everything before anything is written.
void AgentCore::begin(Batch& batch) noexcept {
  batch.checked = true;
  for (const bool removals : {true, false}) {  // which make room
    for (Operation& operation : batch.operations) {
      const bool removes = operation.update().type == UpdateType::remove;
      if (removes == removals) batch.checked = check(operation) && batch.checked;
    }
  }
  if (!batch.checked) return rollBack(batch);
  for (Operation& operation : batch.operations) makeReady(operation);
}

void AgentCore::makeReady(Operation& operation) noexcept {
  operation.state = State::ready;
  ready_.add(operation);
  ++operation.batch->queued;
}

/// What can be known before anything is written; a false answers the update.
bool AgentCore::check(Operation& operation) noexcept {
  return guarded(operation, [&] {
    HeldEntry& entry = *operation.entry;
    ConfigTable& table = *entry.table;
    if (!table.outOfService().empty()) return refuse(operation, StatusCode::internal, table.outOfService());
    beforeIs(entry, table.stored(entry.row));
    const UpdateType type = operation.update().type;
    if (type != UpdateType::insert) {
      if (!entry.present) return refuse(operation, StatusCode::notFound, "there is no such entry");
      if (type == UpdateType::remove && operation.batch->atomicity == Atomicity::rollbackOnError) {
        ++operation.batch->rooms[table.index()].made;
      }
    } else if (entry.present) {
      refuse(operation, StatusCode::alreadyExists, "the entry exists");
    } else if (!reserve(entry, false) && !takeRoom(operation)) {
      refuse(operation, StatusCode::resourceExhausted, table.fullText());
    }
  });
}

/// Room for an insertion that the batch's own removals have made, or are about to make: then it waits.
bool AgentCore::takeRoom(Operation& operation) {
  Batch::Room& room = operation.batch->rooms[operation.entry->table->index()];
  if (room.made != 0) {
    --room.made;
    return reserve(*operation.entry, true);
  }
  if (operation.batch->atomicity == Atomicity::rollbackOnError || room.removing == 0) return false;
  operation.state = State::waiting;
  room.waiting.add(operation);
  return true;
}

/// Lets insertions that wait for it have the room of a removal, or learn that there will be none.
void AgentCore::removalEnded(Operation& operation, bool removed) noexcept {
  const bool continues = operation.batch->atomicity == Atomicity::continueOnError;
  if (!continues || operation.entry == nullptr || operation.update().type != UpdateType::remove) return;
  Batch::Room& room = operation.batch->rooms[operation.entry->table->index()];
  --room.removing;
  if (removed) ++room.made;
  while (room.made != 0 || room.removing == 0) {
    Operation* const waiting = room.waiting.take();
    if (waiting == nullptr) return;
    if (waiting->state != State::waiting) continue;
    makeReady(*waiting);
    if (removed && room.removing != 0) return;
  }
}

/// The before-image is in the file and the handle is known before the table changes, so that nothing can
/// fail afterwards.
bool AgentCore::write(Operation& operation) noexcept {
  return guarded(operation, [&] {
    HeldEntry& entry = *operation.entry;
    ConfigTable& table = *entry.table;
    keepImage(operation);
    try {
      entry.entryHandle = entry.present ? entry.handleBefore : nextHandle_++;
      entries_.handleIs(entry, entry.entryHandle);
      if (operation.update().type == UpdateType::remove) {
        table.remove(entry.row);
        entry.removed = true;
        reserve(entry, true);
      } else {
        entry.genId = nextGenId_++;
        metadata_->add(entry.entryHandle, entry.genId, operation.update().metadataBytes());
        table.write(entry.row, entry.genId, entry.entryHandle);
        unreserve(entry);
      }
    } catch (...) {
      metadata_->remove(entry.entryHandle, entry.genId);
      images_->remove(std::exchange(entry.image, BeforeImages::kNone));
      throw;
    }
    entry.state = EntryState::writing;
    operation.state = State::inFlight;
  });
}

void AgentCore::keepImage(Operation& operation) {
  Batch& batch = *operation.batch;
  HeldEntry& entry = *operation.entry;
  if (batch.images == BeforeImages::kNone) batch.images = images_->begin();
  if (batch.images == BeforeImages::kNone) {
    throw Cairn::ResourceExhaustedException("too many undecided batches: used " +
                                            std::to_string(kBatchWords) + " of " +
                                            std::to_string(kBatchWords));
  }
  entry.image = images_->add(batch.images, entry.table->index(), entry.present,
                             entry.present ? entry.before : entry.row);
  if (entry.image == BeforeImages::kNone) {
    throw Cairn::ResourceExhaustedException("too many undecided updates: no room for another before-image");
  }
  entry.before = Lumen::BaseRow();
}

void AgentCore::beforeIs(HeldEntry& entry, Lumen::BaseRow row) {
  entry.present = !row.isNull();
  entry.handleBefore = entry.present ? entry.table->handle(row) : 0;
  entry.genIdBefore = entry.present ? entry.table->genId(row) : 0;
  entry.before = std::move(row);
}

/// The row before the entry's update. A null row if there was none.
Lumen::BaseRow AgentCore::rowBefore(const HeldEntry& entry) const {
  if (!entry.present || !entry.before.isNull()) return entry.before;
  Lumen::BaseRow row = images_->row(entry.image);
  entry.table->adopt(row);
  return row;
}

/// True unless `call` has answered the operation or thrown, which answers it too.
template <class Call>
bool AgentCore::guarded(Operation& operation, const Call& call) noexcept {
  if (operation.state == State::answered) return false;
  try {
    call();
  } catch (const Cairn::ResourceExhaustedException& exhausted) {
    refuse(operation, StatusCode::resourceExhausted, exhausted.what());
  } catch (const std::bad_alloc&) {
    refuse(operation, StatusCode::resourceExhausted, kNoMemory);
  } catch (const Cairn::MemoryResourceException&) {
    refuse(operation, StatusCode::resourceExhausted, kNoMemory);
  } catch (const std::exception& failure) {
    refuse(operation, StatusCode::internal, failure.what());
  }
  return operation.state != State::answered;
}

/// Answers an update that has written nothing. A fault of the table is the better reason, whatever layer has
/// found out about it first.
void AgentCore::refuse(Operation& operation, StatusCode code, std::string_view text) noexcept {
  if (operation.state == State::answered) return;
  std::string fault;
  if (code == StatusCode::notFound || code == StatusCode::internal) {
    try {
      fault = settings_.fault(operation.update().table->name());
    } catch (const std::exception&) {
      // without it, then
    }
  }
  removalEnded(operation, false);
  leave(operation);
  operation.batch->answer(operation, fault.empty() ? code : StatusCode::internal,
                          fault.empty() ? text : fault);
}

/// Takes an operation that has written nothing away from its entry.
void AgentCore::leave(Operation& operation) noexcept {
  HeldEntry* const entry = operation.entry;
  if (entry == nullptr) return;
  if (entry->holder == &operation) return release(*entry);
  --operation.batch->unready;
  Operation* before = nullptr;
  for (Operation* at = entry->firstWaiting; at != &operation; at = at->next) before = at;
  (before == nullptr ? entry->firstWaiting : before->next) = operation.next;
  if (entry->lastWaiting == &operation) entry->lastWaiting = before;
}

// From the hardware's answer to the decision.

void AgentCore::completionsReady() {
  const Vesta::DeferredWakeups wakeups;
  const auto completions = batchStatus_->completedTransactionStatusDelAll();
  batchStatus_->notificationTake();
  const std::size_t count = completions.size();
  for (std::size_t i = 0; i < count; ++i) {
    if (i + 2 * kAhead < count) entries_.prefetchHandle(completions[i + 2 * kAhead].entryHandle);
    if (i + kAhead < count) entries_.prefetchEntry(completions[i + kAhead].entryHandle);
    complete(completions[i]);
  }
  proceed();
}

void AgentCore::complete(const P4Runtime::BatchStatusEntry& completion) noexcept {
  HeldEntry* const entry = entries_.find(completion.entryHandle);
  if (entry == nullptr || entry->state == EntryState::outstanding) ++counters_.unexpectedCompletions;
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

void AgentCore::answered(HeldEntry& entry, const P4Runtime::BatchStatusEntry& completion) noexcept {
  Operation& operation = *entry.holder;
  Batch& batch = *operation.batch;
  removalEnded(operation, completion.errorCode == 0);
  if (completion.errorCode == 0) {
    entry.state = EntryState::written;
    batch.applied(operation);
  } else {
    entry.holder = nullptr;
    batch.answer(operation, StatusCode::internal, completion.errorMessage, completion.errorCode);
    undo(entry);
    if (batch.atomicity == Atomicity::rollbackOnError) return rollBack(batch);
  }
  if (batch.undecided == 0) decide(batch);
}

void AgentCore::decide(Batch& batch) noexcept {
  if (batch.images != BeforeImages::kNone) images_->decide(std::exchange(batch.images, BeforeImages::kNone));
  const auto applied = [&batch](std::size_t i) {
    return i < batch.operations.size() && batch.operations[i].state == State::applied;
  };
  for (std::size_t i = 0; i < batch.operations.size(); ++i) {
    if (applied(i + 2 * kAhead)) HeldEntries::prefetch(*batch.operations[i + 2 * kAhead].entry);
    if (applied(i + kAhead)) {
      entries_.prefetchKey(batch.operations[i + kAhead].hash);
      prefetchBytes(batch.operations[i + kAhead].entry->row);
    }
    if (!applied(i)) continue;
    Operation& operation = batch.operations[i];
    HeldEntry& entry = *operation.entry;
    batch.answer(operation, StatusCode::ok, {});
    images_->forget(std::exchange(entry.image, BeforeImages::kNone));
    metadata_->remove(entry.handleBefore, entry.genIdBefore);
    release(entry);
  }
}

/// Answers what has no result ABORTED and undoes it, the last update first.
void AgentCore::rollBack(Batch& batch) noexcept {
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
      giveUp(operation, StatusCode::deadlineExceeded, text);
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

// Undo, commit and what follows.

void AgentCore::undo(HeldEntry& entry) noexcept {
  ++counters_.undos;
  try {
    const std::array written{entry.entryHandle, entry.genId};
    const std::array before{entry.handleBefore, entry.genIdBefore};
    entry.before = rowBefore(entry);
    if (entry.present) {
      writeBack(entry);
    } else {
      entries_.handleIs(entry, entry.entryHandle);
      entry.table->remove(entry.row);
      entry.removed = true;
    }
    if (entry.image != BeforeImages::kNone) images_->remove(std::exchange(entry.image, BeforeImages::kNone));
    for (const auto& [handle, genId] : {written, before}) metadata_->remove(handle, genId);
    entry.state = EntryState::undoing;
    if (entry.removed) retryUndos(*entry.table);
  } catch (const std::exception& failure) {
    if (entry.removed && entry.table->isFull()) return waitForRoom(entry);
    // The before-image counts whatever becomes of the batch: the next start undoes what could not be undone.
    if (entry.image != BeforeImages::kNone) images_->lateIs(entry.image);
    ++counters_.undosRefused;
    log(entry, "could not be undone: ", failure.what());
    release(entry);
  }
}

/// An insertion of the batch has the room and is not answered yet: its own undo will give it back.
void AgentCore::waitForRoom(HeldEntry& entry) noexcept {
  entries_.handleDel(entry);
  metadata_->remove(entry.entryHandle, entry.genId);
  entry.state = EntryState::doomed;
  entry.lacksRoom = true;
}

void AgentCore::retryUndos(const ConfigTable& table) noexcept {
  entries_.forEach([&](HeldEntry& entry) {
    if (entry.table == &table && std::exchange(entry.lacksRoom, false)) undo(entry);
  });
}

/// The row before, with its metadata, under a new genId; under a new handle where the entry was gone.
void AgentCore::writeBack(HeldEntry& entry) {
  ConfigTable& table = *entry.table;
  const std::string_view kept = metadata_->of(entry.handleBefore, entry.genIdBefore);
  if (entry.removed) entry.entryHandle = nextHandle_++;
  entry.genId = nextGenId_++;
  entries_.handleIs(entry, entry.entryHandle);
  metadata_->add(entry.entryHandle, entry.genId, kept);
  table.write(entry.before, entry.genId, entry.entryHandle);
  entry.handleBefore = entry.entryHandle;
  entry.genIdBefore = entry.genId;
  entry.removed = false;
  unreserve(entry);
}

void AgentCore::undone(HeldEntry& entry, std::uint16_t errorCode) noexcept {
  if (errorCode != 0) {
    ++counters_.undosRefused;
    log(entry, "is not programmed: the hardware has refused its undo with code ",
        std::to_string(errorCode).c_str());
    try {
      if (!entry.repeated && entry.present) refused_.push_back({entry.table, entry.row, entry.genId});
    } catch (const std::bad_alloc&) {
      // not repeated, then
    }
  }
  release(entry);
}

/// A late success.
void AgentCore::commit(HeldEntry& entry) noexcept {
  images_->remove(std::exchange(entry.image, BeforeImages::kNone));
  metadata_->remove(entry.handleBefore, entry.genIdBefore);
  release(entry);
}

/// The entry is free: for the update that has waited longest, if there is one.
void AgentCore::release(HeldEntry& entry) noexcept {
  unreserve(entry);
  Operation* const next = entry.firstWaiting;
  if (next == nullptr) return entries_.del(entry);
  entries_.handleDel(entry);
  HeldEntry freed;
  freed.table = entry.table;
  freed.hash = entry.hash;
  freed.row = std::move(next->update().row);
  freed.holder = next;
  freed.firstWaiting = next->next;
  freed.lastWaiting = next->next == nullptr ? nullptr : entry.lastWaiting;
  entry = std::move(freed);
  makeReady(*next);
}

bool AgentCore::reserve(HeldEntry& entry, bool forced) {
  entry.roomReserved = entry.table->reserve(forced);
  return entry.roomReserved;
}

void AgentCore::unreserve(HeldEntry& entry) noexcept {
  if (std::exchange(entry.roomReserved, false)) entry.table->unreserve();
}

void AgentCore::log(const HeldEntry& entry, const char* what, const char* why) noexcept {
  try {
    settings_.log("table " + entry.table->name() + ": the entry with handle " +
                  std::to_string(entry.entryHandle) + " " + what + why);
  } catch (const std::bad_alloc&) {
    // counted all the same
  }
}

void AgentCore::recoverCompletions(const HardwareAnswers& answers) {
  entries_.forEach([&](HeldEntry& entry) {
    if (entry.handle == 0 || entry.state == EntryState::outstanding) return;
    const auto answer = answers.find(entry.handle);
    const bool present = answer != answers.end() && !answer->second.deleted;
    const bool answered = entry.removed ? !present : present && answer->second.genId == entry.genId;
    if (!answered) return;
    P4Runtime::BatchStatusEntry completion{
        entry.handle, present ? answer->second.errorCode : std::uint16_t{0}, {}};
    completion.setErrorMessage();
    complete(completion);
  });
  proceed();
}

void AgentCore::hardwareRestarted() {
  entries_.forEach([this](HeldEntry& entry) {
    switch (entry.state) {
      case EntryState::outstanding:
        return release(entry);
      case EntryState::late:
      case EntryState::doomed:
        return undo(entry);
      case EntryState::undoing:
        if (!std::exchange(entry.repeated, true) && entry.present) return undo(entry);
        ++counters_.undosRefused;
        log(entry, "may not be programmed: the hardware has not answered its undo", "");
        return release(entry);
      default:
        return;
    }
  });
  for (const Refused& refused : std::exchange(refused_, {})) repeatUndo(refused);
  proceed();
}

/// Once more, unless the entry has been written again since.
void AgentCore::repeatUndo(const Refused& refused) {
  ConfigTable& table = *refused.table;
  const std::uint32_t hash = table.keyHash(refused.row);
  if (entries_.find(table, hash, refused.row) != nullptr) return;
  Lumen::BaseRow current = table.stored(refused.row);
  if (current.isNull() || table.genId(current) != refused.genId) return;
  HeldEntry& entry = entries_.add(table, hash, refused.row);
  entry.entryHandle = table.handle(current);
  beforeIs(entry, std::move(current));
  entry.repeated = true;
  undo(entry);
}

// Reads and results.

void AgentCore::eachDecidedRow(const ConfigTable& table,
                               const std::function<void(const Lumen::BaseRow&)>& visit) {
  table.eachRow([&](const Lumen::BaseRow& row) {
    const HeldEntry* const entry =
        entries_.size() == 0 ? nullptr : entries_.find(table, table.keyHash(row), row);
    if (entry == nullptr || !entry->isChanged()) visit(row);
  });
  entries_.forEach([&](const HeldEntry& entry) {
    if (entry.table == &table && entry.isChanged() && entry.present) visit(rowBefore(entry));
  });
}

Lumen::BaseRow AgentCore::decidedRow(const ConfigTable& table, const Lumen::BaseRow& row) {
  const HeldEntry* const entry = entries_.find(table, table.keyHash(row), row);
  return entry != nullptr && entry->isChanged() ? rowBefore(*entry) : table.stored(row);
}

void AgentCore::reportProgress() const {
  for (const auto& batch : batches_) {
    if (batch->progress) batch->progress(batch->updates.size() - batch->undecided);
  }
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

std::optional<AgentCore::Clock::time_point> AgentCore::nextDeadline() const {
  if (batches_.empty()) return std::nullopt;
  return batches_.front()->deadline;
}

}  // namespace Agent
