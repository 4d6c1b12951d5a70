#include "apps/server/TcpSocket.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <string_view>

#include "cairn/Exception.h"

namespace Server {

namespace {

constexpr int kBacklog = 128;

struct Address {
  sockaddr_storage storage{};
  socklen_t length = 0;
  bool isLoopback = false;
};

bool parse(std::string_view text, Address& address) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return false;
  std::uint16_t port = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
  if (error != std::errc{} || stop != end) return false;
  std::string host(text.substr(0, colon));
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address.storage);
    v6.sin6_family = AF_INET6;
    v6.sin6_port = htons(port);
    address.length = sizeof v6;
    if (::inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &v6.sin6_addr) != 1) return false;
    address.isLoopback = IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr);
    return true;
  }
  auto& v4 = reinterpret_cast<sockaddr_in&>(address.storage);
  v4.sin_family = AF_INET;
  v4.sin_port = htons(port);
  address.length = sizeof v4;
  if (::inet_pton(AF_INET, host.c_str(), &v4.sin_addr) != 1) return false;
  address.isLoopback = ntohl(v4.sin_addr.s_addr) >> 24 == 127;
  return true;
}

}  // namespace

TcpSocket::TcpSocket(const std::string& text) {
  Address address;
  if (!parse(text, address)) {
    throw Cairn::Exception(
        fmt::format("expected ADDRESS:PORT such as 127.0.0.1:9559 or [::1]:9559, got \"{}\"", text));
  }
  isLoopback_ = address.isLoopback;
  listener_ =
      Cairn::Descriptor(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const int on = 1;
  // Reuse of the address only: a restarted agent gets its port back at once, a second one does not get it.
  const bool isListening =
      listener_ && ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
      ::setsockopt(listener_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 &&
      ::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address.storage), address.length) == 0 &&
      ::listen(listener_.get(), kBacklog) == 0;
  if (!isListening) throw Cairn::SystemException("listen at " + text, errno);
}

}  // namespace Server
