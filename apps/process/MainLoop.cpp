#include "apps/process/MainLoop.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <new>
#include <thread>

#include "apps/process/CommandLine.h"
#include "apps/process/Log.h"
#include "cairn/Exception.h"

namespace Process {

std::chrono::microseconds busyPollOf(const std::string& text) {
  const auto microseconds = numberIn<std::uint32_t>(text, 0, 1'000'000);
  if (microseconds) return std::chrono::microseconds(*microseconds);
  throw Cairn::Exception("--busy-poll: expected microseconds from 0 to 1000000, got \"" + text + "\"");
}

MainLoop::MainLoop() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0) throw Cairn::SystemException("sigprocmask", errno);
  signals_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signals_ < 0) throw Cairn::SystemException("signalfd", errno);
  loop_.descriptorIs(signals_, [this] {
    signalfd_siginfo info;
    if (::read(signals_, &info, sizeof info) == sizeof info) loop_.stop();
  });
}

MainLoop::~MainLoop() { ::close(signals_); }

void MainLoop::busyPollIs(std::chrono::microseconds duration) {
  if (duration.count() != 0 && std::thread::hardware_concurrency() == 1) {
    return log("--busy-poll is ignored: this machine has a single processor");
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
  log("out of memory: a step was abandoned");
}

}  // namespace Process
