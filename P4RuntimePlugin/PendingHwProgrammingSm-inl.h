#pragma once

#include <unistd.h>

#include "P4RuntimePlugin/LoadTime.h"
#include "P4RuntimePlugin/PendingHwProgrammingSm.h"
#include "quill/Generic.h"
#include "table-service/TableRead.h"

namespace TolmarHwLib {

template <class Pattern, class Kind>
inline constexpr Quill::Member kTrackerMembers[] = {
    Quill::genericReader<&Pattern::batchStatus>("batchStatus", "P4Runtime::BatchStatus"),
    Quill::genericReader<&Pattern::status>("status", Kind::statusTypeName),
    Quill::genericOperation<&Pattern::onStatusRow>("onStatusRow"),
    Quill::genericOperation<&Pattern::onStatusRows>("onStatusRows"),
};

template <class Tracker, class Kind, int kLine>
constinit const Quill::TypeNode PendingHwProgrammingSm<Tracker, Kind, kLine>::_quillType{
    .name = kTypeName,
    .members = kTrackerMembers<PendingHwProgrammingSm, Kind>,
    .genericIfFromCtorArgs = &fromCtorArgs};

template <class Tracker, class Kind, int kLine>
Quill::GenericIf PendingHwProgrammingSm<Tracker, Kind, kLine>::fromCtorArgs(
    Quill::GenericArguments arguments) {
  return Quill::GenericIf(Quill::genericCall<BatchStatusPtr, StatusPtr>(&make, arguments));
}

template <class Tracker, class Kind, int kLine>
PendingHwProgrammingSm<Tracker, Kind, kLine>::PendingHwProgrammingSm(const BatchStatusPtr& batchStatus,
                                                                     const StatusPtr& status)
    : batchStatus_(batchStatus) {
  statusIs(status);
}

template <class Tracker, class Kind, int kLine>
PendingHwProgrammingSm<Tracker, Kind, kLine>::~PendingHwProgrammingSm() = default;

template <class Tracker, class Kind, int kLine>
void PendingHwProgrammingSm<Tracker, Kind, kLine>::hasNotificationActiveIs(bool active) {
  Quill::PtrInterface::hasNotificationActiveIs(active);
  status_.hasNotificationActiveIs(active);
}

template <class Tracker, class Kind, int kLine>
void PendingHwProgrammingSm<Tracker, Kind, kLine>::quillDoZombieReactors(bool zombie) {
  status_.zombieIs(*this, zombie);
}

template <class Tracker, class Kind, int kLine>
void PendingHwProgrammingSm<Tracker, Kind, kLine>::onStatusRow(const Key& key) {
  static constinit const P4RuntimeTolmar::TracePoint trace{9, "PendingHwProgrammingSms", kLine, "onStatusRow",
                                                           "onStatusRow%s"};
  trace(P4RuntimeTolmar::kPendingHwPogrammingTrace, key);
  const StatusPtr table = status();  // held, because a handler may bind another table
  if (!table) return;
  // The second lookup decides whether there is a row. It also gives the answer if the first one found damage
  // and the table was mounted again at once: the first answer is then that of the empty table.
  const Answer first = lookUp(*table, key);
  const Answer second = lookUp(*table, key);
  if (!second.found) return;
  batchStatus_->completedTransactionStatusIs(completion(first.damaged ? second : first));
  wakeAgent();
}

template <class Tracker, class Kind, int kLine>
auto PendingHwProgrammingSm<Tracker, Kind, kLine>::lookUp(const Status& status, const Key& key) -> Answer {
  Answer result;
  const bool read = Vesta::readTable(status, [&] {
    bool found = false;
    const auto& row = status.directLookup(key, found);
    result = {false, found, row.entryHandle, row.errorCode};
  });
  if (!read) result.damaged = true;
  return result;
}

/// The completion of one answer, merged with an earlier one of the same handle that the agent has not taken,
/// so that a later answer never hides a failure.
template <class Tracker, class Kind, int kLine>
P4Runtime::BatchStatusEntry PendingHwProgrammingSm<Tracker, Kind, kLine>::completion(
    const Answer& answer) const {
  P4Runtime::BatchStatusEntry record;
  record.entryHandle = answer.entryHandle;
  if (answer.errorCode != 0) {
    record.errorCode = answer.errorCode;
    record.setErrorMessage();
  }
  const auto* const earlier = batchStatus_->completedTransactionStatus(answer.entryHandle);
  if (earlier == nullptr || earlier->errorCode == 0) return record;
  if (record.errorCode != 0) {
    record.errorMessage += " " + earlier->errorMessage;
  } else {
    record.errorCode = earlier->errorCode;
    record.setErrorMessage();
  }
  return record;
}

template <class Tracker, class Kind, int kLine>
void PendingHwProgrammingSm<Tracker, Kind, kLine>::wakeAgent() const noexcept {
  const std::uint64_t one = 1;
  // The result is ignored: if the counter is full, the agent has been woken already.
  [[maybe_unused]] const ssize_t written = ::write(batchStatus_->notificationDescriptor(), &one, sizeof one);
}

}  // namespace TolmarHwLib
