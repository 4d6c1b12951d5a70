// The layout of a segment; docs/segment_format.md draws it. One page for the header, which never
// changes after creation, one that only the writer writes, one that only readers write, then the two indexes,
// the shortcuts, the staging row, the slots and the change log. Offsets are in words of 8 bytes from the
// start of the segment.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>
#include <vector>

#include "vesta/segment/Words.h"

namespace Vesta {

constexpr std::uint32_t kMaxCapacity = 1u << 20;
constexpr unsigned kMaxReaders = 63;  ///< of one segment at a time

/// The words of a key.
using EncodedKey = std::vector<Word>;

/// What a segment and every process that attaches to it must agree on. Sizes in bytes.
struct Shape {
  std::uint32_t keySize = 0;
  std::uint32_t entrySize = 0;
  std::uint32_t capacity = 0;
  std::uint64_t fingerprint = 0;  ///< of the encodings' texts

  friend bool operator==(const Shape&, const Shape&) = default;
};

std::uint64_t fingerprintOf(std::string_view keyText, std::string_view entryText) noexcept;

constexpr std::uint32_t wordsFor(std::size_t bytes) {
  return static_cast<std::uint32_t>((bytes + sizeof(Word) - 1) / sizeof(Word));
}

constexpr std::size_t kPageWords = 512;
constexpr std::uint32_t kLineWords = 8;
constexpr std::uint32_t wholeLines(std::uint32_t words) {
  return (words + kLineWords - 1) / kLineWords * kLineWords;
}

// Header page.
enum HeaderWord : std::size_t {
  kMagicAt,
  kVersionAt,
  kFingerprintAt,
  kSizesAt,  // key size | entry size << 32
  kCapacityAt,
  kFirstSequenceAt,
  kSegmentIdAt,  // differs from that of every other segment of the table, never 0
  kFileSizeAt,
  kHeaderCheckAt,  // sealed checksum of the words before it
  kHeaderWords
};
constexpr Word kMagic = 0x31545345'564c4f54u;  // "TOLVEST1" in memory
constexpr Word kLayoutVersion = 5;

// Writer's page: one cache line each.
constexpr std::size_t kSequenceAt = kPageWords;                  // of the newest published change
constexpr std::size_t kMembersAt = kPageWords + 2 * kLineWords;  // sealed: rows
constexpr std::size_t kIndexAt = kPageWords + 4 * kLineWords;    // sealed: switches of the index << 1 | which
constexpr std::size_t kStateAt = kPageWords + 6 * kLineWords;    // kLive or kRetired
constexpr std::size_t kWriterProcessAt = kPageWords + 8 * kLineWords;  // sealed: pid, 0 when it detached
constexpr Word kLive = 0x6576696c'6576696cu;
constexpr Word kRetired = 0x64657269'74657221u;

// Readers' page: the line of sleepers, then one line for each reader.
constexpr std::size_t kSleepersAt = 2 * kPageWords;  // bit i: reader i sleeps; kDamageReported
constexpr Word kDamageReported = Word{1} << 63;
constexpr std::size_t readerLineAt(unsigned reader) { return kSleepersAt + kLineWords * (reader + 1); }
enum ReaderWord : std::size_t {
  kReaderIdentityAt,      // number of the attach << 32 | pid; 0 when free
  kReaderHandledAt,       // sequence up to which its handlers have returned
  kReaderHandledCheckAt,  // checkOf the word before
  kReaderNameCheckAt,     // checkOf the name, word by word
  kReaderNameAt,
  kReaderWords = kReaderNameAt + 4
};
static_assert(readerLineAt(kMaxReaders) == 3 * kPageWords && kReaderWords <= kLineWords);

constexpr std::size_t kTablesAt = 3 * kPageWords;

// The value of an index cell: state, tag (upper bits of the key's hash) and slot. A mark replaces a cell that
// was removed from the middle of a chain.
enum class CellState : std::uint32_t { empty = 0, mark = 1, used = 2 };
constexpr unsigned kSlotBits = 20;
static_assert(kMaxCapacity <= 1u << kSlotBits);
constexpr std::uint32_t usedCell(Word hash, std::uint32_t slot) {
  return 2u << 30 | static_cast<std::uint32_t>(hash >> 54) << kSlotBits | slot;
}
constexpr CellState cellState(std::uint32_t value) { return static_cast<CellState>(value >> 30); }
constexpr std::uint32_t cellSlot(std::uint32_t value) { return value & ((1u << kSlotBits) - 1); }
constexpr bool sameTag(std::uint32_t value, Word hash) {
  return (value >> kSlotBits & 1023) == static_cast<std::uint32_t>(hash >> 54);
}
constexpr std::uint32_t kEmptyCell = 0;
constexpr std::uint32_t kMarkCell = 1u << 30;

/// Sizes of a row, in words. Known to the compiler where the record types are, so that rows move without
/// loops.
template <class KeyWords, class RowWords>
struct BasicRowSizes {
  KeyWords keyWords;
  RowWords rowWords;  ///< key and entry

  constexpr std::uint32_t key() const { return keyWords; }
  constexpr std::uint32_t row() const { return rowWords; }
  /// A slot: the version, a checksum and the row, filled up to whole cache lines.
  constexpr std::uint32_t slot() const { return wholeLines(2 + row()); }
  /// A log record: sequence, slot and checksum, the key.
  constexpr std::uint32_t record() const { return 2 + key(); }
};
using RowSizes = BasicRowSizes<std::uint32_t, std::uint32_t>;
template <std::uint32_t KeyWords, std::uint32_t RowWords>
using FixedRowSizes = BasicRowSizes<std::integral_constant<std::uint32_t, KeyWords>,
                                    std::integral_constant<std::uint32_t, RowWords>>;

/// The sizes and positions that follow from a shape. Every process computes them from its own shape; they are
/// never read from a segment.
struct Layout {
  explicit Layout(const Shape& shape);

  std::size_t indexAt(unsigned which) const { return kTablesAt + which * std::size_t{cells}; }
  template <class Sizes>
  std::size_t slotAt(const Sizes& sizes, std::uint32_t slot) const {
    return slotsAt + slot * std::size_t{sizes.slot()};
  }
  std::size_t slotAt(std::uint32_t slot) const { return slotAt(sizes(), slot); }
  /// Word 0 of a record is sequence << 2 | written, word 1 slot << 32 | checksum; the key follows.
  std::size_t recordAt(Word sequence) const {
    return logAt + static_cast<std::size_t>(sequence & (records - 1)) * recordWords;
  }
  RowSizes sizes() const { return {keyWords, rowWords}; }
  std::size_t bytes() const { return words * sizeof(Word); }

  Shape shape;
  std::uint32_t keyWords;
  std::uint32_t rowWords;  // key and entry
  std::uint32_t cells;     // of each index; a power of two, at least twice the capacity
  std::uint32_t records;   // of the log; a power of two, at least twice the capacity
  std::uint32_t recordWords;
  std::size_t shortcutsAt;  // the current index's values once more, of 4 bytes each and without seals
  std::size_t stagingAt;    // a checksum and a row
  std::size_t slotsAt;
  std::size_t logAt;
  std::size_t words;
};

}  // namespace Vesta
