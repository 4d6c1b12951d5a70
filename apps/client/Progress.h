#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace Client {

/// Shows on standard error how many of so many updates are answered, as long as the object lives: first after
/// a second and then every second, in place on a terminal.
class Progress {
 public:
  explicit Progress(std::size_t updates);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void answered(std::size_t more) noexcept { answered_ += more; }

 private:
  void run();
  void show(std::chrono::seconds elapsed);

  const std::size_t updates_;
  const bool isTerminal_;
  std::atomic<std::size_t> answered_{0};
  bool shown_ = false;
  std::mutex mutex_;
  std::condition_variable ended_;
  bool isEnded_ = false;
  std::thread thread_;
};

}  // namespace Client
