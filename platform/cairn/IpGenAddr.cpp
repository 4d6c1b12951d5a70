#include "cairn/IpGenAddr.h"

#include <arpa/inet.h>

static_assert(std::tuple_size_v<IpGenAddr::Text> == INET6_ADDRSTRLEN);

std::string_view IpGenAddr::toText(Text& text) const noexcept {
  if (!isSet()) return {};
  return inet_ntop(family_ == kIpv4 ? AF_INET : AF_INET6, bytes_.data(), text.data(), INET6_ADDRSTRLEN);
}

std::string IpGenAddr::toString() const {
  Text text;
  return std::string(toText(text));
}

std::optional<IpGenAddr> IpGenAddr::parse(std::string_view text) {
  if (text.empty()) return IpGenAddr();
  if (text.find('\0') != std::string_view::npos) return std::nullopt;  // inet_pton would stop there
  const std::string terminated(text);
  std::array<std::uint8_t, 16> bytes{};
  if (inet_pton(AF_INET, terminated.c_str(), bytes.data()) == 1) return fromBytes(kIpv4, bytes.data());
  if (inet_pton(AF_INET6, terminated.c_str(), bytes.data()) == 1) return ipv6(bytes);
  return std::nullopt;
}

std::ostream& operator<<(std::ostream& out, const IpGenAddr& address) { return out << address.toString(); }
