// Ordered access to the words of a segment, and the numbers they carry.
//
// A segment is an array of 64-bit words, its shortcuts one of 32-bit numbers. All that can change after
// creation is read and written word by word by the functions here, with release stores and acquire loads: a
// reader that gets one word of a newer row also sees that the slot's version has changed. There are no
// stand-alone fences, which the thread sanitizer does not know.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "cairn/Hash.h"

namespace Vesta {

using Word = std::uint64_t;

template <class Number>
Number loadAcquire(const Number& from) noexcept {
  return std::atomic_ref<Number>(const_cast<Number&>(from)).load(std::memory_order_acquire);
}
template <class Number>
void storeRelease(Number& to, std::type_identity_t<Number> value) noexcept {
  std::atomic_ref<Number>(to).store(value, std::memory_order_release);
}

// Change sequences count writes and removals in 62 bits and may wrap: they are compared by distance.

constexpr Word kSequenceMask = (Word{1} << 62) - 1;
constexpr Word nextSequence(Word sequence) { return (sequence + 1) & kSequenceMask; }
constexpr Word sequenceDistance(Word from, Word to) { return (to - from) & kSequenceMask; }
constexpr bool isAfter(Word a, Word b) { return static_cast<std::int64_t>((a - b) << 2) > 0; }

// The version of a slot: sequence of its last change, whether its row is still to be read from the staging
// row, whether it holds a row. Checksums are those of the version without kStaged, so that a row has the same
// one in both places.

constexpr Word kStaged = 2;
constexpr Word makeVersion(Word sequence, bool occupied) { return sequence << 2 | Word{occupied}; }
constexpr Word sequenceOf(Word version) { return version >> 2; }
constexpr bool isStaged(Word version) { return (version & kStaged) != 0; }
constexpr bool isOccupied(Word version) { return (version & 1) != 0; }

// A sealed word carries a 32-bit value and a check over the value and the word's position, so that a flipped
// bit, a zeroed word and a word from another position are all detected.

constexpr std::uint32_t sealOf(std::uint32_t value, std::size_t position) {
  const Word mixed = ((Word{position} << 32 | value) + 0x632be59bd9b4e019u) * 0x9e3779b97f4a7c15u;
  return static_cast<std::uint32_t>((mixed ^ (mixed << 13)) >> 32);
}
constexpr Word sealed(std::uint32_t value, std::size_t position) {
  return Word{sealOf(value, position)} << 32 | value;
}
constexpr bool isSealed(Word word, std::size_t position) {
  return static_cast<std::uint32_t>(word >> 32) == sealOf(static_cast<std::uint32_t>(word), position);
}

// The check of a word that uses all its bits is stored in another word.

constexpr Word checkOf(Word value, std::size_t position) {
  const Word mixed = (value ^ Word{position} << 48) * 0x9fb21c651e98df25u + 0x632be59bd9b4e019u;
  return mixed ^ mixed >> 32;
}

/// Calls `call` with 0 to count - 1: without a loop when the count is a compile-time constant of moderate
/// size.
template <class Count, class Call>
[[gnu::always_inline]] inline void eachWord(Count count, const Call& call) {
  if constexpr (requires { Count::value; }) {
    if constexpr (Count::value <= 32) {
      [&]<std::size_t... I>(std::index_sequence<I...>) __attribute__((always_inline)) { (call(I), ...); }
      (std::make_index_sequence<Count::value>());
      return;
    }
  }
  for (std::size_t i = 0; i < count; ++i) call(i);
}

/// The checksum that rows and log records carry: over `first` and the `count` words after it, which `next`
/// gives one by one, seeded with the slot.
template <class Count, class Next>
[[gnu::always_inline]] inline Word checksumOf(Word first, Count count, std::uint32_t slot, const Next& next) {
  if (Cairn::hasChecksumInstruction()) [[likely]] {
    Word crc = Cairn::checksumStep(static_cast<std::uint32_t>(~slot), first);
    eachWord(count, [&](std::size_t i) { crc = Cairn::checksumStep(crc, next(i)); });
    return static_cast<std::uint32_t>(~crc);
  }
  std::uint32_t crc = Cairn::checksum(&first, sizeof first, slot);
  eachWord(count, [&](std::size_t i) {
    const Word word = next(i);
    crc = Cairn::checksum(&word, sizeof word, crc);
  });
  return crc;
}
template <class Count>
[[gnu::always_inline]] inline Word checksumOf(const Word* row, Count count, std::uint32_t slot) {
  return checksumOf(row[0], count, slot, [row](std::size_t i) { return row[1 + i]; });
}

/// Hash of an encoded key. Every bit of every word counts: keys that agree in half of a word are common.
template <class Count>
inline Word hashOf(const Word* key, Count words) noexcept {
  Word hash = 0x9ae16a3b2f90404fu;
  eachWord(words, [&](std::size_t i) {
    hash = (hash ^ key[i]) * 0x9fb21c651e98df25u;
    hash ^= hash >> 35;
  });
  hash *= 0xd6e8feb86659fd93u;
  return hash ^ hash >> 32;
}

}  // namespace Vesta
