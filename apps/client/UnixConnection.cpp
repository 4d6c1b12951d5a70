#include "apps/client/UnixConnection.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "cairn/Descriptor.h"
#include "cairn/Exception.h"

namespace Client {

namespace {

using Clock = std::chrono::steady_clock;

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    throw Cairn::Exception("socket " + path + ": expected a path of 1 to " +
                           std::to_string(sizeof address.sun_path - 1) + " characters, got " +
                           std::to_string(path.size()));
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

/// The error of one attempt; 0 when it is connected.
int attempt(const sockaddr_un& address, Cairn::Descriptor& made) {
  made = Cairn::Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!made) return errno;
  const timeval patience{5, 0};  // for a server that is stopped and whose backlog is full
  ::setsockopt(made.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
  const bool connected =
      ::connect(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return connected ? 0 : errno;
}

}  // namespace

int connectedTo(const std::string& path, uid_t user, std::chrono::milliseconds wait) {
  const sockaddr_un address = addressOf(path);
  const Clock::time_point end = Clock::now() + wait;
  Cairn::Descriptor made;
  int error = 0;
  while ((error = attempt(address, made)) != 0) {
    const bool mayCome = error == ENOENT || error == ECONNREFUSED;
    if (!mayCome || Clock::now() >= end) throw Cairn::SystemException("socket " + path, error);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  ucred peer{};
  socklen_t length = sizeof peer;
  if (::getsockopt(made.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 ||
      ::fcntl(made.get(), F_SETFL, O_NONBLOCK) != 0) {
    throw Cairn::SystemException("socket " + path, errno);
  }
  if (peer.uid != user) {
    throw Cairn::Exception("socket " + path + ": expected one that user " + std::to_string(user) +
                           " serves, got one of user " + std::to_string(peer.uid));
  }
  const int result = ::fcntl(made.get(), F_DUPFD_CLOEXEC, 0);
  if (result < 0) throw Cairn::SystemException("socket " + path, errno);
  return result;
}

}  // namespace Client
