#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "quill/EventLoop.h"

namespace Process {

/// Reads the value of --busy-poll. Throws Cairn::Exception saying what was expected and what came.
std::chrono::microseconds busyPollOf(const std::string& text);

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
  Quill::EventLoop& loop() noexcept { return loop_; }
  /// Runs the loop until it is stopped. A callback that finds no memory is abandoned and the loop continues;
  /// `abandoned` is called then and must not throw.
  void run(const std::function<void()>& abandoned);

 private:
  void logAbandoned();

  Quill::EventLoop loop_;
  Quill::EventLoop::Clock::time_point logAgain_{};
  int signals_;
};

}  // namespace Process
