#include "cairn/Exception.h"

#include <system_error>

namespace Cairn {

Exception::~Exception() = default;
CorruptionDetectedException::~CorruptionDetectedException() = default;
UnimplementedException::~UnimplementedException() = default;
NoPermissionException::~NoPermissionException() = default;
ResourceExhaustedException::~ResourceExhaustedException() = default;

MemoryResourceException::MemoryResourceException(const char* call, std::size_t length)
    : Exception(std::string(call) + " failed requested length: " + std::to_string(length)) {}
MemoryResourceException::~MemoryResourceException() = default;

SystemException::SystemException(const std::string& what, int error)
    : Exception(what + ": " + std::system_category().message(error)), error_(error) {}
SystemException::~SystemException() = default;

}  // namespace Cairn
