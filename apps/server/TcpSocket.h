#pragma once

#include <string>

#include "cairn/Descriptor.h"

namespace Server {

/// A listening TCP socket, the only one at its address and port.
class TcpSocket {
 public:
  /// "ADDRESS:PORT", an IPv6 address in brackets. Throws Cairn::Exception, saying what was expected and what
  /// came, and Cairn::SystemException when the system refuses, as for a port that is in use.
  explicit TcpSocket(const std::string& address);

  /// Listening and non-blocking.
  int descriptor() const noexcept { return listener_.get(); }
  bool isLoopback() const noexcept { return isLoopback_; }

 private:
  Cairn::Descriptor listener_;
  bool isLoopback_ = false;
};

}  // namespace Server
