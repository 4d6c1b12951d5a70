// Times from a write to its answer, counted in buckets whose width grows with the time.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "apps/counters/Counter.h"

namespace Counters {

// A power of two has 16 buckets, so that a time is known to 1/16 of itself. Times in nanoseconds below 16
// have a bucket each; the last bucket takes what is longer than 2^42 ns, 73 minutes.
inline constexpr unsigned kSubBits = 4;
inline constexpr unsigned kMaxBits = 42;
inline constexpr std::size_t kBuckets = (kMaxBits - kSubBits + 1) << kSubBits;

constexpr std::size_t bucketOf(std::uint64_t nanoseconds) noexcept {
  const auto bits = static_cast<unsigned>(std::bit_width(nanoseconds));
  if (bits <= kSubBits) return static_cast<std::size_t>(nanoseconds);
  if (bits > kMaxBits) return kBuckets - 1;
  const unsigned shift = bits - kSubBits - 1;
  return (std::size_t{shift} << kSubBits) + static_cast<std::size_t>(nanoseconds >> shift);
}

/// The shortest time in a bucket; that of the one after is the end of it.
constexpr std::uint64_t lowestOf(std::size_t bucket) noexcept {
  if (bucket < (std::size_t{2} << kSubBits)) return bucket;
  const unsigned shift = static_cast<unsigned>(bucket >> kSubBits) - 1;
  return static_cast<std::uint64_t>(bucket - (std::size_t{shift} << kSubBits)) << shift;
}

template <class Word>
struct AnswerTimes {
  std::array<Word, kBuckets> buckets{};

  void add(std::uint64_t nanoseconds) noexcept requires std::same_as<Word, Counter> {
    buckets[bucketOf(nanoseconds)].add();
  }
};

/// Answer times as they were read.
using AnswerTimeCounts = std::array<std::uint64_t, kBuckets>;

/// All that are shorter than a bucket's end are counted in it or before it.
std::uint64_t countOf(const AnswerTimeCounts& times);
/// In nanoseconds, of the times' middles: known to a few percent.
double sumOf(const AnswerTimeCounts& times);
/// How many are shorter than a time, those of the bucket that the time is in left out.
std::uint64_t countBelow(const AnswerTimeCounts& times, std::uint64_t nanoseconds);
/// The time that `share` (0 to 1) of the answers have not exceeded: the end of its bucket; 0 without answers.
/// That of 1 is the maximum.
std::uint64_t quantile(const AnswerTimeCounts& times, double share);
/// What has come since `before`, which was read earlier from the same program's run.
AnswerTimeCounts since(const AnswerTimeCounts& before, const AnswerTimeCounts& times);

}  // namespace Counters
