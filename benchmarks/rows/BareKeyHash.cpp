#include "benchmarks/rows/BareKeyHash.h"

#include <cstring>

#include "cairn/Hash.h"

namespace TolmarHwLib {

namespace {

using Cairn::Util::hashBlock;

template <class T>
std::uint32_t load(const std::byte* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return static_cast<std::uint32_t>(value);
}

class TunnelHash final : public BareKeyHash {
 public:
  std::uint32_t hash(const std::byte* row) const override {
    std::uint32_t h = hashBlock(0, Cairn::Util::hash(row + load<std::uint16_t>(row + 21), 4));
    h = hashBlock(h, Cairn::Util::hash(row + load<std::uint16_t>(row + 25), 4));
    h = hashBlock(h, load<std::uint8_t>(row + 29));
    h = hashBlock(h, load<std::uint16_t>(row + 30));
    return hashBlock(h, load<std::uint16_t>(row + 32));
  }
};

class StationHash final : public BareKeyHash {
 public:
  std::uint32_t hash(const std::byte* row) const override {
    std::uint32_t h = hashBlock(0, Cairn::Util::hash(row + 21, 6));
    h = hashBlock(h, load<std::uint16_t>(row + 27));
    h = hashBlock(h, load<std::uint8_t>(row + 29));
    h = hashBlock(h, load<std::uint8_t>(row + 30));
    h = hashBlock(h, Cairn::Util::hash(row + 31, 6));
    h = hashBlock(h, load<std::uint16_t>(row + 37));
    h = hashBlock(h, load<std::uint8_t>(row + 39));
    h = hashBlock(h, load<std::uint8_t>(row + 40));
    return hashBlock(h, load<std::uint32_t>(row + 41));
  }
};

class IifHash final : public BareKeyHash {
 public:
  std::uint32_t hash(const std::byte* row) const override {
    return hashBlock(0, load<std::uint64_t>(row + 21));
  }
};

}  // namespace

std::unique_ptr<BareKeyHash> bareKeyHash(std::string_view rowTypeName) {
  if (rowTypeName.find("Tunnel") != std::string_view::npos) return std::make_unique<TunnelHash>();
  if (rowTypeName.find("Station") != std::string_view::npos) return std::make_unique<StationHash>();
  return std::make_unique<IifHash>();
}

}  // namespace TolmarHwLib
