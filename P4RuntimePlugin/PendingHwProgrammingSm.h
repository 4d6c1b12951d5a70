// Base of the pending-programming trackers, which follow one status table and report each status row to the
// agent's batch status.
#pragma once

#include <cstdint>

#include "P4RuntimePlugin/TableReactor.h"
#include "P4RuntimePlugin/Trace.h"
#include "P4RuntimeTolmar/Names.h"
#include "p4runtime/BatchStatus.h"
#include "quill/Counted.h"
#include "quill/TypeNode.h"

namespace TolmarHwLib {

using BatchStatusPtr = Quill::Ptr<P4Runtime::BatchStatus>;

/// `type` is the tracker class of the kind.
template <class Kind>
struct TrackerOf;

/// `Tracker` is the tracker class of `Kind`, `kLine` the line that its trace records carry.
template <class Tracker, class Kind, int kLine>
class PendingHwProgrammingSm : public Quill::Typed<Tracker, Quill::PtrInterface> {
 public:
  class QuillStatus;
  using Key = typename Kind::Key;
  using Status = typename Kind::Status;
  using Ptr = Quill::Ptr<Tracker>;
  using StatusPtr = Quill::Ptr<const Status>;

  /// Follows `status` unless it is null. Rows already in it are not reported.
  PendingHwProgrammingSm(const BatchStatusPtr& batchStatus, const StatusPtr& status);
  ~PendingHwProgrammingSm() override;
  /// A tracker with its notifications on.
  static Ptr make(const BatchStatusPtr& batchStatus, const StatusPtr& status) {
    return Quill::allocate<Tracker>(batchStatus, status);
  }
  static constexpr FixedText kTypeName = typeName(Kind::name, "PendingHwProgrammingSm");
  static const Quill::TypeNode _quillType;

  void hasNotificationActiveIs(bool active) override;

  // Virtual operation, in slot order after those of PtrInterface.
  virtual void quillDoZombieReactors(bool zombie);

  const BatchStatusPtr& batchStatus() const noexcept { return batchStatus_; }

  /// The followed table, or null.
  StatusPtr status() const { return status_.table(); }
  void statusIs(const StatusPtr& status) { status_.tableIs(*this, status); }
  void statusDel() { status_.tableDel(); }

  /// If there is a row for `key`, reports it and wakes the agent. No effect without a status table.
  void onStatusRow(const Key& key);
  /// Called for the whole table; no effect, because rows already present are not reported.
  void onStatusRows() {}

 private:
  /// What one lookup of a status row finds; handle and code are 0 without a row.
  struct Answer {
    bool damaged = false;
    bool found = false;
    P4Runtime::EntryHandle entryHandle = 0;
    std::uint16_t errorCode = 0;
  };
  static Answer lookUp(const Status& status, const Key& key);
  P4Runtime::BatchStatusEntry completion(const Answer& answer) const;
  void wakeAgent() const noexcept;

  static Quill::GenericIf fromCtorArgs(Quill::GenericArguments arguments);

  BatchStatusPtr batchStatus_;
  P4RuntimeTolmar::TableBinding<QuillStatus, Status> status_;
};

/// The tracker's reactor on its status table.
template <class Tracker, class Kind, int kLine>
class PendingHwProgrammingSm<Tracker, Kind, kLine>::QuillStatus final
    : public P4RuntimeTolmar::TableReactor<QuillStatus, PendingHwProgrammingSm, Status> {
 public:
  using P4RuntimeTolmar::TableReactor<QuillStatus, PendingHwProgrammingSm, Status>::TableReactor;
  ~QuillStatus() override = default;

  void onTable(const Key& key) override {
    if (const auto tracker = this->owner()) tracker->onStatusRow(key);
  }
  void onTablequillImmediate() override {
    if (const auto tracker = this->owner()) tracker->onStatusRows();
  }
};

}  // namespace TolmarHwLib
