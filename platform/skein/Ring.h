// A byte ring in a mapped file, which outlives the process that writes it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "skein/RingFormat.h"

namespace Braid {

/// The writing side of one ring (RingFormat.h).
///
/// Thread safety: one thread writes. Readers are other processes, or this one through the file.
/// Invariant: the bytes before head are complete records. The record area is mapped twice, one mapping behind
/// the other, so that no record has to be split.
class Ring {
 public:
  /// A ring without a file, which ends with the process. `bytes` and errors as below.
  static std::unique_ptr<Ring> makePrivate(std::size_t bytes);
  /// A ring in a new file `path`, mode 0600. An existing file is renamed to `path`.old, replacing an older
  /// one. `bytes` (kMinRingBytes to kMaxRingBytes) is rounded up to a power of two; its disk space is
  /// reserved. Throws Cairn::SystemException or, for a size out of range, Cairn::Exception, and leaves no
  /// file behind.
  static std::unique_ptr<Ring> makeFile(const std::string& path, std::size_t bytes);
  ~Ring();
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  /// The place of the next record: room for kMaxRecordBytes.
  char* room() noexcept { return records_ + (head_ & mask_); }
  std::uint64_t head() const noexcept { return head_; }
  /// Adds the record of `bytes` at room() to the ring. `ticks` is its time.
  void publish(std::size_t bytes, std::uint64_t ticks) noexcept {
    head_ += bytes;
    // Release, pairs with a reader's load of the head: a reader that sees this head sees the record.
    std::atomic_ref(header_->head).store(head_, std::memory_order_release);
    if (ticks >= nextAnchor_) [[unlikely]]
      anchorIs(ticks);
  }

  /// The number of the site with these texts; a new site is written to the file. kNoSite if the site area is
  /// full.
  std::uint32_t site(std::string_view source, std::uint32_t line, std::string_view function,
                     std::string_view format) noexcept;

  /// Copies the sites of `other`, which keep their numbers, and as many of its latest records as there is
  /// room for.
  void takeSites(const Ring& other) noexcept;
  void takeRecords(const Ring& other) noexcept;

 private:
  Ring(int file, std::size_t bytes);
  void anchorIs(std::uint64_t ticks) noexcept;

  std::uint64_t head_ = 0;
  std::uint64_t mask_;
  char* records_ = nullptr;
  Header* header_ = nullptr;
  char* sites_ = nullptr;
  std::uint64_t nextAnchor_ = 0;
  std::uint64_t anchorGap_ = 0;
  unsigned anchors_ = 0;
};

/// The clock of records: the processor's time-stamp counter if there is one, else nanoseconds of
/// CLOCK_MONOTONIC_RAW.
std::uint64_t ticks() noexcept;

}  // namespace Braid

#if defined(__x86_64__)
#include <x86intrin.h>
inline std::uint64_t Braid::ticks() noexcept { return __rdtsc(); }
#else
#include <time.h>
inline std::uint64_t Braid::ticks() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_RAW, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<std::uint64_t>(now.tv_nsec);
}
#endif
