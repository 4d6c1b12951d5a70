#include "cairn/EthAddr.h"

namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

std::string_view EthAddr::toText(Text& text) const noexcept {
  static constexpr char kDigits[] = "0123456789abcdef";
  text.fill(':');
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    text[3 * i] = kDigits[bytes[i] >> 4];
    text[3 * i + 1] = kDigits[bytes[i] & 15];
  }
  return {text.data(), text.size()};
}

std::string EthAddr::toString() const {
  Text text;
  return std::string(toText(text));
}

std::optional<EthAddr> EthAddr::parse(std::string_view text) {
  if (text.size() != 17) return std::nullopt;
  EthAddr address;
  for (std::size_t i = 0; i < address.bytes.size(); ++i) {
    const int high = hexDigit(text[3 * i]);
    const int low = hexDigit(text[3 * i + 1]);
    if (high < 0 || low < 0 || (i < 5 && text[3 * i + 2] != ':')) return std::nullopt;
    address.bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return address;
}

std::ostream& operator<<(std::ostream& out, const EthAddr& address) { return out << address.toString(); }
