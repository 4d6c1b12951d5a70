#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

/// An IPv4 or IPv6 address with its family code: 1 IPv4, 2 IPv6, any other value unset. Address bytes are in
/// network order; bytes that the family does not use are zero. Unset addresses are equal to each other
/// whatever their code; unset orders before IPv4, IPv4 before IPv6, and within a family order is bytewise.
class IpGenAddr {
 public:
  static constexpr std::uint8_t kIpv4 = 1;
  static constexpr std::uint8_t kIpv6 = 2;

  constexpr IpGenAddr() = default;
  static constexpr IpGenAddr ipv4(const std::array<std::uint8_t, 4>& bytes) {
    return IpGenAddr(kIpv4, bytes.data(), 4);
  }
  static constexpr IpGenAddr ipv6(const std::array<std::uint8_t, 16>& bytes) {
    return IpGenAddr(kIpv6, bytes.data(), 16);
  }
  /// The address of `family` with the bytes at `bytes`; unset for a family other than IPv4 and IPv6.
  static constexpr IpGenAddr fromBytes(std::uint8_t family, const std::uint8_t* bytes) {
    return IpGenAddr(family, bytes, sizeOf(family));
  }

  constexpr std::uint8_t family() const { return family_; }
  constexpr bool isSet() const { return size() != 0; }
  /// Number of address bytes: 4, 16, or 0 when unset.
  constexpr std::uint8_t size() const { return sizeOf(family_); }
  constexpr const std::uint8_t* bytes() const { return bytes_.data(); }

  friend constexpr bool operator==(const IpGenAddr& a, const IpGenAddr& b) {
    return a.size() == b.size() && a.bytes_ == b.bytes_;
  }
  friend constexpr std::strong_ordering operator<=>(const IpGenAddr& a, const IpGenAddr& b) {
    const auto bySize = a.size() <=> b.size();
    return bySize != 0 ? bySize : a.bytes_ <=> b.bytes_;
  }

  /// inet_ntop's form; "" when unset.
  std::string toString() const;
  using Text = std::array<char, 46>;
  /// The same in `text`.
  std::string_view toText(Text& text) const noexcept;
  /// The address that `text` names in inet_pton's forms, or nothing; "" is the unset address.
  static std::optional<IpGenAddr> parse(std::string_view text);

 private:
  constexpr IpGenAddr(std::uint8_t family, const std::uint8_t* bytes, std::uint8_t size) : family_(family) {
    for (std::uint8_t i = 0; i < size; ++i) bytes_[i] = bytes[i];
  }
  static constexpr std::uint8_t sizeOf(std::uint8_t family) {
    return family == kIpv4 ? 4 : family == kIpv6 ? 16 : 0;
  }

  std::uint8_t family_ = 0;
  std::array<std::uint8_t, 16> bytes_{};
};

std::ostream& operator<<(std::ostream& out, const IpGenAddr& address);
