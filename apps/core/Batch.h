// Batches of updates, from their submission to their results.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "apps/core/Result.h"
#include "rows/BaseRow.h"

namespace Agent {

class ConfigTable;

/// What an update does to its entry.
enum class UpdateType : std::uint8_t { insert, modify, remove };

/// "insert", "modify" or "delete".
constexpr std::string_view updateTypeName(UpdateType type) {
  return type == UpdateType::insert ? "insert" : type == UpdateType::modify ? "modify" : "delete";
}

/// One insertion, modification or removal of one entry.
struct Update {
  UpdateType type = UpdateType::insert;
  ConfigTable* table = nullptr;  ///< not owned; one of the core's tables
  /// Key and data columns; of a removal, the key columns count. A modification replaces all data columns.
  /// genId, entryHandle and valid are filled in by the core.
  Lumen::BaseRow row;
  /// Why the update could not be read: it is answered INVALID_ARGUMENT with this text, and neither table nor
  /// row is looked at. Empty for an update that is to be attempted.
  std::string defect;
};

struct Batch;

/// An update on its way to its result.
struct Operation {
  enum class State : std::uint8_t {
    submitted,  ///< not attempted yet
    waiting,    ///< behind the update that its entry has in flight
    inFlight,   ///< written; the hardware's answer is outstanding
    answered,   ///< has its result
  };

  Batch* batch;  ///< not owned; holds this operation
  State state = State::submitted;
  std::uint64_t handle = 0;  ///< of its entry, while waiting or in flight

  Update& update() const;
};

struct Batch {
  using Clock = std::chrono::steady_clock;
  using Done = std::function<void(std::vector<Result>)>;
  using Progress = std::function<void(std::size_t answered)>;

  /// Nothing later in the batch's life allocates, save for the texts of results.
  Batch(std::vector<Update> submitted, Done whenDone, Progress whenProgressed, Clock::time_point expires);
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  /// Gives `operation`, which is one of this batch, its result. A text that finds no memory is left out.
  void answer(Operation& operation, Code code, std::string_view message,
              std::uint16_t hardwareCode = 0) noexcept;

  std::vector<Update> updates;
  std::vector<Result> results;        ///< in the order of the updates, like
  std::vector<Operation> operations;  ///< these, which never become more: they are pointed at
  std::size_t open;                   ///< operations without a result
  Clock::time_point deadline;
  Done done;
  Progress progress;
};

inline Update& Operation::update() const {
  return batch->updates[static_cast<std::size_t>(this - batch->operations.data())];
}

}  // namespace Agent
