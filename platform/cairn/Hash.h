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

/// CRC-32C (Castagnoli) of `length` bytes, continued from `seed`; uses the processor's instruction if there
/// is one.
std::uint32_t checksum(const void* bytes, std::size_t length, std::uint32_t seed = 0) noexcept;

/// The same without that instruction.
std::uint32_t checksumByTable(const void* bytes, std::size_t length, std::uint32_t seed = 0) noexcept;

/// One step of the checksum by the processor's instruction, inline for callers to whom a call would be a
/// considerable part of the cost. Only if hasChecksumInstruction(). `crc` starts as the complement of the
/// seed and ends as the complement of the checksum.
#if defined(__x86_64__)
inline bool hasChecksumInstruction() noexcept { return __builtin_cpu_supports("sse4.2"); }
[[gnu::always_inline]] inline std::uint64_t checksumStep(std::uint64_t crc, std::uint64_t word) noexcept {
  // The intrinsic would require every caller to be compiled for processors that have the instruction.
  __asm__("crc32q %1, %0" : "+r"(crc) : "rm"(word));
  return crc;
}
#else
constexpr bool hasChecksumInstruction() noexcept { return false; }
constexpr std::uint64_t checksumStep(std::uint64_t crc, std::uint64_t) noexcept { return crc; }
#endif

}  // namespace Cairn
