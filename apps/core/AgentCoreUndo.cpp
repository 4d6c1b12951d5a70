// Undo, commit and what follows.
#include "apps/core/AgentCore.h"

#include <array>
#include <new>
#include <utility>

#include "cairn/Exception.h"
#include "skein/Ring.h"
#include "skein/Skein.h"

namespace Agent {

using EntryState = HeldEntry::State;

namespace {

constinit const Skein::Site kRestored{"./apps/core/AgentCore", 7, "undo", "handle %s genId %s"};
constinit const Skein::Site kRemoved{"./apps/core/AgentCore", 8, "undo", "delete handle %s"};

}  // namespace

void AgentCore::undo(HeldEntry& entry) noexcept {
  entry.table->counters().undos.add();
  try {
    const std::array written{entry.entryHandle, entry.genId};
    const std::array before{entry.handleBefore, entry.genIdBefore};
    entry.before = rowBefore(entry);
    if (entry.present && entry.removed && entry.table->isFull()) return waitForRoom(entry);
    if (entry.present) {
      writeBack(entry);
    } else {
      entry.writtenAt = Braid::ticks();
      entries_.handleIs(entry, entry.entryHandle);
      Skein::message(kRemoved, entry.entryHandle);
      entry.table->remove(entry.row);
      entry.removed = true;
    }
    if (entry.image != BeforeImages::kNone) images_->remove(std::exchange(entry.image, BeforeImages::kNone));
    for (const auto& [handle, genId] : {written, before}) metadata_->remove(handle, genId);
    entry.state = EntryState::undoing;
    if (entry.removed) retryUndos(*entry.table);
  } catch (const std::exception& failure) {
    // The before-image counts whatever becomes of the batch: the next start undoes what could not be undone.
    if (entry.image != BeforeImages::kNone) images_->lateIs(entry.image);
    entry.table->counters().undosRefused.add();
    log(entry, "could not be undone: ", failure.what());
    release(entry);
  }
}

/// An insertion of the batch has the room and is not answered yet: its own undo will give it back.
void AgentCore::waitForRoom(HeldEntry& entry) noexcept {
  entries_.handleDel(entry);
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
  entry.writtenAt = Braid::ticks();
  entries_.handleIs(entry, entry.entryHandle);
  metadata_->add(entry.entryHandle, entry.genId, kept);
  Skein::message(kRestored, entry.entryHandle, entry.genId);
  table.write(entry.before, entry.genId, entry.entryHandle);
  entry.handleBefore = entry.entryHandle;
  entry.genIdBefore = entry.genId;
  entry.removed = false;
  unreserve(entry);
}

void AgentCore::undone(HeldEntry& entry, std::uint16_t errorCode) noexcept {
  if (errorCode != 0) {
    entry.table->counters().undosRefused.add();
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
  if (entry.undecided != nullptr) return settleEntry(entry);
  Operation* const next = entry.firstWaiting;
  if (next == nullptr) return entries_.del(entry);
  entries_.handleDel(entry);
  HeldEntry freed;
  freed.table = entry.table;
  freed.hash = entry.hash;
  freed.row = std::move(next->update().row);
  holderIs(freed, *next);
  freed.firstWaiting = next->next;
  freed.lastWaiting = next->next == nullptr ? nullptr : entry.lastWaiting;
  entry = std::move(freed);
  makeReady(*next);
}

/// Nothing more is to be done for the entry, but others have to wait until its batch is decided: so a batch
/// happens at one moment for all of them, also with updates that fail.
void AgentCore::settleEntry(HeldEntry& entry) noexcept {
  entries_.handleDel(entry);
  entry.state = EntryState::untouched;
  entry.holder = nullptr;
  entry.settled = true;
}

/// A batch that rolls back ends as a whole.
void AgentCore::holderIs(HeldEntry& entry, Operation& operation) noexcept {
  entry.holder = &operation;
  entry.undecided = operation.batch->atomicity == Atomicity::continueOnError ? operation.batch : nullptr;
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
    complete(completion, Braid::ticks());
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
        entry.table->counters().undosRefused.add();
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

}  // namespace Agent
