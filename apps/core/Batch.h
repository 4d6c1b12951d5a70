// Batches of updates, from their submission to their results.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "apps/core/BeforeImages.h"
#include "apps/core/Status.h"
#include "rows/BaseRow.h"

namespace Agent {

class ConfigTable;
struct Batch;
struct HeldEntry;

/// What an update does to its entry.
enum class UpdateType : std::uint8_t { insert, modify, remove };

/// "insert", "modify" or "delete".
constexpr std::string_view updateTypeName(UpdateType type) {
  return type == UpdateType::insert ? "insert" : type == UpdateType::modify ? "modify" : "delete";
}

/// What becomes of a batch's other updates when one of them fails.
enum class Atomicity : std::uint8_t {
  continueOnError,  ///< they are attempted all the same
  rollbackOnError,  ///< they are not attempted, or undone
};

/// One insertion, modification or removal of one entry.
struct Update {
  UpdateType type = UpdateType::insert;
  ConfigTable* table = nullptr;  ///< not owned; one of the core's tables
  /// Key and data columns; of a removal, the key columns count. A modification replaces all data columns.
  /// genId, entryHandle and valid are filled in by the core, which takes the row.
  Lumen::BaseRow row;
  /// The controller's own bytes, kept with the entry; a modification replaces them, too. Null for none.
  std::unique_ptr<const std::string> metadata;
  /// Why the update could not be read: it is answered with this, and neither table nor row is looked at. Null
  /// for an update that is to be attempted.
  std::unique_ptr<const Status> defect;

  std::string_view metadataBytes() const noexcept { return metadata ? *metadata : std::string_view(); }
};

/// An update on its way to its result.
struct Operation {
  enum class State : std::uint8_t {
    submitted,  ///< does not have its place behind earlier updates of its entry yet
    waiting,    ///< behind an update that holds its entry, or for room
    ready,      ///< holds its entry; nothing is written
    inFlight,   ///< written; the hardware's answer is outstanding
    applied,    ///< the hardware has answered with success; the batch is undecided
    answered,   ///< has its result
  };

  Batch* batch;  ///< not owned; holds this operation
  State state = State::submitted;
  std::uint32_t hash = 0;      ///< of the entry's key
  HeldEntry* entry = nullptr;  ///< not owned; null before it has its place and once its batch is decided
  Operation* next = nullptr;   ///< not owned; in the list that the operation is in

  Update& update() const;
};

/// A list of operations, in order, without memory of its own. One is in one list at most.
class OperationQueue {
 public:
  bool empty() const noexcept { return first_ == nullptr; }
  void add(Operation& operation) noexcept {
    operation.next = nullptr;
    (first_ == nullptr ? first_ : last_->next) = &operation;
    last_ = &operation;
  }
  /// Null when it is empty.
  Operation* take() noexcept {
    Operation* const taken = first_;
    if (taken != nullptr) first_ = taken->next;
    return taken;
  }

 private:
  Operation* first_ = nullptr;  // not owned
  Operation* last_ = nullptr;   // not owned; of no meaning while first_ is null
};

struct Batch {
  using Clock = std::chrono::steady_clock;
  using Done = std::function<void(std::vector<UpdateStatus>)>;

  /// Nothing later in the batch's life allocates, save for the texts of results.
  Batch(std::vector<Update> submitted, std::size_t tables, Atomicity wanted, Done whenDone,
        Clock::time_point expires);
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  /// Gives `operation`, which is one of this batch, its result. Without memory for it the text is left out.
  void answer(Operation& operation, StatusCode code, std::string_view message,
              std::uint16_t hardwareCode = 0) noexcept;
  /// The hardware has applied `operation`, which gets its result when the batch is decided.
  void applied(Operation& operation) noexcept {
    operation.state = Operation::State::applied;
    --undecided;
  }
  bool isDone() const noexcept { return unanswered == 0; }
  /// Nothing points at it any more.
  bool isFree() const noexcept { return isDone() && queued == 0; }

  std::uint64_t number = 0;  ///< counts up from 1; names the batch in traces
  std::vector<Update> updates;
  std::vector<UpdateStatus> results;  ///< in the order of the updates, like
  std::vector<Operation> operations;  ///< these, which never become more: they are pointed at
  Atomicity atomicity;
  std::size_t unanswered;   ///< operations without a result
  std::size_t undecided;    ///< operations neither applied nor answered
  std::size_t unready = 0;  ///< operations that do not hold their entries yet, or are about to begin
  /// Room in one table that the batch's own removals make, for its insertions into a full table.
  struct Room {
    std::size_t removing = 0;  ///< removals that the hardware has not answered
    std::size_t made = 0;      ///< by removals, and not taken yet
    OperationQueue waiting;    ///< insertions that hold their entries and wait for removals
  };
  std::vector<Room> rooms;  ///< by the tables' places
  std::size_t queued = 0;   ///< operations in the core's list of those to be attempted
  bool checked = false;     ///< one that rolls back: all operations may be written
  BeforeImages::Place images = BeforeImages::kNone;
  Clock::time_point deadline;
  Done done;
};

inline Update& Operation::update() const {
  return batch->updates[static_cast<std::size_t>(this - batch->operations.data())];
}

}  // namespace Agent
