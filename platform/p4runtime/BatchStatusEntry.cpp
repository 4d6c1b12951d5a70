#include "p4runtime/BatchStatusEntry.h"

#include <string>

namespace P4Runtime {

void BatchStatusEntry::setErrorMessage() {
  errorMessage = errorCode == 0 ? "" : "hardware error " + std::to_string(errorCode);
}

}  // namespace P4Runtime
