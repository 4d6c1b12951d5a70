#include "apps/client/Values.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <optional>

#include "cairn/EthAddr.h"
#include "cairn/Exception.h"
#include "cairn/IpGenAddr.h"

namespace Client {

namespace {

constexpr std::size_t kLongest = 200;  // digits; far wider than any field

std::string shortest(std::string bytes) {
  bytes.erase(0, std::min(bytes.find_first_not_of('\0'), bytes.size() - 1));
  return bytes;
}

template <class Bytes>
std::string asText(const Bytes* bytes, std::size_t count) {
  return {reinterpret_cast<const char*>(bytes), count};
}

/// `bytes` * base + digit
void append(std::string& bytes, unsigned base, unsigned digit) {
  unsigned carry = digit;
  for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) {
    const unsigned value = static_cast<unsigned char>(*byte) * base + carry;
    *byte = static_cast<char>(value & 0xff);
    carry = value >> 8;
  }
  if (carry != 0) bytes.insert(bytes.begin(), static_cast<char>(carry));
}

std::optional<std::string> numberOf(std::string_view text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  if (text.empty() || text.size() > kLongest) return std::nullopt;
  std::string bytes(1, '\0');
  for (const char& c : text) {
    unsigned digit = 0;
    if (std::from_chars(&c, &c + 1, digit, isHex ? 16 : 10).ptr == &c) return std::nullopt;
    append(bytes, isHex ? 16 : 10, digit);
  }
  return shortest(bytes);
}

std::optional<std::string> addressOf(std::string_view text, unsigned bits) {
  if (bits == 48) {
    if (const auto mac = EthAddr::parse(text)) return asText(mac->bytes.data(), mac->bytes.size());
  } else if (bits == 32 || bits == 128) {
    const auto address = IpGenAddr::parse(text);
    if (address && address->size() * 8u == bits) return asText(address->bytes(), address->size());
  }
  return std::nullopt;
}

std::string expectedOf(unsigned bits) {
  const std::string number = "a decimal or 0x number";
  if (bits == 1) return "true, false or a number";
  if (bits == 48) return number + " or a MAC address like 00:00:5e:00:53:01";
  if (bits == 32) return number + " or an IPv4 address like 192.0.2.1";
  if (bits == 128) return number + " or an IPv6 address like 2001:db8::1";
  return number;
}

template <std::size_t size>
std::optional<std::array<std::uint8_t, size>> widened(std::string_view bytes) {
  if (bytes.size() > size) return std::nullopt;
  std::array<std::uint8_t, size> all{};
  std::memcpy(all.data() + size - bytes.size(), bytes.data(), bytes.size());
  return all;
}

std::string numberText(std::string_view bytes) {
  if (bytes.empty()) return "";
  if (bytes.size() <= 8) {
    std::uint64_t number = 0;
    for (const char byte : bytes) number = number << 8 | static_cast<unsigned char>(byte);
    return std::to_string(number);
  }
  std::string text = "0x";
  for (const char byte : bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    text += kDigits[static_cast<unsigned char>(byte) >> 4];
    text += kDigits[static_cast<unsigned char>(byte) & 0xf];
  }
  return text;
}

}  // namespace

std::string bytesOf(std::string_view text, unsigned bits) {
  if (text.empty()) return "";
  if (bits == 1 && text == "true") return "\1";
  if (bits == 1 && text == "false") return std::string(1, '\0');
  if (auto number = numberOf(text)) return *number;
  if (const auto address = addressOf(text, bits)) return shortest(*address);
  throw Cairn::Exception("expected " + expectedOf(bits) + ", got \"" + std::string(text) + "\"");
}

std::string textOf(std::string_view bytes, Format format) {
  if (bytes.empty()) return "";
  if (format == Format::boolean && bytes.size() == 1 && bytes[0] <= 1)
    return bytes[0] == 1 ? "true" : "false";
  if (format == Format::mac) {
    if (const auto all = widened<6>(bytes)) return EthAddr{*all}.toString();
  } else if (format == Format::ipv4) {
    if (const auto all = widened<4>(bytes)) return IpGenAddr::ipv4(*all).toString();
  } else if (format == Format::ipv6) {
    if (const auto all = widened<16>(bytes)) return IpGenAddr::ipv6(*all).toString();
  }
  return numberText(bytes);
}

std::string generated(std::uint64_t number, unsigned bits, Format format) {
  if (bits < 64) number &= (std::uint64_t{1} << bits) - 1;
  std::string bytes;
  if (format == Format::mac) bytes = asText("\2\0\0\0\0", 6);
  if (format == Format::ipv4) bytes = asText("\12\0\0", 4);
  if (format == Format::ipv6) bytes = asText("\x20\1\xd\xb8\0\0\0\0\0\0\0\0\0\0\0", 16);
  if (bytes.empty()) bytes.resize(8);
  for (std::size_t i = bytes.size(); number != 0 && i-- > 0; number >>= 8) {
    const unsigned sum = static_cast<unsigned char>(bytes[i]) + static_cast<unsigned>(number & 0xff);
    bytes[i] = static_cast<char>(sum & 0xff);
    if (sum > 0xff) number += 0x100;
  }
  return textOf(shortest(bytes), format);
}

}  // namespace Client
