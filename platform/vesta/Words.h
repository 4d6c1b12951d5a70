// Ordered access to the words of a segment, and the numbers they carry.
//
// A segment is an array of 64-bit words, and every word that can change after creation is read and written
// whole, by the functions here. There are no stand-alone fences: the thread sanitizer does not know them, and
// none is needed. Rows travel by release stores and acquire loads word by word, so that whoever has seen one
// word of a newer row also sees that the slot's version has moved.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Vesta {

using Word = std::uint64_t;

inline Word loadAcquire(const Word& word) noexcept {
  return std::atomic_ref<Word>(const_cast<Word&>(word)).load(std::memory_order_acquire);
}
inline void storeRelease(Word& word, Word value) noexcept {
  std::atomic_ref<Word>(word).store(value, std::memory_order_release);
}

// Change sequences count writes and removals in 62 bits and may wrap: they are compared by distance.

constexpr Word kSequenceMask = (Word{1} << 62) - 1;
constexpr Word nextSequence(Word sequence) { return (sequence + 1) & kSequenceMask; }
constexpr Word sequenceDistance(Word from, Word to) { return (to - from) & kSequenceMask; }
constexpr bool isAfter(Word a, Word b) { return static_cast<std::int64_t>((a - b) << 2) > 0; }

// The version of a slot: sequence of its last change, which of its two copies is current, whether it holds a
// row. Two versions of one slot that follow each other differ in at least two bits: the copy and the
// sequence.

constexpr Word makeVersion(Word sequence, unsigned copy, bool occupied) {
  return sequence << 2 | Word{copy} << 1 | Word{occupied};
}
constexpr Word sequenceOf(Word version) { return version >> 2; }
constexpr unsigned copyOf(Word version) { return static_cast<unsigned>(version >> 1) & 1; }
constexpr bool isOccupied(Word version) { return (version & 1) != 0; }

// A sealed word carries a 32-bit value and a check over the value and the word's own position, so that a
// flipped bit, a zeroed word and a word from elsewhere are all seen.

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

/// Hash of an encoded key. Every bit of every word counts: keys that agree in half of a word are common.
inline Word hashOf(const Word* key, std::size_t words) noexcept {
  Word hash = 0x9ae16a3b2f90404fu;
  for (std::size_t i = 0; i < words; ++i) {
    hash = (hash ^ key[i]) * 0x9fb21c651e98df25u;
    hash ^= hash >> 35;
  }
  hash *= 0xd6e8feb86659fd93u;
  return hash ^ hash >> 32;
}

}  // namespace Vesta
