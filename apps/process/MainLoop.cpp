#include "apps/process/MainLoop.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <new>
#include <thread>
#include <utility>

#include "apps/process/Log.h"
#include "cairn/Exception.h"

namespace Process {

namespace {

/// Blocks the signals for this thread and has `descriptor`, -1 for a new one, carry them.
int carried(int descriptor, std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0) throw Cairn::SystemException("sigprocmask", errno);
  const int made = ::signalfd(descriptor, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (made < 0) throw Cairn::SystemException("signalfd", errno);
  return made;
}

}  // namespace

MainLoop::MainLoop() : signals_(carried(-1, {SIGTERM, SIGINT})) {
  loop_.descriptorIs(signals_, [this] { takeSignals(); });
}

void MainLoop::takeSignals() {
  signalfd_siginfo info;
  while (::read(signals_, &info, sizeof info) == sizeof info) {
    if (info.ssi_signo != SIGHUP) {
      loop_.stop();
    } else {
      hungUp_();
    }
  }
}

void MainLoop::hangUpIs(std::function<void()> hungUp) {
  hungUp_ = std::move(hungUp);
  carried(signals_, {SIGTERM, SIGINT, SIGHUP});
}

MainLoop::~MainLoop() { ::close(signals_); }

void MainLoop::busyPollIs(std::chrono::microseconds duration) {
  if (duration.count() != 0 && std::thread::hardware_concurrency() == 1) {
    return log(LogLevel::warning, "--busy-poll is ignored: this machine has a single processor");
  }
  loop_.busyPollIs(duration);
}

void MainLoop::run(const std::function<void()>& abandoned) {
  while (true) {
    try {
      return loop_.run();
    } catch (const std::bad_alloc&) {
    } catch (const Cairn::MemoryResourceException&) {
    }
    logAbandoned();
    abandoned();
  }
}

/// Once a second at most: what is left to do is tried again at once, and as often as it takes.
void MainLoop::logAbandoned() {
  const auto now = Quill::EventLoop::Clock::now();
  if (now < logAgain_) return;
  logAgain_ = now + std::chrono::seconds(1);
  log(LogLevel::error, "out of memory: a step was abandoned");
}

}  // namespace Process
