#include "skein/Ring.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstring>

#include "cairn/Descriptor.h"
#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Braid {

namespace {

constexpr std::uint64_t kFirstAnchorGap = std::uint64_t{1} << 16;
constexpr std::uint64_t kLastAnchorGap = std::uint64_t{1} << 30;

std::uint64_t nanoseconds(clockid_t clock) noexcept {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000u + static_cast<std::uint64_t>(now.tv_nsec);
}

// The process may be interrupted between two readings: the closest of a few pairs is used.
Anchor anchorNow() noexcept {
  Anchor anchor{};
  std::uint64_t closest = ~std::uint64_t{0};
  for (int attempt = 0; attempt < 4; ++attempt) {
    const std::uint64_t before = ticks();
    const std::uint64_t monotonic = nanoseconds(CLOCK_MONOTONIC_RAW);
    const std::uint64_t gap = ticks() - before;
    if (gap < closest) {
      closest = gap;
      anchor.ticks = before + gap / 2;
      anchor.monotonic = monotonic;
      anchor.wall = nanoseconds(CLOCK_REALTIME);
    }
  }
  anchor.check = anchor.expectedCheck();
  return anchor;
}

std::size_t checkedSize(std::size_t bytes) {
  if (bytes < kMinRingBytes || bytes > kMaxRingBytes) {
    throw Cairn::Exception("trace ring of " + std::to_string(bytes) + " bytes: expected " +
                           std::to_string(kMinRingBytes) + " to " + std::to_string(kMaxRingBytes));
  }
  return std::bit_ceil(bytes);
}

void reserve(int file, std::size_t bytes, const std::string& what) {
  // Without reserved blocks, a full file system would be a signal at the first access.
  const int error = posix_fallocate(file, 0, static_cast<off_t>(bytes));
  if (error != 0) throw Cairn::SystemException(what, error);
}

char* mapOrThrow(void* at, std::size_t bytes, int protection, int flags, int file, std::size_t offset) {
  void* const mapped = mmap(at, bytes, protection, flags, file, static_cast<off_t>(offset));
  if (mapped == MAP_FAILED) throw Cairn::SystemException("mmap of a trace ring", errno);
  return static_cast<char*>(mapped);
}

constexpr std::size_t kRecordsOffset = kPageBytes + kSiteAreaBytes;

}  // namespace

std::unique_ptr<Ring> Ring::makePrivate(std::size_t bytes) {
  const std::size_t size = checkedSize(bytes);
  const Cairn::Descriptor file(memfd_create("trace", MFD_CLOEXEC));
  if (!file) throw Cairn::SystemException("memfd_create", errno);
  reserve(file.get(), kRecordsOffset + size, "reserve a trace ring in memory");
  return std::unique_ptr<Ring>(new Ring(file.get(), size));
}

std::unique_ptr<Ring> Ring::makeFile(const std::string& path, std::size_t bytes) {
  const std::size_t size = checkedSize(bytes);
  // The ring is completed under another name, so that `path` never names an unfinished one.
  const std::string unfinished = path + ".new." + std::to_string(getpid());
  const Cairn::Descriptor file(
      open(unfinished.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file) throw Cairn::SystemException("create trace ring " + unfinished, errno);
  try {
    reserve(file.get(), kRecordsOffset + size, "reserve trace ring " + path);
    std::unique_ptr<Ring> ring(new Ring(file.get(), size));
    if (rename(path.c_str(), (path + ".old").c_str()) != 0 && errno != ENOENT) {
      throw Cairn::SystemException("keep earlier trace ring " + path, errno);
    }
    if (rename(unfinished.c_str(), path.c_str()) != 0) {
      throw Cairn::SystemException("name trace ring " + path, errno);
    }
    return ring;
  } catch (...) {
    unlink(unfinished.c_str());
    throw;
  }
}

Ring::Ring(int file, std::size_t bytes) : mask_(bytes - 1), anchorGap_(kFirstAnchorGap) {
  constexpr int kAccess = PROT_READ | PROT_WRITE;
  char* const base =
      mapOrThrow(nullptr, kRecordsOffset + 2 * bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  try {
    mapOrThrow(base, kRecordsOffset + bytes, kAccess, MAP_SHARED | MAP_FIXED, file, 0);
    mapOrThrow(base + kRecordsOffset + bytes, bytes, kAccess, MAP_SHARED | MAP_FIXED, file, kRecordsOffset);
  } catch (...) {
    munmap(base, kRecordsOffset + 2 * bytes);
    throw;
  }
  header_ = reinterpret_cast<Header*>(base);
  sites_ = base + kPageBytes;
  records_ = base + kRecordsOffset;
  std::memcpy(header_->magic, kMagic, sizeof kMagic);
  header_->version = kLayoutVersion;
  header_->pid = static_cast<std::uint32_t>(getpid());
  header_->ringBytes = bytes;
  header_->siteBytes = kSiteAreaBytes;
  std::snprintf(header_->process, sizeof header_->process, "%s", program_invocation_short_name);
  header_->first = anchorNow();
  header_->later[0] = header_->first;
  header_->checksum = Cairn::checksum(header_, offsetof(Header, checksum));
  nextAnchor_ = header_->first.ticks + anchorGap_;
}

Ring::~Ring() { munmap(header_, kRecordsOffset + 2 * (mask_ + 1)); }

// The gap doubles up to about half a second. No record is then later than the last anchor by more than half
// of the time between first and last anchor, so that the error of its time stays about that of reading the
// clocks.
void Ring::anchorIs(std::uint64_t ticks) noexcept {
  header_->later[++anchors_ % 2] = anchorNow();
  anchorGap_ = std::min(2 * anchorGap_, kLastAnchorGap);
  nextAnchor_ = ticks + anchorGap_;
}

std::uint32_t Ring::site(std::string_view source, std::uint32_t line, std::string_view function,
                         std::string_view format) noexcept {
  const auto cut = [](std::string_view& text) {
    text = text.substr(0, 1024);
    return static_cast<std::uint16_t>(text.size());
  };
  SiteHeader header{0, line, cut(source), cut(function), cut(format), 0};
  char texts[3 * 1024];
  char* end = texts;
  for (const std::string_view text : {source, function, format})
    end = std::copy(text.begin(), text.end(), end);
  const auto textBytes = static_cast<std::size_t>(end - texts);
  constexpr std::size_t kUnchecked = sizeof header.checksum;
  header.checksum =
      Cairn::checksum(reinterpret_cast<const char*>(&header) + kUnchecked, sizeof header - kUnchecked);
  header.checksum = Cairn::checksum(texts, textBytes, header.checksum);

  const std::size_t used = header_->sitesUsed;
  for (std::size_t at = 0; at < used;) {  // a library that is loaded again has the same sites
    SiteHeader known;
    std::memcpy(&known, sites_ + at, sizeof known);
    if (std::memcmp(&known, &header, sizeof known) == 0 &&
        std::memcmp(sites_ + at + sizeof known, texts, textBytes) == 0) {
      return static_cast<std::uint32_t>(at / kRecordAlignment + 1);
    }
    const std::size_t knownText = std::size_t{known.sourceBytes} + known.functionBytes + known.formatBytes;
    at += alignedBytes(sizeof known + knownText);
  }
  const std::size_t bytes = alignedBytes(sizeof header + textBytes);
  if (bytes > kSiteAreaBytes - used) return kNoSite;
  std::memcpy(sites_ + used, &header, sizeof header);
  std::memcpy(sites_ + used + sizeof header, texts, textBytes);
  std::atomic_ref(header_->sitesUsed).store(used + bytes, std::memory_order_release);
  return static_cast<std::uint32_t>(used / kRecordAlignment + 1);
}

void Ring::takeSites(const Ring& other) noexcept {
  const std::uint64_t used = std::atomic_ref(other.header_->sitesUsed).load(std::memory_order_acquire);
  std::memcpy(sites_, other.sites_, used);
  std::atomic_ref(header_->sitesUsed).store(used, std::memory_order_release);
}

void Ring::takeRecords(const Ring& other) noexcept {
  const std::uint64_t kept = std::min({other.head_, other.mask_ + 1, mask_ + 1});
  const std::uint64_t from =
      other.head_ - kept;  // records keep their positions, not their places in the area
  std::memcpy(records_ + (from & mask_), other.records_ + (from & other.mask_), kept);
  header_->first = other.header_->first;
  header_->checksum = Cairn::checksum(header_, offsetof(Header, checksum));
  head_ = other.head_;
  std::atomic_ref(header_->head).store(head_, std::memory_order_release);
}

}  // namespace Braid
