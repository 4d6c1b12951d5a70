// The agent without its input and output: batches of updates in, one result for each update out.
#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "apps/core/ConfigTable.h"
#include "apps/core/Result.h"
#include "apps/core/UpdateType.h"
#include "p4runtime/BatchStatus.h"

namespace Agent {

/// One insert, modification or removal of one entry.
struct Update {
  UpdateType type = UpdateType::insert;
  ConfigTable* table = nullptr;  ///< not owned; of the core that the update is given to
  /// Key and data columns; for a removal the key columns count. A modification replaces all data columns.
  /// genId, entryHandle and valid are the core's to fill in.
  Lumen::BaseRow row;
  /// Why the update could not be read; when set it is answered INVALID_ARGUMENT with this text.
  std::string defect;
};

/// Writes updates through the row database and matches the hardware's answers to them.
///
/// Updates are attempted in order and whatever the others do. An entry has one handle from its insertion to
/// its removal, and at most one update in flight: further ones wait for it, in order, also behind one that
/// has run out of time, until its late answer comes (which is dropped) or hardwareRestarted() says that none
/// will.
///
/// Thread safety: none; used on one thread. No call waits.
class AgentCore {
 public:
  using Clock = std::chrono::steady_clock;
  /// Called once for each batch, with one result per update in the order of the updates; never from within
  /// submit().
  using Done = std::function<void(std::vector<Result>)>;
  /// Told now and then how many updates of a batch are answered; may be empty.
  using Progress = std::function<void(std::size_t answered)>;

  struct Settings {
    /// Handles and genIds count up from here: the wall clock in nanoseconds. Should the clock have been set
    /// back, from above those in the tables.
    std::uint64_t firstHandle;
    Clock::duration timeout;  ///< from the start of a batch to DEADLINE_EXCEEDED
    /// Whether the table of that short name is sound: one found damaged reads as empty, which says nothing of
    /// its entries.
    std::function<bool(const std::string& table)> readable = [](const std::string&) { return true; };
  };

  /// Serves the tables registered in `lumenDb` whose names are "Lumen", a short name and "ConfigTable".
  AgentCore(std::shared_ptr<Lumen::LumenDB> lumenDb, Quill::Ptr<P4Runtime::BatchStatus> batchStatus,
            const Settings& settings);
  ~AgentCore();
  AgentCore(const AgentCore&) = delete;
  AgentCore& operator=(const AgentCore&) = delete;

  /// The table of that short name, such as "l3IifTH3"; null when there is none.
  ConfigTable* table(std::string_view shortName);
  /// The short names of all tables, in order of registration.
  std::vector<std::string> tableNames() const;

  /// Starts a batch. Results come from finish(), also those that are known at once.
  void submit(std::vector<Update> updates, Done done, Progress progress, Clock::time_point now);
  /// Takes every completion out of the batch status and answers the updates they belong to. To be called when
  /// the batch status's descriptor can be read.
  void completionsReady();
  /// Answers DEADLINE_EXCEEDED to what is out of time.
  void expire(Clock::time_point now);
  /// The hardware owes answers for these handles to an earlier process: they are in flight as if out of time,
  /// so that none is taken for the answer to an update of this one. To be called before the first batch.
  void answersOwed(const std::vector<std::uint64_t>& handles);
  /// Gives up the answers still owed to updates that are out of time.
  void hardwareRestarted();
  /// Hands out the results of the batches that are complete and returns how many those are. To be called
  /// after each of the calls above.
  std::size_t finish();

  /// When expire() is next needed; none while no batch is under way.
  std::optional<Clock::time_point> nextDeadline() const;
  /// Tells every batch under way of its progress.
  void reportProgress() const;
  /// Entries with an update in flight, those out of time included.
  std::size_t inFlight() const { return byHandle_.size(); }
  /// Entries whose update is out of time and whose late answer has not come.
  std::size_t overdue() const { return overdue_; }
  /// Completions for handles that no update was waiting for.
  std::uint64_t unexpectedCompletions() const { return unexpectedCompletions_; }

 private:
  struct Batch;
  struct Operation {
    Batch* batch = nullptr;  // not owned; null when out of time
    std::size_t index = 0;
  };
  /// An entry with an update in flight.
  struct Entry {
    ConfigTable* table = nullptr;  // not owned; with its key, set for an update of this process
    Lumen::BaseRow key;
    bool removed = false;  // the update in flight is its removal
    Operation current;
    std::vector<Operation> waiting;
  };
  using Entries = std::unordered_map<std::uint64_t, Entry>;  // by handle

  void refuseRepeatedKeys(Batch& batch);
  void attempt(const Operation& operation);
  void write(const Operation& operation, std::uint64_t handle);
  void complete(const P4Runtime::BatchStatusEntry& completion);
  void release(Entries::iterator entry);
  void answer(const Operation& operation, Result result);

  std::shared_ptr<Lumen::LumenDB> lumenDb_;
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_;
  Settings settings_;
  std::uint64_t nextHandle_;
  std::uint64_t nextGenId_;
  std::vector<std::unique_ptr<ConfigTable>> tables_;
  std::deque<std::unique_ptr<Batch>> batches_;  // in order of their deadlines
  Entries byHandle_;
  std::size_t overdue_ = 0;
  std::uint64_t unexpectedCompletions_ = 0;
};

}  // namespace Agent
