#pragma once

#include <unistd.h>

#include <utility>

namespace Cairn {

/// Owns a file descriptor, or none (-1).
class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int descriptor) noexcept : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~Descriptor() {
    if (descriptor_ >= 0) close(descriptor_);
  }
  int get() const noexcept { return descriptor_; }
  explicit operator bool() const noexcept { return descriptor_ >= 0; }

 private:
  int descriptor_ = -1;
};

}  // namespace Cairn
