#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "cairn/Descriptor.h"
#include "quill/Counted.h"
#include "quill/HashMap2018.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

/// Identifies one entry from its insertion to its deletion.
using EntryHandle = std::uint64_t;

/// The hardware's answer for one entry.
struct BatchStatusEntry {
  EntryHandle entryHandle = 0;
  std::uint16_t errorCode = 0;  ///< 0: programmed as requested; otherwise the hardware's own code
  Quill::String errorMessage;

  /// Sets errorMessage to the text for the current errorCode; "" for code 0.
  void setErrorMessage();

  friend bool operator==(const BatchStatusEntry&, const BatchStatusEntry&) = default;
};

/// Completions that the agent has not taken yet, one per handle. A plugin that adds one then writes eight
/// bytes to the notification descriptor.
class BatchStatus : public Quill::Typed<BatchStatus, Quill::PtrInterface> {
 public:
  /// Cairn::SystemException if the descriptor cannot be created.
  BatchStatus();
  ~BatchStatus() override;

  /// Adds the completion, or replaces the one of the same handle.
  virtual void completedTransactionStatusIs(const BatchStatusEntry& entry);
  /// The completion of that handle, or null; valid until the next change.
  const BatchStatusEntry* completedTransactionStatus(EntryHandle handle) const;
  std::size_t completedTransactionStatusCount() const noexcept { return completedTransactionStatus_.size(); }

  /// For the agent: removes and returns all completions, in no particular order.
  std::vector<BatchStatusEntry> completedTransactionStatusDelAll();

  /// An event counter, non-blocking and owned by this object: readable once a plugin has written to it; a
  /// read of eight bytes clears it.
  int notificationDescriptor() const noexcept { return notificationDescriptor_.get(); }
  /// For the agent: clears the descriptor. True if it had been written to.
  bool notificationTake() noexcept;

  static const Quill::TypeNode _quillType;

 private:
  struct QuillCompletedTransactionStatus {
    using Key = EntryHandle;
    using Value = BatchStatusEntry;
    static std::uint32_t hash(EntryHandle handle) {
      return static_cast<std::uint32_t>(handle ^ handle >> 32);
    }
    Key key;
    Value value;
  };

  Quill::HashMap2018<QuillCompletedTransactionStatus> completedTransactionStatus_;
  Cairn::Descriptor notificationDescriptor_;
};

}  // namespace P4Runtime
