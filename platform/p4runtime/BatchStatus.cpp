#include "p4runtime/BatchStatus.h"

#include <sys/eventfd.h>

#include <cerrno>
#include <string>

#include "cairn/Exception.h"

namespace P4Runtime {

void BatchStatusEntry::setErrorMessage() {
  errorMessage = errorCode == 0 ? "" : "hardware error " + std::to_string(errorCode);
}

constinit const Quill::TypeNode BatchStatus::_quillType{.name = "P4Runtime::BatchStatus", .members = {}};

BatchStatus::BatchStatus() : notificationDescriptor_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (!notificationDescriptor_) throw Cairn::SystemException("batch status: eventfd", errno);
}

BatchStatus::~BatchStatus() = default;

void BatchStatus::completedTransactionStatusIs(const BatchStatusEntry& entry) {
  completedTransactionStatus_.set(entry.entryHandle, entry);
}

const BatchStatusEntry* BatchStatus::completedTransactionStatus(EntryHandle handle) const {
  return completedTransactionStatus_.find(handle);
}

std::vector<BatchStatusEntry> BatchStatus::completedTransactionStatusDelAll() {
  std::vector<BatchStatusEntry> taken;
  taken.reserve(completedTransactionStatus_.size());
  for (auto at = completedTransactionStatus_.first(); at.nonNull(); at.next())
    taken.push_back(std::move(at.value()));
  completedTransactionStatus_.clear();
  return taken;
}

bool BatchStatus::notificationTake() noexcept {
  eventfd_t count = 0;
  return ::eventfd_read(notificationDescriptor_.get(), &count) == 0;
}

}  // namespace P4Runtime
