#pragma once

#include <unistd.h>

#include "P4RuntimePlugin/LoadTime.h"
#include "P4RuntimePlugin/PendingHwProgrammingSm.h"
#include "P4RuntimePlugin/TableRead.h"

namespace TolmarHwLib {

template <class Key, class Status, int kLine>
PendingHwProgrammingSm<Key, Status, kLine>::PendingHwProgrammingSm(
    const Quill::Ptr<P4Runtime::BatchStatus>& batchStatus, const Quill::Ptr<const Status>& status)
    : batchStatus_(batchStatus) {
  statusIs(status);
}

template <class Key, class Status, int kLine>
PendingHwProgrammingSm<Key, Status, kLine>::~PendingHwProgrammingSm() = default;

template <class Key, class Status, int kLine>
void PendingHwProgrammingSm<Key, Status, kLine>::hasNotificationActiveIs(bool active) {
  PtrInterface::hasNotificationActiveIs(active);
  status_.hasNotificationActiveIs(active);
}

template <class Key, class Status, int kLine>
void PendingHwProgrammingSm<Key, Status, kLine>::quillDoZombieReactors(bool zombie) {
  status_.zombieIs(*this, zombie);
}

template <class Key, class Status, int kLine>
void PendingHwProgrammingSm<Key, Status, kLine>::onStatusRow(const Key& key) {
  static constinit const P4RuntimeTolmar::TracePoint trace{9, "PendingHwProgrammingSms", kLine, "onStatusRow",
                                                           "onStatusRow%s"};
  trace(P4RuntimeTolmar::kPendingHwPogrammingTrace, key);
  const Quill::Ptr<const Status> table = status();  // held, so that a handler may bind another one
  if (!table) return;
  // The second lookup decides whether there is a row. It also gives the answer if the first one found damage
  // and the table was mounted again at once: the first answer is then that of the empty table.
  const Answer first = lookUp(*table, key);
  const Answer second = lookUp(*table, key);
  if (!second.found) return;
  batchStatus_->completedTransactionStatusIs(completion(first.damaged ? second : first));
  wakeAgent();
}

template <class Key, class Status, int kLine>
auto PendingHwProgrammingSm<Key, Status, kLine>::lookUp(const Status& status, const Key& key) -> Answer {
  Answer result;
  const bool read = P4RuntimeTolmar::readTable(status, [&] {
    bool found = false;
    const auto& row = status.directLookup(key, found);
    result = {false, found, row.entryHandle, row.errorCode};
  });
  if (!read) result.damaged = true;
  return result;
}

/// The record for one answer, merged with what the agent has not yet taken for the same handle: a failure is
/// never lost, neither to a later success nor to a later failure.
template <class Key, class Status, int kLine>
P4Runtime::BatchStatusEntry PendingHwProgrammingSm<Key, Status, kLine>::completion(
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

template <class Key, class Status, int kLine>
void PendingHwProgrammingSm<Key, Status, kLine>::wakeAgent() const noexcept {
  const std::uint64_t one = 1;
  // Ignored: a full counter means that the agent has been woken already.
  [[maybe_unused]] const ssize_t written = ::write(batchStatus_->notificationDescriptor(), &one, sizeof one);
}

}  // namespace TolmarHwLib
