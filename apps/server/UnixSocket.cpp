#include "apps/server/UnixSocket.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "cairn/Exception.h"

namespace Server {

namespace {

constexpr int kBacklog = 128;

[[noreturn]] void refuse(const std::string& path, const std::string& problem) {
  throw Cairn::Exception(fmt::format("socket {}: {}", path, problem));
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    refuse(path, fmt::format("expected a path of 1 to {} characters, got {}", sizeof address.sun_path - 1,
                             path.size()));
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

/// Checked before anything is made at the path.
std::string usable(const std::string& path) {
  addressOf(path);
  return path;
}

Cairn::Descriptor newSocket(const std::string& path) {
  Cairn::Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made) throw Cairn::SystemException("socket " + path, errno);
  return made;
}

Cairn::Descriptor folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  Cairn::Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened) throw Cairn::SystemException("folder " + folder, errno);
  return opened;
}

std::string nameIn(const std::string& path) { return path.substr(path.rfind('/') + 1); }

/// ", process 123" for a path at which a process listens, "" where nobody does. Never waits: a server that is
/// stopped has a backlog that takes the connection or is full.
std::string listenerAt(const std::string& path) {
  const sockaddr_un address = addressOf(path);
  const Cairn::Descriptor probe = newSocket(path);
  if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return errno == EAGAIN ? ", a busy process" : "";
  }
  ucred peer{};
  socklen_t length = sizeof peer;
  if (::getsockopt(probe.get(), SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0) return ", another process";
  return fmt::format(", process {}", peer.pid);
}

/// For the holder of the lock: removes a socket that nobody serves any more.
void removeStale(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode)) refuse(path, "expected a socket or nothing, got another file");
  const std::string listener = listenerAt(path);
  if (!listener.empty()) refuse(path, "expected a socket that nobody serves, got one in use" + listener);
  if (::unlink(path.c_str()) != 0) throw Cairn::SystemException("remove socket " + path, errno);
}

}  // namespace

UnixSocket::UnixSocket(const std::string& path)
    : path_(usable(path)),
      folder_(folderOf(path)),
      lock_(folder_.get(), nameIn(path) + ".lock", path + ".lock") {
  const sockaddr_un address = addressOf(path_);
  if (!lock_.tryLock(Vesta::LockFile::kWriter)) {
    refuse(path_, "expected one that nobody serves, got one in use" + listenerAt(path_));
  }
  removeStale(path_);
  listener_ = newSocket(path_);
  // The file gets the mode of the descriptor. A umask would be the whole process's.
  if (::fchmod(listener_.get(), 0600) != 0 ||
      ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw Cairn::SystemException("socket " + path_, errno);
  }
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0 || ::listen(listener_.get(), kBacklog) != 0) {
    throw Cairn::SystemException("socket " + path_, errno);
  }
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

UnixSocket::~UnixSocket() {
  struct stat status {};
  const bool isOurs =
      ::lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
  if (isOurs) ::unlink(path_.c_str());
}

}  // namespace Server
