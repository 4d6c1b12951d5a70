// The agent without its input and output: batches of updates in, one result for each update out.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "apps/core/Batch.h"
#include "apps/core/ConfigTable.h"
#include "apps/core/EntriesInFlight.h"
#include "p4runtime/BatchStatus.h"

namespace Agent {

/// A status row as the hardware agent wrote it last.
struct HardwareAnswer {
  std::uint64_t genId;
  std::uint16_t errorCode;
  bool deleted;
};
/// The status rows of all tables, by the handles of their entries.
using HardwareAnswers = std::unordered_map<std::uint64_t, HardwareAnswer>;

/// Writes updates through the row database and matches the hardware's answers to them.
///
/// Updates are attempted in order, and every one of them, whatever becomes of the others. An entry has one
/// handle from its insertion to its removal, and at most one update in flight: further ones wait for it, in
/// order, also behind one that has run out of time, until its late answer comes (which is dropped) or
/// hardwareRestarted() says that none will.
///
/// Errors: an update for which there is no memory is answered RESOURCE_EXHAUSTED. Only operations that say so
/// throw.
/// Thread safety: none; used on one thread. No call waits.
class AgentCore {
 public:
  using Clock = Batch::Clock;
  /// Called once for each batch, with one result per update in the order of the updates; never from within
  /// submit().
  using Done = Batch::Done;
  /// Called periodically with the number of updates of a batch that have their results; may be empty.
  using Progress = Batch::Progress;

  struct Settings {
    /// Handles and genIds count up from here: the wall clock in nanoseconds. Should the clock have been set
    /// back, from above those in the tables.
    std::uint64_t firstHandle;
    Clock::duration timeout;  ///< from the start of a batch to DEADLINE_EXCEEDED
    /// Why the table of that short name cannot be used until the agent is started again; empty when it can.
    /// Asked when a write fails or an entry is not found: a damaged table reads as empty.
    std::function<std::string(const std::string& table)> fault = [](const auto&) { return std::string(); };
    /// Whether some process writes the status table that belongs to the table of that short name.
    std::function<bool(const std::string& table)> hardwareRuns = [](const auto&) { return true; };
  };

  /// Serves the output tables that are registered in `lumenDb`.
  AgentCore(std::shared_ptr<Lumen::LumenDB> lumenDb, Quill::Ptr<P4Runtime::BatchStatus> batchStatus,
            const Settings& settings);
  ~AgentCore();
  AgentCore(const AgentCore&) = delete;
  AgentCore& operator=(const AgentCore&) = delete;

  /// The table of that short name, such as "l3IifTH3"; null when there is none.
  ConfigTable* table(std::string_view shortName);
  /// The short names of all tables, in the order of their list.
  std::vector<std::string> tableNames() const;

  /// Starts a batch. Results come from finish(), also those that are known at once. Throws std::bad_alloc;
  /// nothing has been attempted then.
  void submit(std::vector<Update> updates, Done done, Progress progress, Clock::time_point now);
  /// Takes every completion out of the batch status and answers the updates they belong to. To be called when
  /// the batch status's descriptor can be read, which it stays when std::bad_alloc is thrown.
  void completionsReady();
  /// Takes every completion, then answers DEADLINE_EXCEEDED to what is out of time. Throws like
  /// completionsReady.
  void expire(Clock::time_point now);
  /// Answers all updates of the table INTERNAL with `reason`, those in flight and those to come.
  void outOfService(ConfigTable& table, const std::string& reason);

  /// Compares the tables with the hardware's answers at the start: entries whose present rows it has not
  /// answered are in flight and overdue, so that no answer to an earlier process is taken for one to this
  /// process. To be called before the first batch.
  void outstandingAre(const HardwareAnswers& answers);
  /// Takes the answers to updates in flight from the status rows, where a completion has been lost.
  void recoverCompletions(const HardwareAnswers& answers);
  /// Gives up the outstanding answers to updates that are out of time.
  void hardwareRestarted();

  /// Hands out the results of the batches that are complete and returns how many those are. To be called
  /// after each of the calls above. Throws what Done throws; the results of other batches are then left to
  /// the next call.
  std::size_t finish();

  /// When expire() is next needed; none while no batch is in progress.
  std::optional<Clock::time_point> nextDeadline() const;
  /// Calls the Progress of every batch that is in progress.
  void reportProgress() const;
  /// Entries with an update in flight, those out of time included.
  std::size_t inFlight() const noexcept { return entries_.size(); }
  /// Entries whose update is out of time and whose late answer has not come.
  std::size_t overdue() const noexcept { return entries_.overdue(); }
  /// Completions for handles that no update was waiting for.
  std::uint64_t unexpectedCompletions() const noexcept { return unexpectedCompletions_; }

 private:
  using Handle = EntriesInFlight::Handle;

  void attempt(Operation& operation) noexcept;
  void attemptOrThrow(Operation& operation);
  void write(Operation& operation, Handle handle);
  void refuse(Operation& operation, Code code, const char* text) noexcept;
  void complete(const P4Runtime::BatchStatusEntry& completion) noexcept;
  void release(Handle handle) noexcept;
  void giveUp(Operation& operation, Code code, std::string_view text) noexcept;

  std::shared_ptr<Lumen::LumenDB> lumenDb_;
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_;
  Settings settings_;
  Handle nextHandle_;
  std::uint64_t nextGenId_;
  std::vector<std::unique_ptr<ConfigTable>> tables_;
  std::deque<std::unique_ptr<Batch>> batches_;  // in order of their deadlines
  EntriesInFlight entries_;
  std::uint64_t unexpectedCompletions_ = 0;
};

}  // namespace Agent
