#include "apps/agent/ScriptServer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "cairn/Exception.h"

namespace Agent {

namespace {

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw Cairn::Exception("socket " + path + ": expected at most " +
                           std::to_string(sizeof address.sun_path - 1) + " characters, got " +
                           std::to_string(path.size()));
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

/// A descriptor that is closed unless released.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  ~Descriptor() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return descriptor_; }
  int release() { return std::exchange(descriptor_, -1); }

 private:
  int descriptor_;
};

int connectTo(int socket, const std::string& path) {
  const sockaddr_un address = addressOf(path);
  return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? 0 : errno;
}

/// Removes a socket that nobody serves any more; anything else at the path stays.
void removeStale(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode))
    throw Cairn::Exception("socket " + path + ": expected a socket, got another file");
  const Descriptor probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (connectTo(probe.get(), path) == 0)
    throw Cairn::Exception("socket " + path + ": another process serves it");
  ::unlink(path.c_str());
}

int listenAt(const std::string& path) {
  const sockaddr_un address = addressOf(path);
  removeStale(path);
  Descriptor listener(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const mode_t before = ::umask(0177);
  const int bound = ::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
  const int error = errno;
  ::umask(before);
  if (bound != 0) throw Cairn::SystemException("socket " + path, error);
  if (::listen(listener.get(), 16) != 0) throw Cairn::SystemException("socket " + path, errno);
  return listener.release();
}

}  // namespace

ScriptServer::ScriptServer(Quill::EventLoop& loop, std::string path, Run run)
    : loop_(loop), path_(std::move(path)), run_(std::move(run)), listener_(listenAt(path_)) {
  listen();
}

ScriptServer::~ScriptServer() {
  loop_.descriptorDel(listener_);
  ::close(listener_);
  ::unlink(path_.c_str());
}

void ScriptServer::listen() {
  loop_.descriptorIs(listener_, [this] { accept(); });
}

void ScriptServer::accept() {
  const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
  if (socket < 0) {
    // Without a descriptor to spare, the others wait in the backlog until a client goes.
    if (errno == EMFILE && !clients_.empty()) loop_.descriptorDel(listener_);
    return;
  }
  Client& client = clients_.emplace_back(*this, socket);
  loop_.descriptorIs(socket, [&client] { client.readable(); });
}

void ScriptServer::drop(const Client* client) {
  clients_.remove_if([client](const Client& candidate) { return &candidate == client; });
  listen();
}

ScriptServer::Client::~Client() {
  if (reading_) server_.loop_.descriptorDel(socket_);
  if (retry_ != 0) server_.loop_.timerDel(retry_);
  ::close(socket_);
}

void ScriptServer::Client::readable() {
  std::array<char, 65536> bytes;
  const ssize_t length = ::read(socket_, bytes.data(), bytes.size());
  if (length < 0 && (errno == EAGAIN || errno == EINTR)) return;
  if (length < 0) return server_.drop(this);
  if (length > 0 && script_.size() + static_cast<std::size_t>(length) <= kMaxScript) {
    script_.append(bytes.data(), static_cast<std::size_t>(length));
    return;
  }
  server_.loop_.descriptorDel(socket_);
  reading_ = false;
  if (length == 0) {
    // A client that is gone altogether has most likely died over its script: half a script is not run.
    pollfd end{socket_, 0, 0};
    if (::poll(&end, 1, 0) > 0 && (end.revents & POLLHUP) != 0) return server_.drop(this);
    return server_.run_(std::move(script_), *this);
  }
  write("expected a script of at most " + std::to_string(kMaxScript) + " bytes, got more\n");
  end();
}

void ScriptServer::Client::write(std::string_view text) {
  if (gone_) return;
  output_ += text;
  flush();
}

void ScriptServer::Client::end() {
  ended_ = true;
  flush();
}

void ScriptServer::Client::flush() {
  while (!gone_ && sent_ < output_.size()) {
    const ssize_t length = ::send(socket_, output_.data() + sent_, output_.size() - sent_, MSG_NOSIGNAL);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0 && errno == EAGAIN) break;
    gone_ = length < 0;
    sent_ += gone_ ? 0u : static_cast<std::size_t>(length);
  }
  const bool done = gone_ || sent_ == output_.size();
  if (done) {
    output_.clear();
    sent_ = 0;
    if (ended_) server_.drop(this);
  } else if (retry_ == 0) {
    retry_ = server_.loop_.timerIs(std::chrono::milliseconds(10), [this] {
      retry_ = 0;
      flush();
    });
  }
}

void sendScript(const std::string& path, std::string_view script,
                const std::function<void(std::string_view)>& output) {
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (const int error = connectTo(socket.get(), path)) throw Cairn::SystemException("socket " + path, error);
  while (!script.empty()) {
    const ssize_t length = ::send(socket.get(), script.data(), script.size(), MSG_NOSIGNAL);
    if (length < 0 && errno == EINTR) continue;
    if (length < 0 && errno == EPIPE) break;  // it takes no more, and says why
    if (length < 0) throw Cairn::SystemException("socket " + path, errno);
    script.remove_prefix(static_cast<std::size_t>(length));
  }
  ::shutdown(socket.get(), SHUT_WR);
  std::array<char, 65536> bytes;
  while (true) {
    const ssize_t length = ::read(socket.get(), bytes.data(), bytes.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) throw Cairn::SystemException("socket " + path, errno);
    if (length == 0) return;
    output(std::string_view(bytes.data(), static_cast<std::size_t>(length)));
  }
}

}  // namespace Agent
