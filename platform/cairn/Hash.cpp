#include "cairn/Hash.h"

#include <array>
#include <cstring>

#if defined(__x86_64__)
#include <nmmintrin.h>
#endif

namespace Cairn {

namespace {

constexpr std::array<std::uint32_t, 256> makeCastagnoliTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t crc = i;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1) ^ ((crc & 1u) != 0 ? 0x82f63b78u : 0u);
    }
    table[i] = crc;
  }
  return table;
}

constexpr auto kCastagnoliTable = makeCastagnoliTable();

#if defined(__x86_64__)
__attribute__((target("sse4.2"))) std::uint32_t checksumByInstruction(const unsigned char* bytes,
                                                                      std::size_t length,
                                                                      std::uint32_t crc) noexcept {
  std::uint64_t wide = crc;
  for (; length >= 8; length -= 8, bytes += 8) {
    std::uint64_t word;
    std::memcpy(&word, bytes, sizeof word);
    wide = _mm_crc32_u64(wide, word);
  }
  crc = static_cast<std::uint32_t>(wide);
  for (; length > 0; --length, ++bytes) {
    crc = _mm_crc32_u8(crc, *bytes);
  }
  return crc;
}
#endif

}  // namespace

std::uint32_t Util::hash(const void* bytes, std::size_t length) noexcept {
  const auto* data = static_cast<const unsigned char*>(bytes);
  std::uint32_t h = 0;
  std::size_t rest = length;
  for (; rest >= 4; rest -= 4, data += 4) {
    std::uint32_t block;
    std::memcpy(&block, data, sizeof block);
    h = hashBlock(h, block);
  }
  std::uint32_t tail = 0;
  for (std::size_t i = 0; i < rest; ++i) {
    tail |= static_cast<std::uint32_t>(data[i]) << (8 * i);
  }
  tail *= 0xcc9e2d51u;
  tail = std::rotl(tail, 15);
  tail *= 0x1b873593u;
  h ^= tail;
  h ^= static_cast<std::uint32_t>(length);
  h = (h ^ (h >> 16)) * 0x85ebca6bu;
  h = (h ^ (h >> 13)) * 0xc2b2ae35u;
  return h ^ (h >> 16);
}

std::uint32_t checksumByTable(const void* bytes, std::size_t length, std::uint32_t seed) noexcept {
  const auto* data = static_cast<const unsigned char*>(bytes);
  std::uint32_t crc = ~seed;
  for (; length > 0; --length, ++data) {
    crc = (crc >> 8) ^ kCastagnoliTable[(crc ^ *data) & 0xffu];
  }
  return ~crc;
}

std::uint32_t checksum(const void* bytes, std::size_t length, std::uint32_t seed) noexcept {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("sse4.2")) {
    return ~checksumByInstruction(static_cast<const unsigned char*>(bytes), length, ~seed);
  }
#endif
  return checksumByTable(bytes, length, seed);
}

}  // namespace Cairn
