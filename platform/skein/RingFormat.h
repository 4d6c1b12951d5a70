// The file of a trace ring. All numbers are in the machine's byte order; a file is read on the machine that
// wrote it.
//
//   offset  bytes  what
//        0      8  magic "TOLTRACE"
//        8      4  layout version, 1
//       12      4  pid of the writer
//       16      8  bytes of the record area, a power of two
//       24      8  bytes of the site area
//       32     32  process name, filled up with zeros
//       64     32  anchor of the time when the process began to trace
//       96      4  CRC-32C of the 96 bytes before it
//      128      8  head: position after the last whole record
//      136      8  bytes used in the site area
//      192     64  two later anchors, written alternately
//     4096      .  site area: contiguous site records, never changed after they are written
//     4096+s    .  record area: the record at position p is at p modulo the area's size and may wrap
//
// Positions count bytes since the first record and never wrap. Each record begins with its own position, so
// that a reader finds the first record that is not overwritten. Bytes behind `head` belong to a record that
// the writer had not finished and are ignored. Only one thread of the writing process changes the file.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Braid {

inline constexpr char kMagic[8] = {'T', 'O', 'L', 'T', 'R', 'A', 'C', 'E'};
inline constexpr std::uint32_t kLayoutVersion = 1;
inline constexpr std::size_t kPageBytes = 4096;
inline constexpr std::size_t kSiteAreaBytes = 64 * 1024;
inline constexpr std::size_t kMinRingBytes = 16 * 1024;
inline constexpr std::size_t kMaxRingBytes = std::size_t{1} << 30;
/// A record is a multiple of 8 bytes and not longer than this; values that do not fit are truncated.
inline constexpr std::size_t kMaxRecordBytes = 2048;
inline constexpr std::size_t kRecordAlignment = 8;
/// The site of a record whose site did not fit the site area.
inline constexpr std::uint32_t kNoSite = 0xffffffff;

/// One point in time on three clocks. Two anchors give the length of a tick.
struct Anchor {
  std::uint64_t ticks;      ///< Braid::ticks(), the clock of records
  std::uint64_t monotonic;  ///< CLOCK_MONOTONIC_RAW in nanoseconds, the same for all processes
  std::uint64_t wall;       ///< CLOCK_REALTIME in nanoseconds
  std::uint64_t check;      ///< expectedCheck() of the three above

  constexpr std::uint64_t expectedCheck() const { return ~(ticks ^ (monotonic << 1) ^ (wall << 2)); }
};

struct Header {
  char magic[8];
  std::uint32_t version;
  std::uint32_t pid;
  std::uint64_t ringBytes;
  std::uint64_t siteBytes;
  char process[32];
  Anchor first;
  std::uint32_t checksum;
  std::uint8_t unused[28];
  std::uint64_t head;
  std::uint64_t sitesUsed;
  std::uint8_t unused2[48];
  Anchor later[2];
};
static_assert(offsetof(Header, checksum) == 96 && offsetof(Header, head) == 128 &&
              offsetof(Header, later) == 192);

/// One trace site. Followed by source, function and format, padded to 8 bytes. Its number is its offset in
/// the site area divided by 8, plus one.
struct SiteHeader {
  std::uint32_t checksum;  ///< CRC-32C of the rest of the site, texts included
  std::uint32_t line;
  std::uint16_t sourceBytes;
  std::uint16_t functionBytes;
  std::uint16_t formatBytes;
  std::uint16_t unused;
};
static_assert(sizeof(SiteHeader) == 16);

/// One message. Followed by its values, each a 16-bit length and that many bytes of text.
struct RecordHeader {
  std::uint64_t position;
  std::uint64_t ticks;
  std::uint32_t site;
  std::uint16_t bytes;       ///< of the whole record, padded to 8
  std::uint16_t valueBytes;  ///< of the values with their lengths
};
static_assert(sizeof(RecordHeader) == 24);

constexpr std::size_t alignedBytes(std::size_t bytes) {
  return (bytes + kRecordAlignment - 1) / kRecordAlignment * kRecordAlignment;
}

}  // namespace Braid
