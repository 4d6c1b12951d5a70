// Byte hash, block mixing and checksum.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>

namespace Cairn {

namespace Util {

/// 32-bit MurmurHash3 of `length` bytes, seed 0: blocks, tail and finalisation.
std::uint32_t hash(const void* bytes, std::size_t length) noexcept;

/// One block step of the 32-bit MurmurHash3: mixes `block` into `hash`.
constexpr std::uint32_t hashBlock(std::uint32_t hash, std::uint32_t block) noexcept {
  block *= 0xcc9e2d51u;
  block = std::rotl(block, 15);
  block *= 0x1b873593u;
  hash ^= block;
  hash = std::rotl(hash, 13);
  return hash * 5u + 0xe6546b64u;
}

}  // namespace Util

/// CRC-32C (Castagnoli) of `length` bytes, going on from `seed`; by the processor's own instruction where it
/// has one.
std::uint32_t checksum(const void* bytes, std::size_t length, std::uint32_t seed = 0) noexcept;

/// The same without that instruction.
std::uint32_t checksumByTable(const void* bytes, std::size_t length, std::uint32_t seed = 0) noexcept;

}  // namespace Cairn
