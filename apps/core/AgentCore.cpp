#include "apps/core/AgentCore.h"

#include <algorithm>
#include <array>
#include <new>
#include <string_view>
#include <utility>

#include "P4RuntimeTolmar/Names.h"
#include "P4RuntimeTolmar/OutputTables.h"
#include "cairn/Exception.h"
#include "skein/Ring.h"
#include "skein/Skein.h"
#include "vesta/DeferredWakeups.h"

namespace Agent {

using EntryState = HeldEntry::State;
using State = Operation::State;

namespace {

constexpr std::size_t kBatchWords = 4096;
constexpr std::size_t kLongestAddress = 16;  // bytes in a row's variable area
constexpr const char* kNoMemory = "out of memory";

/// Brings near what the attempts after this one will read.
void prefetchNext(const Operation& operation) {
  const Operation* const next = operation.next;
  if (next == nullptr || next->entry == nullptr) return;
  HeldEntries::prefetch(next->entry->row);
  if (next->next != nullptr && next->next->entry != nullptr) HeldEntries::prefetch(*next->next->entry);
}

// What an operator asks for later: when the batch of an entry's handle came, was written and was decided.
constexpr std::string_view kSource = "./apps/core/AgentCore";
constinit const Skein::Site kSubmitted{kSource, 1, "submit", "batch %s of %s updates"};
constinit const Skein::Site kInserted{kSource, 2, "write", "batch %s insert handle %s genId %s"};
constinit const Skein::Site kModified{kSource, 3, "write", "batch %s modify handle %s genId %s"};
constinit const Skein::Site kRemoved{kSource, 4, "write", "batch %s delete handle %s"};

/// Answers updates that could not be read, and hashes the keys of the others.
void readUpdates(Batch& batch, CoreCounters& counters) {
  const std::vector<Update>& updates = batch.updates;
  for (std::size_t i = 0; i < updates.size(); ++i) {
    if (i + HeldEntries::kAhead < updates.size()) HeldEntries::prefetch(updates[i + HeldEntries::kAhead].row);
    const Update& update = updates[i];
    if (update.defect == nullptr) {
      batch.operations[i].hash = update.table->keyHash(update.row);
    } else {
      counters.failed(update.table, update.defect->code, 0, 0);
      batch.answer(batch.operations[i], update.defect->code, update.defect->message);
    }
  }
}

}  // namespace

AgentCore::AgentCore(std::shared_ptr<Lumen::LumenDB> lumenDb, Quill::Ptr<P4Runtime::BatchStatus> batchStatus,
                     Settings settings)
    : lumenDb_(std::move(lumenDb)),
      batchStatus_(std::move(batchStatus)),
      settings_(std::move(settings)),
      nextHandle_(settings_.firstHandle),
      nextGenId_(settings_.firstHandle),
      counters_(settings_.counters) {
  std::size_t rows = 0;
  std::size_t rowBytes = 0;
  TolmarHwLib::forEachOutputTable([&]<std::size_t number>(const auto& table) {
    const std::string rowTable = TolmarHwLib::rowTableName(table.name);
    const auto registered = lumenDb_->table(rowTable);
    if (!registered) throw Cairn::Exception("no row table " + rowTable + " is registered");
    tables_.push_back(
        std::make_unique<ConfigTable>(std::string(table.name), registered, number, table.capacity));
    counters_.add(*tables_.back());
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

// From submission to the table.

void AgentCore::submit(std::vector<Update> updates, Atomicity atomicity, Done done, Clock::time_point now) {
  auto made = std::make_unique<Batch>(std::move(updates), tables_.size(), atomicity, std::move(done),
                                      now + settings_.timeout);
  std::vector<bool> repeated(made->updates.size());
  made->number = ++lastBatch_;
  Skein::message(kSubmitted, made->number, made->updates.size());
  batches_.push_back(std::move(made));
  const Vesta::DeferredWakeups wakeups;
  Batch& batch = *batches_.back();
  readUpdates(batch, counters_);
  for (std::size_t i = 0; i < batch.operations.size(); ++i) {
    if (i + HeldEntries::kAhead < batch.operations.size())
      entries_.prefetchKey(batch.operations[i + HeldEntries::kAhead].hash);
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
      holderIs(*entry, operation);
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
  constexpr int kAttempts = 256;
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
      table.counters().capacityRefusals.add();
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
    const UpdateType type = operation.update().type;
    keepImage(operation);
    try {
      entry.entryHandle = entry.present ? entry.handleBefore : nextHandle_++;
      entry.writtenAt = Braid::ticks();
      entries_.handleIs(entry, entry.entryHandle);
      if (type == UpdateType::remove) {
        Skein::message(kRemoved, operation.batch->number, entry.entryHandle);
        table.remove(entry.row);
        entry.removed = true;
        reserve(entry, true);
      } else {
        entry.genId = nextGenId_++;
        metadata_->add(entry.entryHandle, entry.genId, operation.update().metadataBytes());
        Skein::message(entry.present ? kModified : kInserted, operation.batch->number, entry.entryHandle,
                       entry.genId);
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
    CoreCounters::written(table, type);
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
  if (!fault.empty()) code = StatusCode::internal;
  const HeldEntry* const entry = operation.entry;
  counters_.failed(operation.update().table, code, 0, entry == nullptr ? 0 : entry->handleBefore);
  leave(operation);
  operation.batch->answer(operation, code, fault.empty() ? text : fault);
}

/// Takes an operation that has written nothing away from its entry.
void AgentCore::leave(Operation& operation) noexcept {
  HeldEntry* const entry = operation.entry;
  if (entry == nullptr) return;
  if (entry->holder == &operation) return release(*entry);
  operation.entry = nullptr;
  --operation.batch->unready;
  Operation* before = nullptr;
  for (Operation* at = entry->firstWaiting; at != &operation; at = at->next) before = at;
  (before == nullptr ? entry->firstWaiting : before->next) = operation.next;
  if (entry->lastWaiting == &operation) entry->lastWaiting = before;
}

// Reads.

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

}  // namespace Agent
