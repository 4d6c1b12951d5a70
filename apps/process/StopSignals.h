#pragma once

#include "quill/EventLoop.h"

namespace Process {

/// Turns SIGTERM and SIGINT into a call on the event loop while it exists. To be made before any other
/// thread.
class StopSignals {
 public:
  /// `loop` is not owned. Throws Cairn::SystemException when the system refuses.
  StopSignals(Quill::EventLoop& loop, Quill::EventLoop::Callback stop);
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  Quill::EventLoop& loop_;  // not owned
  int descriptor_;
};

}  // namespace Process
