// The exceptions of the utility library. Each kind is one class; what() is the text exactly as given.
#pragma once

#include <exception>
#include <string>
#include <utility>

namespace Cairn {

class Exception : public std::exception {
 public:
  explicit Exception(std::string text) : text_(std::move(text)) {}
  ~Exception() override;
  const char* what() const noexcept override { return text_.c_str(); }
  const std::string& message() const noexcept { return text_; }

 private:
  std::string text_;
};

/// A shared-memory table contains bytes that no correct writer can have written.
class CorruptionDetectedException : public Exception {
 public:
  using Exception::Exception;
  ~CorruptionDetectedException() override;
};

/// The system allocator refused `length` bytes; `call` is "malloc()" or "calloc()".
class MemoryResourceException : public Exception {
 public:
  MemoryResourceException(const char* call, std::size_t length);
  ~MemoryResourceException() override;
};

class UnimplementedException : public Exception {
 public:
  using Exception::Exception;
  ~UnimplementedException() override;
};

class NoPermissionException : public Exception {
 public:
  using Exception::Exception;
  ~NoPermissionException() override;
};

/// A bounded resource is used up; the text says how much of how much.
class ResourceExhaustedException : public Exception {
 public:
  using Exception::Exception;
  ~ResourceExhaustedException() override;
};

/// A system call failed; the text is "<what>: <reason>", the reason that of `error` (an errno value).
class SystemException : public Exception {
 public:
  SystemException(const std::string& what, int error);
  ~SystemException() override;
  int error() const noexcept { return error_; }

 private:
  int error_;
};

}  // namespace Cairn
