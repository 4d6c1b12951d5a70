// Two kinds of assertion. One throws, so that callers and tests can see it; the other stops the process and
// is for states in which continuing would do harm. Neither is for input.
#pragma once

#include <string>

#include "cairn/Exception.h"

namespace Cairn {

/// An assertion that throws has failed. what() is the assertion's text, without the operation.
class AssertionException : public Exception {
 public:
  AssertionException(std::string text, std::string operation)
      : Exception(std::move(text)), operation_(std::move(operation)) {}
  ~AssertionException() override;
  const std::string& operation() const noexcept { return operation_; }

 private:
  std::string operation_;
};

/// Called with text and operation when an assertion that stops the process fails. It must not return: it
/// throws or ends the process. The default writes one line to standard error and aborts.
using FatalHandler = void (*)(const char* text, const char* operation);

/// Installs `handler` (null: the default) and returns the previous one.
FatalHandler fatalHandlerIs(FatalHandler handler) noexcept;

[[noreturn]] void assertionFailed(const char* text, const char* operation);
[[noreturn]] void fatalAssertionFailed(const char* text, const char* operation);

/// Throws AssertionException unless `condition` holds.
inline void require(bool condition, const char* text, const char* operation) {
  if (!condition) [[unlikely]] {
    assertionFailed(text, operation);
  }
}

/// Stops the process unless `condition` holds.
inline void requireOrStop(bool condition, const char* text, const char* operation) {
  if (!condition) [[unlikely]] {
    fatalAssertionFailed(text, operation);
  }
}

}  // namespace Cairn
