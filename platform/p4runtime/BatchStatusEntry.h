#pragma once

#include <cstdint>

#include "quill/String.h"

namespace P4Runtime {

/// Under what the agent tracks one entry from its insertion to its deletion.
using EntryHandle = std::uint64_t;

/// The hardware's answer for one entry.
struct BatchStatusEntry {
  EntryHandle entryHandle = 0;
  std::uint16_t errorCode = 0;  ///< 0: programmed as asked; otherwise the hardware's own code
  Quill::String errorMessage;

  /// Replaces errorMessage by the text for the present errorCode; by "" for code 0.
  void setErrorMessage();

  friend bool operator==(const BatchStatusEntry&, const BatchStatusEntry&) = default;
};

}  // namespace P4Runtime
