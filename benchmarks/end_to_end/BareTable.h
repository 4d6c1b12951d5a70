// A table in shared memory with nothing around it: what moving rows between two processes costs at least.
//
//   word    states and who changes them
//   slot    current copy (bit 0) and generation (the rest); the writer alone
//   log     slot numbers in the order of their writes; the writer alone
//   written number of writes; the writer alone
//   asleep  1 set by the reader before it sleeps, cleared by the writer that wakes it
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "cairn/Hash.h"

namespace Yardstick {

inline constexpr std::size_t kRows = 8192;

template <std::size_t kRowBytes>
class BareTable {
 public:
  using Row = std::array<std::byte, kRowBytes>;

  /// Puts the row into its slot's other copy and makes that the current one. True when the reader has to be
  /// woken.
  bool write(std::uint32_t number, const Row& row) {
    Slot& slot = slots_[number];
    const std::uint64_t word = slot.word.load(std::memory_order_relaxed) + 1;
    Words words{};
    std::memcpy(words.data(), row.data(), kRowBytes);
    words[kWords - 1] |= std::uint64_t{check(word, number, row)} << 32;
    Copy& copy = slot.copies[word & 1];
    for (std::size_t i = 0; i < kWords; ++i) copy[i].store(words[i], std::memory_order_release);
    slot.word.store(word, std::memory_order_release);
    const std::uint64_t written = written_.load(std::memory_order_relaxed);
    log_[written % kLog].store(number, std::memory_order_relaxed);
    // Store, then load: against the reader, who stores `asleep` and then loads `written`.
    written_.store(written + 1, std::memory_order_seq_cst);
    return asleep_.load(std::memory_order_seq_cst) != 0 &&
           asleep_.exchange(0, std::memory_order_seq_cst) != 0;
  }

  /// Copies the row out; false when its check does not hold.
  bool read(std::uint32_t number, Row& row) const {
    const Slot& slot = slots_[number];
    for (;;) {
      const std::uint64_t word = slot.word.load(std::memory_order_acquire);
      const Copy& copy = slot.copies[word & 1];
      Words words;
      for (std::size_t i = 0; i < kWords; ++i) words[i] = copy[i].load(std::memory_order_acquire);
      if (slot.word.load(std::memory_order_relaxed) != word) continue;
      std::memcpy(row.data(), words.data(), kRowBytes);
      return words[kWords - 1] >> 32 == check(word, number, row);
    }
  }

  /// Calls `changed(slot number)` for every write since `seen`, which moves on.
  template <class Changed>
  void follow(std::uint64_t& seen, const Changed& changed) const {
    for (const std::uint64_t end = written_.load(std::memory_order_acquire); seen != end; ++seen) {
      changed(log_[seen % kLog].load(std::memory_order_relaxed));
    }
  }

  /// How many writes there have been.
  std::uint64_t written() const { return written_.load(std::memory_order_acquire); }

  /// Announces the reader's sleep; false when there is something to read after all.
  bool fallAsleep(std::uint64_t seen) {
    asleep_.store(1, std::memory_order_seq_cst);
    if (written_.load(std::memory_order_seq_cst) == seen) return true;
    asleep_.store(0, std::memory_order_relaxed);
    return false;
  }

 private:
  // The row and its check in eight-byte words; the check is the last word's upper half.
  static constexpr std::size_t kWords = (kRowBytes + 4 + 7) / 8;
  static constexpr std::size_t kLog = 4 * kRows;
  using Words = std::array<std::uint64_t, kWords>;
  using Copy = std::array<std::atomic<std::uint64_t>, kWords>;

  struct alignas(64) Slot {
    std::atomic<std::uint64_t> word{0};
    std::array<Copy, 2> copies{};
  };

  static std::uint32_t check(std::uint64_t word, std::uint32_t number, const Row& row) {
    const std::uint64_t place[] = {word, number};
    return Cairn::checksum(row.data(), kRowBytes, Cairn::checksum(place, sizeof place));
  }

  alignas(64) std::atomic<std::uint64_t> written_{0};
  alignas(64) std::atomic<std::uint32_t> asleep_{0};
  std::array<std::atomic<std::uint32_t>, kLog> log_{};
  std::array<Slot, kRows> slots_{};
};

}  // namespace Yardstick
