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
/// descriptor, which is closed or names another socket by then, so nobody has to report it.
class Acceptor {
 public:
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
  /// Stops accepting; connections handed over live on.
  ~Acceptor();
  Acceptor(const Acceptor&) = delete;
  Acceptor& operator=(const Acceptor&) = delete;

  const Counts& counts() const noexcept { return counts_; }
  /// Connections handed over that are still open.
  std::size_t open();

 private:
  struct Connection {
    int descriptor;  // not owned
    dev_t device;    // with the inode, the socket
    ino_t inode;
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
