#include "apps/process/StopSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "cairn/Exception.h"

namespace Process {

namespace {
sigset_t stopSet() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}
}  // namespace

StopSignals::StopSignals(Quill::EventLoop& loop, Quill::EventLoop::Callback stop) : loop_(loop) {
  const sigset_t set = stopSet();
  if (sigprocmask(SIG_BLOCK, &set, nullptr) != 0) throw Cairn::SystemException("sigprocmask", errno);
  descriptor_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (descriptor_ < 0) throw Cairn::SystemException("signalfd", errno);
  loop_.descriptorIs(descriptor_, [this, stop = std::move(stop)] {
    signalfd_siginfo info;
    if (::read(descriptor_, &info, sizeof info) == sizeof info) stop();
  });
}

StopSignals::~StopSignals() {
  loop_.descriptorDel(descriptor_);
  ::close(descriptor_);
}

}  // namespace Process
