#include "apps/client/Progress.h"

#include <unistd.h>

#include <cstdio>

namespace Client {

Progress::Progress(std::size_t updates)
    : updates_(updates), isTerminal_(::isatty(STDERR_FILENO) != 0), thread_([this] { run(); }) {}

Progress::~Progress() {
  {
    const std::lock_guard lock(mutex_);
    isEnded_ = true;
  }
  ended_.notify_one();
  thread_.join();
  if (shown_ && isTerminal_) std::fputs("\r\033[K", stderr);
}

void Progress::run() {
  std::unique_lock lock(mutex_);
  std::chrono::seconds elapsed{0};
  while (!ended_.wait_for(lock, std::chrono::seconds(1), [this] { return isEnded_; })) show(++elapsed);
}

void Progress::show(std::chrono::seconds elapsed) {
  shown_ = true;
  std::fprintf(stderr, "%s  %zu of %zu answered, %lld s%s", isTerminal_ ? "\r" : "", answered_.load(),
               updates_, static_cast<long long>(elapsed.count()), isTerminal_ ? " " : "\n");
}

}  // namespace Client
