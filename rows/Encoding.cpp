#include "rows/Encoding.h"

#include "cairn/Assert.h"

namespace Lumen {

namespace {

constexpr std::size_t kIpv4Size = 4;
constexpr std::size_t kIpv6Size = 16;

}  // namespace

std::span<const std::byte> Encoding<IpGenAddr>::addressBytes(RowBytes row, len_t offset) {
  const auto slot = loadBytes<VarSlot>(row.data + offset);
  if (slot.length() == 0) return {};
  Cairn::require(slotInRow(row, slot), "address slot inside the row", "getColumn");
  if (slot.length() != kIpv4Size && slot.length() != kIpv6Size) return {};
  return {row.data + slot.offset, slot.length()};
}

IpGenAddr Encoding<IpGenAddr>::load(RowBytes row, len_t offset) {
  const auto bytes = addressBytes(row, offset);
  if (bytes.empty()) return {};
  const auto family = bytes.size() == kIpv4Size ? IpGenAddr::kIpv4 : IpGenAddr::kIpv6;
  return IpGenAddr::fromBytes(family, reinterpret_cast<const std::uint8_t*>(bytes.data()));
}

std::uint32_t Encoding<IpGenAddr>::hash(RowBytes row, len_t offset) {
  const auto bytes = addressBytes(row, offset);
  return bytes.empty() ? 0 : Cairn::Util::hash(bytes.data(), bytes.size());
}

bool Encoding<IpGenAddr>::equal(RowBytes a, len_t at, RowBytes b, len_t bt) {
  return compare(a, at, b, bt) == 0;
}

std::strong_ordering Encoding<IpGenAddr>::compare(RowBytes a, len_t at, RowBytes b, len_t bt) {
  const auto left = addressBytes(a, at);
  const auto right = addressBytes(b, bt);
  if (left.size() != right.size() || left.empty()) return left.size() <=> right.size();
  return std::memcmp(left.data(), right.data(), left.size()) <=> 0;
}

}  // namespace Lumen
