#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "apps/server/Acceptor.h"
#include "apps/server/TcpSocket.h"
#include "apps/server/UnixSocket.h"
#include "cairn/Exception.h"
#include "tests/RuntimeFolder.h"

namespace {

using namespace Server;
using namespace std::chrono_literals;
using Cairn::Descriptor;

/// A socket that `use`, which is ::bind or ::connect, has taken to the path, or none where that fails.
template <class Use>
Descriptor socketAt(const std::string& path, const Use& use) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  Descriptor made(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const bool done = use(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return done ? std::move(made) : Descriptor();
}

/// A client's end, or none where nobody listens or the backlog is full.
Descriptor connectTo(const std::string& path) { return socketAt(path, ::connect); }

Descriptor bareListener(const std::string& path) {
  Descriptor made = socketAt(path, ::bind);
  EXPECT_EQ(::listen(made.get(), 1), 0);
  return made;
}

bool isClosed(const Descriptor& client) {
  char byte;
  return ::recv(client.get(), &byte, 1, MSG_DONTWAIT) == 0;
}

class Listener : public testing::Test {
 protected:
  std::string refusal(const std::string& path) {
    try {
      const UnixSocket second(path);
      return "accepted";
    } catch (const Cairn::Exception& refused) {
      return refused.what();
    }
  }

  RuntimeFolder folder_{"/dev/shm"};
  std::string path_ = folder_.path() + "/p4runtime.sock";
};

TEST_F(Listener, SocketIsPrivateAndGoesWithItsOwner) {
  std::optional<UnixSocket> socket(path_);
  EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms{0600});
  EXPECT_TRUE(connectTo(path_));
  socket.reset();
  EXPECT_FALSE(std::filesystem::exists(path_));
  socket.emplace(path_);
  EXPECT_TRUE(connectTo(path_));
}

TEST_F(Listener, PathMustBeOneThatASocketCanHave) {
  const std::string longPath = folder_.path() + "/" + std::string(107 - folder_.path().size(), 's');
  EXPECT_EQ(longPath.size(), 108u);
  EXPECT_EQ(refusal(longPath), "socket " + longPath + ": expected a path of 1 to 107 characters, got 108");
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
  EXPECT_EQ(refusal(""), "socket : expected a path of 1 to 107 characters, got 0");
  EXPECT_EQ(refusal(longPath.substr(0, 107)), "accepted");
  EXPECT_NE(refusal(folder_.path() + "/none/s"), "accepted");
  std::ofstream(path_) << "precious";
  EXPECT_EQ(refusal(path_), "socket " + path_ + ": expected a socket or nothing, got another file");
  EXPECT_TRUE(std::filesystem::is_regular_file(path_));
}

TEST_F(Listener, ServerWithoutLockCountsToo) {
  const Descriptor other = bareListener(path_);
  const std::string own = std::to_string(::getpid());
  const std::string expected = "socket " + path_ + ": expected a socket that nobody serves, got one in use, ";
  EXPECT_EQ(refusal(path_), expected + "process " + own);
  std::vector<Descriptor> backlog;
  do backlog.push_back(connectTo(path_));
  while (backlog.back());
  EXPECT_EQ(refusal(path_), expected + "a busy process");
}

// A stopped process cannot answer, and the one that asks must not wait for it.
TEST_F(Listener, SecondServerIsRefusedAtOnceUntilTheFirstIsGone) {
  const pid_t server = ::fork();
  if (server == 0) {
    const UnixSocket socket(path_);
    ::pause();
    ::_exit(0);
  }
  while (!connectTo(path_)) std::this_thread::yield();
  ::kill(server, SIGSTOP);
  ::waitpid(server, nullptr, WUNTRACED);
  EXPECT_EQ(refusal(path_), "socket " + path_ +
                                ": expected one that nobody serves, got one in use, process " +
                                std::to_string(server));
  EXPECT_TRUE(connectTo(path_));
  ::kill(server, SIGKILL);
  ::waitpid(server, nullptr, 0);
  EXPECT_EQ(refusal(path_), "accepted");
}

TEST_F(Listener, SocketOfASuccessorStays) {
  std::optional<UnixSocket> first(path_);
  std::filesystem::remove(path_);
  const Descriptor successor = bareListener(path_);
  first.reset();
  EXPECT_TRUE(connectTo(path_));
}

/// An acceptor over the socket that keeps what it hands over.
class Accepting : public Listener {
 protected:
  void start(uid_t user = ::geteuid()) {
    Acceptor::Settings settings;
    settings.user = user;
    settings.pause = 20ms;
    acceptor_.emplace(loop_, socket_.descriptor(), settings,
                      [this](int descriptor) { accepted_.emplace_back(Descriptor(descriptor)); });
  }
  void step() {
    while (loop_.step(0ms) != 0) {
    }
  }

  UnixSocket socket_{path_};
  Quill::EventLoop loop_;
  std::optional<Acceptor> acceptor_;
  std::vector<Descriptor> accepted_;
};

TEST_F(Accepting, PausesWhenDescriptorsRunOut) {
  start();
  const Descriptor client = connectTo(path_);
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  rlimit none = before;
  none.rlim_cur = static_cast<rlim_t>(Descriptor(::dup(0)).get());
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  std::size_t steps = 0;
  const auto end = std::chrono::steady_clock::now() + 100ms;
  while (std::chrono::steady_clock::now() < end) steps += loop_.step(10ms);
  EXPECT_GE(acceptor_->counts().pauses, 2u);
  EXPECT_LE(steps, 20u);  // it does not spin
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  while (accepted_.empty()) loop_.step(10ms);
  EXPECT_FALSE(isClosed(client));
  acceptor_.reset();
  const Descriptor late = connectTo(path_);
  step();
  EXPECT_EQ(accepted_.size(), 1u) << "it stops with the acceptor";
}

TEST_F(Accepting, PeersThatTakeNothingInTimeAreDisconnected) {
  start();
  const Descriptor stalled = connectTo(path_);
  const Descriptor idle = connectTo(path_);
  step();
  char bytes[16384]{};
  const auto fill = [&] {
    while (::send(accepted_[0].get(), bytes, sizeof bytes, MSG_DONTWAIT | MSG_NOSIGNAL) > 0) continue;
    return errno;
  };
  EXPECT_EQ(fill(), EAGAIN);
  const struct {
    std::chrono::milliseconds time;
    bool takes;
    int error;
  } rows[] = {{0ms, false, EAGAIN},
              {999ms, true, EAGAIN},
              {1000ms, false, EAGAIN},
              {1999ms, false, EAGAIN},
              {2000ms, false, EPIPE}};
  for (const auto& [time, takes, error] : rows) {
    EXPECT_EQ(takes && ::recv(stalled.get(), bytes, sizeof bytes, 0) > 0, takes);
    acceptor_->endStalled(Acceptor::Clock::time_point(time), 1s);
    EXPECT_EQ(fill(), error) << time.count();
  }
  EXPECT_FALSE(isClosed(idle));
  acceptor_->endAll();
  EXPECT_TRUE(isClosed(idle));
}

TEST_F(Accepting, OtherUsersAreNotWelcome) {
  const bool isRoot = ::geteuid() == 0;
  start(::geteuid() + (isRoot ? 0 : 1));
  std::filesystem::permissions(folder_.path(), std::filesystem::perms{0711});
  std::filesystem::permissions(path_, std::filesystem::perms{0666});
  const pid_t other = ::fork();
  if (other == 0) {
    if (isRoot && ::setuid(65534) != 0) ::_exit(2);
    const Descriptor client = connectTo(path_);
    pollfd end{client.get(), POLLIN, 0};
    ::poll(&end, 1, 10000);
    ::_exit(isClosed(client) ? 0 : 1);
  }
  for (int i = 0; i < 1000 && acceptor_->counts().otherUsers == 0; ++i) loop_.step(10ms);
  int status = 0;
  ::waitpid(other, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(accepted_.empty());
}

TEST(Tcp, LoopbackIsKnownInBothFamilies) {
  for (const char* const address : {"127.1.2.3:0", "[::1]:0"}) EXPECT_TRUE(TcpSocket(address).isLoopback());
  for (const char* const address : {"0.0.0.0:0", "[::]:0"}) EXPECT_FALSE(TcpSocket(address).isLoopback());
  for (const char* const address : {"127.0.0.1", "127.0.0.1:", "::1:0", "[::1:0", "localhost:0", ":0"}) {
    EXPECT_THROW(TcpSocket{address}, Cairn::Exception) << address;
  }
}

}  // namespace
