// Values as they are written in scripts and on command lines, and as they travel.
#pragma once

#include <string>
#include <string_view>

namespace Client {

/// How the values of a field are printed.
enum class Format { number, boolean, mac, ipv4, ipv6 };

/// The bytes of a value, most significant first, without leading zeros: of a decimal or 0x number of any
/// size, and, in a field of so many bits, of true or false (1), a MAC address (48), an IPv4 (32) or IPv6
/// address (128). "" is the empty value; it is the server that refuses what does not fit. Throws
/// Cairn::Exception saying what was expected and what came.
std::string bytesOf(std::string_view text, unsigned bits);

/// The text from which bytesOf makes the same value.
std::string textOf(std::string_view bytes, Format format);

/// The text of `number` in a field of that width and format, cut to the width. Addresses count from 10.0.0.0,
/// 2001:db8:: and 02:00:00:00:00:00.
std::string generated(std::uint64_t number, unsigned bits, Format format);

}  // namespace Client
