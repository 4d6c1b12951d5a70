// The agent without its input and output: batches of updates in, one result for each update out.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "apps/core/Batch.h"
#include "apps/core/CoreCounters.h"
#include "apps/core/HeldEntries.h"
#include "apps/core/Metadata.h"
#include "p4runtime/BatchStatus.h"

namespace Agent {

/// What a status row says of an entry.
struct HardwareAnswer {
  std::uint64_t genId;
  std::uint16_t errorCode;
  bool deleted;
};
/// The status rows of all tables, by the handles of their entries.
using HardwareAnswers = std::unordered_map<std::uint64_t, HardwareAnswer>;

/// Writes updates through the row database and matches the hardware's answers to them.
///
/// An entry is held from the turn of an update that changes it until the update's batch is decided; later
/// updates of it wait, in order of arrival. What the entry was before is kept until then, in a file too: a
/// refused update is undone, a batch that must be all or nothing is rolled back, and readers are shown the
/// state before every undecided batch.
///
/// Rules:
///   turn        a batch takes its place behind earlier updates of all its entries at once, so that waiting
///               batches cannot block each other; one that rolls back begins when all entries are its own
///   handle      one from an entry's insertion to its removal, a new genId with every write; at most one
///               answer outstanding for an entry
///   room        a row that an undecided update has removed still counts as used, so that an undo finds room;
///               an insertion of the same batch may have it: when the hardware has answered the removal, or
///               at once in a batch that rolls back, whose undos begin with the last update
///   refusal     the row before is written back, or the row removed; the entry is held until the hardware
///               has answered that. If it refuses or does not answer, the row stays as restored; this is
///               repeated once when the hardware agent has restarted
///   time-out    an update that waits is never written. One in flight keeps its entry: its late success
///               commits it, its late failure undoes it; of a batch that rolls back, any late answer does
///   metadata    stored under handle and genId before the row is, dropped once its row is gone for good
///   decision    a batch is decided in the file before its results are handed out
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

  struct Settings {
    /// Handles and genIds count up from here: the wall clock in nanoseconds. Should the clock have been set
    /// back, from above those in the tables.
    std::uint64_t firstHandle;
    Clock::duration timeout;         ///< from the start of a batch to DEADLINE_EXCEEDED
    std::string beforeImages;        ///< path of the file of before-images
    std::string metadata;            ///< path of the file of entries' metadata
    std::size_t maxMetadata = 1024;  ///< bytes that an entry may have
    /// Why the table of that short name cannot be used until the agent is started again; empty when it can.
    /// Asked when a write fails or an entry is not found: a damaged table reads as empty.
    std::function<std::string(const std::string& table)> fault = [](const auto&) { return std::string(); };
    /// Whether some process writes the status table that belongs to the table of that short name.
    std::function<bool(const std::string& table)> hardwareRuns = [](const auto&) { return true; };
    /// Takes lines for the operator.
    std::function<void(const std::string& line)> log = [](const auto&) {};
    /// Where the core counts; not owned. Null: in memory of its own.
    Counters::AgentCounters* counters = nullptr;
  };

  /// Serves the output tables. Throws Cairn::Exception for one that `lumenDb` does not have, and what
  /// BeforeImages and Metadata throw.
  AgentCore(std::shared_ptr<Lumen::LumenDB> lumenDb, Quill::Ptr<P4Runtime::BatchStatus> batchStatus,
            Settings settings);
  ~AgentCore();
  AgentCore(const AgentCore&) = delete;
  AgentCore& operator=(const AgentCore&) = delete;

  /// The table of that short name, such as "l3IifTH3"; null when there is none.
  ConfigTable* table(std::string_view shortName);
  /// In the order of their list.
  const std::vector<std::unique_ptr<ConfigTable>>& tables() const noexcept { return tables_; }

  /// Compares the tables with the hardware's answers at the start: of entries that it has not answered as
  /// they stand an answer is outstanding, so that none to an earlier process is taken for one to this. Then
  /// undoes what an earlier process left undecided. To be called once, before the first batch.
  void start(const HardwareAnswers& answers);

  /// Starts a batch, and attempts as many updates as proceed(). Results come from finish(), also those that
  /// are known at once. Throws std::bad_alloc; nothing has been attempted then.
  void submit(std::vector<Update> updates, Atomicity atomicity, Done done, Clock::time_point now);
  /// Attempts the next updates that hold their entries, 256 at most: so a large batch neither keeps others
  /// waiting nor leaves the cache before its answers come. To be called while hasReady() is true.
  void proceed() noexcept;
  bool hasReady() const noexcept { return !ready_.empty(); }
  /// Takes every completion out of the batch status and answers the updates they belong to. To be called when
  /// the batch status's descriptor can be read, which it stays when std::bad_alloc is thrown.
  void completionsReady();
  /// Takes every completion, then answers DEADLINE_EXCEEDED to what is out of time, or UNAVAILABLE after
  /// stopping(). Throws like completionsReady.
  void expire(Clock::time_point now);
  /// The agent will end before the hardware's late answers come.
  void stopping() noexcept { isStopping_ = true; }
  /// Answers all updates of the table INTERNAL with `reason`, those in flight and those to come.
  void outOfService(ConfigTable& table, const std::string& reason);
  /// Takes the answers to updates in flight from the status rows, where a completion has been lost.
  void recoverCompletions(const HardwareAnswers& answers);
  /// The hardware agent has restarted and has answered all that it found open: what is still outstanding
  /// will not be answered. Undoes such updates, repeats undos once.
  void hardwareRestarted();

  /// Hands out the results of the batches that are complete and returns how many those are. To be called
  /// after each of the calls above. Throws what Done throws; the results of other batches are then left to
  /// the next call.
  std::size_t finish();

  /// Calls `visit(row)` for each row of the table as it was before every undecided batch.
  void eachDecidedRow(const ConfigTable& table, const std::function<void(const Lumen::BaseRow&)>& visit);

  /// That with the key of `row`; a null row if there is none.
  Lumen::BaseRow decidedRow(const ConfigTable& table, const Lumen::BaseRow& row);
  /// What the controller keeps with the entry of a row that the two above have shown. Valid until the next
  /// call that changes entries.
  std::string_view metadata(const ConfigTable& table, const Lumen::BaseRow& row) const noexcept {
    return metadata_->of(table.handle(row), table.genId(row));
  }

  /// Whether some update of the table has no result yet.
  bool hasUpdates(const ConfigTable& table) const;
  /// When expire() is next needed; none while no batch is in progress.
  std::optional<Clock::time_point> nextDeadline() const;
  /// Entries that are held.
  std::size_t held() const noexcept { return entries_.size(); }
  /// Entries whose outstanding answer no update waits for.
  std::size_t overdue() const noexcept { return entries_.overdue(); }
  const Counters::AgentCounters& counters() const noexcept { return counters_.words(); }
  /// Brings those of the counters up to date that no event does; to be called periodically.
  void count();

 private:
  /// An entry whose undo the hardware has refused: repeated when the row still has this genId.
  struct Refused {
    ConfigTable* table;
    Lumen::BaseRow row;
    std::uint64_t genId;
  };

  bool restorable(BeforeImages::Image& image,
                  const std::function<void(const ConfigTable&, const Lumen::BaseRow&)>& visit);
  void retainMetadata(const std::vector<BeforeImages::Image>& undecided);
  void restore(BeforeImages::Image& image, const HardwareAnswers& answers);
  void hold(Operation& operation, std::vector<bool>& repeated);
  void begin(Batch& batch) noexcept;
  void makeReady(Operation& operation) noexcept;
  bool takeRoom(Operation& operation);
  void removalEnded(Operation& operation, bool removed) noexcept;
  bool check(Operation& operation) noexcept;
  bool write(Operation& operation) noexcept;
  void keepImage(Operation& operation);
  static void beforeIs(HeldEntry& entry, Lumen::BaseRow row);
  Lumen::BaseRow rowBefore(const HeldEntry& entry) const;
  template <class Call>
  bool guarded(Operation& operation, const Call& call) noexcept;
  void refuse(Operation& operation, StatusCode code, std::string_view text) noexcept;
  void leave(Operation& operation) noexcept;
  void complete(const P4Runtime::BatchStatusEntry& completion, std::uint64_t ticks) noexcept;
  void count(const HeldEntry* entry, const P4Runtime::BatchStatusEntry& completion,
             std::uint64_t ticks) noexcept;
  void answered(HeldEntry& entry, const P4Runtime::BatchStatusEntry& completion) noexcept;
  void decide(Batch& batch) noexcept;
  void rollBack(Batch& batch) noexcept;
  void giveUp(Operation& operation, StatusCode code, std::string_view text) noexcept;
  void settle(Batch& batch) noexcept;
  void undo(HeldEntry& entry) noexcept;
  void undone(HeldEntry& entry, std::uint16_t errorCode) noexcept;
  void commit(HeldEntry& entry) noexcept;
  void release(HeldEntry& entry) noexcept;
  void settleEntry(HeldEntry& entry) noexcept;
  static void holderIs(HeldEntry& entry, Operation& operation) noexcept;
  void writeBack(HeldEntry& entry);
  void waitForRoom(HeldEntry& entry) noexcept;
  void retryUndos(const ConfigTable& table) noexcept;
  static bool reserve(HeldEntry& entry, bool forced);
  static void unreserve(HeldEntry& entry) noexcept;
  void log(const HeldEntry& entry, const char* what, const char* why) noexcept;
  void repeatUndo(const Refused& refused);

  std::shared_ptr<Lumen::LumenDB> lumenDb_;
  Quill::Ptr<P4Runtime::BatchStatus> batchStatus_;
  Settings settings_;
  std::uint64_t nextHandle_;
  std::uint64_t nextGenId_;
  std::vector<std::unique_ptr<ConfigTable>> tables_;
  std::optional<BeforeImages> images_;
  std::optional<Metadata> metadata_;
  std::deque<std::unique_ptr<Batch>> batches_;  // in order of their deadlines
  HeldEntries entries_;
  OperationQueue ready_;  // hold their entries, have not been attempted
  std::vector<Refused> refused_;
  CoreCounters counters_;
  std::uint64_t lastBatch_ = 0;
  bool isStopping_ = false;
};

}  // namespace Agent
