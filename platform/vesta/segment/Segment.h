#pragma once

#include <sys/stat.h>

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "vesta/segment/Damage.h"
#include "vesta/segment/Layout.h"
#include "vesta/segment/SegmentGuard.h"

namespace Vesta {

enum class Access { writer, reader, passiveReader };

/// One mapped segment. The writer maps it for writing; readers map it read-only except for the readers' page,
/// passive readers read-only.
class Segment {
 public:
  /// Maps the file `descriptor`, whose size the caller has checked. The descriptor stays the caller's.
  Segment(int descriptor, const Layout& layout, Access access);
  /// A private copy of the file's words, zero where the file is too short: it can be read in full.
  static std::shared_ptr<Segment> copyOf(int descriptor, const Layout& layout);
  ~Segment();
  Segment(const Segment&) = delete;
  Segment& operator=(const Segment&) = delete;

  const Layout& layout() const noexcept { return layout_; }
  Word& at(std::size_t position) noexcept { return words_[position]; }
  const Word& at(std::size_t position) const noexcept { return words_[position]; }
  Word load(std::size_t position) const noexcept { return loadAcquire(words_[position]); }
  void store(std::size_t position, Word value) noexcept { storeRelease(words_[position], value); }

  /// Whether a part of it was found to be lost and now holds zeros that no other process sees. See
  /// installSegmentGuard.
  bool lostMemory() const noexcept { return guard_ && guard_->lostMemory(); }
  /// Whether this is the file that `status` describes.
  bool maps(const struct stat& status) const noexcept {
    return status.st_dev == device_ && status.st_ino == inode_;
  }
  /// False once it is retired and while its state word is damaged. In both cases the table may have another
  /// segment.
  bool live() const noexcept { return load(kStateAt) == kLive; }
  bool retired() const noexcept { return load(kStateAt) == kRetired; }
  /// As it was when the segment was mapped or formatted; later changes to the file do not count.
  const std::array<Word, kHeaderWords>& header() const noexcept { return header_; }
  Word firstSequence() const noexcept { return header_[kFirstSequenceAt]; }
  /// Differs from that of every other segment of the table; never 0.
  Word id() const noexcept { return header_[kSegmentIdAt]; }
  /// The value of a sealed word; throws SegmentCorruption naming `what` when the seal is broken.
  std::uint32_t unsealed(std::size_t position, const char* what) const {
    return unsealed(load(position), position, what);
  }
  /// The same for a word as read.
  static std::uint32_t unsealed(Word word, std::size_t position, const char* what) {
    if (!isSealed(word, position)) [[unlikely]]
      throwSeal(word, position, what);
    return static_cast<std::uint32_t>(word);
  }
  std::size_t members() const;

 private:
  friend void formatSegment(Segment& segment, Word firstSequence, Word id);
  explicit Segment(const Layout& layout);
  [[noreturn]] static void throwSeal(Word word, std::size_t position, const char* what);

  Layout layout_;
  Word* words_;
  std::optional<GuardedMapping> guard_;
  std::array<Word, kHeaderWords> header_{};
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

/// Fills a new segment's words: header, sealed empty indexes, sealed vacant slots, records of no change.
void formatSegment(Segment& segment, Word firstSequence, Word id);

/// What is wrong with a segment's header or size.
struct SegmentFault {
  enum class Kind {
    none,
    incompatible,  ///< intact, but of another layout version, fingerprint or shape
    damaged,
    damagedHeader,  ///< damaged, but provably a segment of this layout: intact rows can be kept
  };
  Kind kind = Kind::none;
  std::string text{};  ///< one line

  explicit operator bool() const noexcept { return kind != Kind::none; }
  bool damaged() const noexcept { return kind == Kind::damaged || kind == Kind::damagedHeader; }
  bool rowsUsable() const noexcept { return kind == Kind::damagedHeader; }
};
/// Compares a header, of kHeaderWords words, with that of a segment of this layout.
SegmentFault headerFault(const Word* words, const Layout& layout);

}  // namespace Vesta
