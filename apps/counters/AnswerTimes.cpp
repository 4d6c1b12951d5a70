#include "apps/counters/AnswerTimes.h"

#include <cmath>
#include <numeric>

namespace Counters {

namespace {
constexpr bool bucketsMeet() {
  for (std::size_t bucket = 0; bucket + 1 < kBuckets; ++bucket) {
    if (bucketOf(lowestOf(bucket)) != bucket || bucketOf(lowestOf(bucket + 1) - 1) != bucket) return false;
  }
  return bucketOf(~std::uint64_t{0}) == kBuckets - 1;
}
static_assert(bucketsMeet());
}  // namespace

std::uint64_t countOf(const AnswerTimeCounts& times) {
  return std::accumulate(times.begin(), times.end(), std::uint64_t{0});
}

double sumOf(const AnswerTimeCounts& times) {
  double sum = 0;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    const auto ends = static_cast<double>(lowestOf(bucket) + lowestOf(bucket + 1));
    sum += static_cast<double>(times[bucket]) * ends / 2;
  }
  return sum;
}

std::uint64_t countBelow(const AnswerTimeCounts& times, std::uint64_t nanoseconds) {
  const auto end = times.begin() + static_cast<std::ptrdiff_t>(bucketOf(nanoseconds));
  return std::accumulate(times.begin(), end, std::uint64_t{0});
}

std::uint64_t quantile(const AnswerTimeCounts& times, double share) {
  const std::uint64_t count = countOf(times);
  if (count == 0) return 0;
  const double wanted = std::ceil(share * static_cast<double>(count));
  std::uint64_t found = 0;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    found += times[bucket];
    if (found != 0 && static_cast<double>(found) >= wanted) return lowestOf(bucket + 1);
  }
  return lowestOf(kBuckets);
}

AnswerTimeCounts since(const AnswerTimeCounts& before, const AnswerTimeCounts& times) {
  AnswerTimeCounts difference;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    difference[bucket] = times[bucket] - before[bucket];
  }
  return difference;
}

}  // namespace Counters
