#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "quill/EventLoop.h"

namespace Server {

/// Accepts connections on a listening socket and hands them on. At the limit further ones are closed at once;
/// when the process has no descriptor left, it pauses.
///
/// A connection belongs to the callback that it was handed to. The acceptor detects its end by its
/// descriptor, which is closed or names another socket by then, so nobody has to report it. To end a
/// connection, it shuts the socket down and leaves the descriptor to its owner. No other thread makes
/// sockets, so the descriptor cannot come to name another one in between.
class Acceptor {
 public:
  using Clock = std::chrono::steady_clock;
  using HandOver = std::function<void(int descriptor)>;  ///< takes ownership

  struct Settings {
    std::size_t maxConnections = 256;
    /// For a Unix socket: whose connections are taken besides the superuser's. None for other sockets.
    std::optional<uid_t> user;
    std::chrono::milliseconds pause{100};
  };
  struct Counts {
    std::uint64_t accepted = 0;
    std::uint64_t overLimit = 0;
    std::uint64_t otherUsers = 0;
    std::uint64_t pauses = 0;
  };

  /// `loop` and `listener`, which is non-blocking, are not owned.
  Acceptor(Quill::EventLoop& loop, int listener, const Settings& settings, HandOver handOver);
  ~Acceptor() { stop(); }
  Acceptor(const Acceptor&) = delete;
  Acceptor& operator=(const Acceptor&) = delete;

  /// Stops accepting; connections handed over live on.
  void stop();
  const Counts& counts() const noexcept { return counts_; }
  /// Connections handed over that are still open.
  std::size_t open();
  /// Ends each connection whose buffer has been full of bytes that the peer does not take, in every call
  /// since `timeout` ago. To be called periodically.
  void endStalled(Clock::time_point now, Clock::duration timeout);
  /// Ends all connections that are open.
  void endAll();

 private:
  struct Connection {
    int descriptor;  // not owned
    dev_t device;    // with the inode, the socket
    ino_t inode;
    int unsent = 0;  // bytes that the peer had yet to take at the last check; 0: there was room for more
    Clock::time_point since{};  // unsent has not changed
  };

  void resume();
  void acceptSome();
  void take(int descriptor);
  bool isWelcome(int descriptor);

  Quill::EventLoop& loop_;
  int listener_;
  Settings settings_;
  HandOver handOver_;
  Quill::EventLoop::TimerId resume_ = 0;  // 0: not pausing
  Counts counts_;
  std::vector<Connection> connections_;
};

}  // namespace Server
