#include "apps/server/Acceptor.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace Server {

namespace {
constexpr int kAtOnce = 16;  // so that a flood of connections does not hold the loop up
}  // namespace

Acceptor::Acceptor(Quill::EventLoop& loop, int listener, const Settings& settings, HandOver handOver)
    : loop_(loop), listener_(listener), settings_(settings), handOver_(std::move(handOver)) {
  resume();
}

void Acceptor::stop() {
  if (resume_ != 0) loop_.timerDel(std::exchange(resume_, 0));
  loop_.descriptorDel(listener_);
}

void Acceptor::resume() {
  resume_ = 0;
  loop_.descriptorIs(listener_, [this] { acceptSome(); });
}

void Acceptor::acceptSome() {
  for (int i = 0; i < kAtOnce; ++i) {
    const int descriptor = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (descriptor >= 0) {
      take(descriptor);
      continue;
    }
    if (errno == EAGAIN) return;
    if (errno == EINTR || errno == ECONNABORTED) continue;
    // No descriptor or no memory: the connection stays in the backlog, and the listener readable.
    ++counts_.pauses;
    loop_.descriptorDel(listener_);
    resume_ = loop_.timerIs(settings_.pause, [this] { resume(); });
    return;
  }
}

void Acceptor::take(int descriptor) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !isWelcome(descriptor)) {
    ::close(descriptor);
    return;
  }
  ++counts_.accepted;
  connections_.push_back({.descriptor = descriptor, .device = status.st_dev, .inode = status.st_ino});
  handOver_(descriptor);
}

bool Acceptor::isWelcome(int descriptor) {
  if (settings_.user) {
    ucred peer{};
    socklen_t length = sizeof peer;
    const bool isKnown = ::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0;
    if (!isKnown || (peer.uid != *settings_.user && peer.uid != 0)) {
      ++counts_.otherUsers;
      return false;
    }
  }
  if (connections_.size() < settings_.maxConnections || open() < settings_.maxConnections) return true;
  ++counts_.overLimit;
  return false;
}

std::size_t Acceptor::open() {
  std::erase_if(connections_, [](const Connection& connection) {
    struct stat status {};
    return ::fstat(connection.descriptor, &status) != 0 || status.st_dev != connection.device ||
           status.st_ino != connection.inode;
  });
  return connections_.size();
}

void Acceptor::endStalled(Clock::time_point now, Clock::duration timeout) {
  open();
  for (Connection& connection : connections_) {
    pollfd room{connection.descriptor, POLLOUT, 0};
    int unsent = 0;
    if (::poll(&room, 1, 0) == 0) ::ioctl(connection.descriptor, SIOCOUTQ, &unsent);
    if (unsent == 0 || unsent != connection.unsent) {
      connection.unsent = unsent;
      connection.since = now;
    } else if (now - connection.since >= timeout) {
      ::shutdown(connection.descriptor, SHUT_RDWR);
    }
  }
}

void Acceptor::endAll() {
  open();
  for (const Connection& connection : connections_) ::shutdown(connection.descriptor, SHUT_RDWR);
}

}  // namespace Server
