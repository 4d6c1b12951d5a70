#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

/// A 48-bit Ethernet MAC address, most significant byte first. Ordered bytewise.
struct EthAddr {
  std::array<std::uint8_t, 6> bytes{};

  friend constexpr bool operator==(const EthAddr&, const EthAddr&) = default;
  friend constexpr auto operator<=>(const EthAddr&, const EthAddr&) = default;

  /// Six pairs of hexadecimal digits joined by colons, in lower case: "00:00:5e:00:53:01".
  std::string toString() const;
  using Text = std::array<char, 17>;
  /// The same in `text`.
  std::string_view toText(Text& text) const noexcept;
  /// The address that `text` names in the form above (either case), or nothing.
  static std::optional<EthAddr> parse(std::string_view text);
};

std::ostream& operator<<(std::ostream& out, const EthAddr& address);
