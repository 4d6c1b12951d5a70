// The yardstick of the key hashes: the block steps over the key columns at their known places, and nothing
// else, behind a virtual call like that of the row operations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace TolmarHwLib {

class BareKeyHash {
 public:
  virtual ~BareKeyHash() = default;
  virtual std::uint32_t hash(const std::byte* row) const = 0;
};

/// For the config row of that type name; IPv4 addresses in the tunnel's key.
std::unique_ptr<BareKeyHash> bareKeyHash(std::string_view rowTypeName);

}  // namespace TolmarHwLib
