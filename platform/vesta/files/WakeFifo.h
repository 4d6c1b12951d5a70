#pragma once

#include <string>

#include "cairn/Descriptor.h"

namespace Vesta {

/// A FIFO that wakes one reader. Both sides open it for reading and writing without blocking: no hang-up and
/// no signal when the other side closes it, and no wait when it is full, which means that the reader is woken
/// already.
class WakeFifo {
 public:
  WakeFifo() = default;
  /// The reader's end: creates the FIFO unless it is there, and empties it.
  static WakeFifo forReader(int folder, const std::string& name, const std::string& path);
  /// The writer's end; not valid when there is no such FIFO or it is not private. False when the process or
  /// the system is out of descriptors: the caller tries again later.
  static bool forWriter(int folder, const std::string& name, WakeFifo& fifo);

  explicit operator bool() const noexcept { return static_cast<bool>(fifo_); }
  int descriptor() const noexcept { return fifo_.get(); }
  void wake() const noexcept;
  void drain() const noexcept;
  /// Whether the FIFO still has its name.
  bool inPlace(int folder, const std::string& name) const;

 private:
  Cairn::Descriptor fifo_;
};

}  // namespace Vesta
