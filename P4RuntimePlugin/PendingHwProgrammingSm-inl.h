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
  const Answer found = answer(*table, key);
  if (!present(*table, key)) return;
  batchStatus_->completedTransactionStatusIs(completion(found));
  wakeAgent();
}

template <class Key, class Status, int kLine>
auto PendingHwProgrammingSm<Key, Status, kLine>::answer(const Status& status, const Key& key) -> Answer {
  Answer result;
  P4RuntimeTolmar::readTable(status, [&] {
    bool found = false;
    const auto& row = status.directLookup(key, found);
    result = {row.entryHandle, row.errorCode};
  });
  return result;
}

template <class Key, class Status, int kLine>
bool PendingHwProgrammingSm<Key, Status, kLine>::present(const Status& status, const Key& key) {
  bool found = false;
  const bool read = P4RuntimeTolmar::readTable(status, [&] { status.directLookup(key, found); });
  return read && found;
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
