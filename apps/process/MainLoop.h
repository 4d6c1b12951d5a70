#pragma once

#include <chrono>
#include <functional>

#include "quill/EventLoop.h"

namespace Process {

/// The event loop of a program, stopped by SIGTERM and SIGINT. To be made before any other thread.
class MainLoop {
 public:
  /// Throws Cairn::SystemException when the system refuses.
  MainLoop();
  ~MainLoop();
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;

  /// See Quill::EventLoop::busyPollIs; on a single processor a warning instead, since the other side of the
  /// tables needs it.
  void busyPollIs(std::chrono::microseconds duration);
  /// Calls `hungUp` for SIGHUP, which otherwise ends the process.
  void hangUpIs(std::function<void()> hungUp);
  Quill::EventLoop& loop() noexcept { return loop_; }
  /// Runs the loop until it is stopped. A callback that runs out of memory is abandoned and the loop
  /// continues; `abandoned` is called then and must not throw.
  void run(const std::function<void()>& abandoned);

 private:
  void takeSignals();
  void logAbandoned();

  Quill::EventLoop loop_;
  Quill::EventLoop::Clock::time_point logAgain_{};
  int signals_;
  std::function<void()> hungUp_;
};

}  // namespace Process
