#include "vesta/segment/Segment.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <vector>

#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Vesta {

Segment::Segment(int descriptor, const Layout& layout, Access access) : layout_(layout) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) throw Cairn::SystemException("inspect segment", errno);
  device_ = status.st_dev;
  inode_ = status.st_ino;
  const int protection = access == Access::writer ? PROT_READ | PROT_WRITE : PROT_READ;
  void* memory = mmap(nullptr, layout_.bytes(), protection, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) {
    throw Cairn::SystemException("map segment of " + std::to_string(layout_.bytes()) + " bytes", errno);
  }
  words_ = static_cast<Word*>(memory);
  try {
    if (access == Access::reader &&
        mprotect(words_ + kSleepersAt, kPageWords * sizeof(Word), PROT_READ | PROT_WRITE) != 0) {
      throw Cairn::SystemException("open the readers' page of a segment for writing", errno);
    }
    guard_.emplace(words_, layout_.words, access == Access::writer);
  } catch (...) {
    munmap(memory, layout_.bytes());
    throw;
  }
  for (std::size_t i = 0; i < kHeaderWords; ++i) header_[i] = load(i);
}

Segment::Segment(const Layout& layout) : layout_(layout) {
  void* memory = mmap(nullptr, layout_.bytes(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw Cairn::SystemException("copy segment", errno);
  words_ = static_cast<Word*>(memory);
}

std::shared_ptr<Segment> Segment::copyOf(int descriptor, const Layout& layout) {
  const std::shared_ptr<Segment> copy(new Segment(layout));
  auto* const bytes = reinterpret_cast<char*>(copy->words_);
  for (std::size_t at = 0; at < layout.bytes();) {
    const ssize_t got = pread(descriptor, bytes + at, layout.bytes() - at, static_cast<off_t>(at));
    if (got < 0) throw Cairn::SystemException("copy segment", errno);
    if (got == 0) break;
    at += static_cast<std::size_t>(got);
  }
  return copy;
}

Segment::~Segment() {
  guard_.reset();
  munmap(words_, layout_.bytes());
}

void Segment::throwSeal(Word word, std::size_t position, const char* what) {
  throwCorruption(std::string(what) + " at word " + std::to_string(position) + ": found " + hexText(word) +
                      ", whose check would be " + hexText(sealOf(static_cast<std::uint32_t>(word), position)),
                  {DamagedPlace::word(position)});
}

std::size_t Segment::members() const {
  const std::uint32_t members = unsealed(kMembersAt, "member count");
  if (members > layout_.shape.capacity) {
    throwCorruption("member count: found " + std::to_string(members) + " of a capacity of " +
                    std::to_string(layout_.shape.capacity));
  }
  return members;
}

namespace {

std::uint32_t headerChecksum(const Word* words) {
  return Cairn::checksum(words, kHeaderCheckAt * sizeof(Word));
}

// The header words that every segment of this layout has.
void describe(const Layout& layout, Word* words) {
  words[kMagicAt] = kMagic;
  words[kVersionAt] = kLayoutVersion;
  words[kFingerprintAt] = layout.shape.fingerprint;
  words[kSizesAt] = Word{layout.shape.entrySize} << 32 | layout.shape.keySize;
  words[kCapacityAt] = layout.shape.capacity;
  words[kFileSizeAt] = layout.bytes();
}

}  // namespace

void formatSegment(Segment& segment, Word firstSequence, Word id) {
  const Layout& layout = segment.layout();
  Word* words = &segment.at(0);
  describe(layout, words);
  words[kFirstSequenceAt] = firstSequence;
  words[kSegmentIdAt] = id;
  words[kHeaderCheckAt] = sealed(headerChecksum(words), kHeaderCheckAt);
  std::copy_n(words, kHeaderWords, segment.header_.data());
  words[kSequenceAt] = firstSequence;
  words[kMembersAt] = sealed(0, kMembersAt);
  words[kIndexAt] = sealed(0, kIndexAt);
  words[kStateAt] = kLive;
  words[kWriterProcessAt] = sealed(0, kWriterProcessAt);
  for (std::size_t cell = kTablesAt; cell < layout.shortcutsAt; ++cell)
    words[cell] = sealed(kEmptyCell, cell);
  for (std::uint32_t i = 0; i < layout.records; ++i) {
    words[layout.recordAt(i)] = firstSequence << 2;  // no record yet that a change to come could be taken for
  }
  const Word vacant = makeVersion(firstSequence, false);
  std::vector<Word> row(1 + layout.rowWords);
  row[0] = vacant;
  for (std::uint32_t slot = 0; slot < layout.shape.capacity; ++slot) {
    words[layout.slotAt(slot)] = vacant;
    words[layout.slotAt(slot) + 1] = Cairn::checksum(row.data(), row.size() * sizeof(Word), slot);
  }
}

namespace {

// The first word that differs from those of this layout, as text; nothing when none does.
std::optional<std::string> difference(const Word* words, const Layout& layout) {
  constexpr struct {
    HeaderWord at;
    const char* name;
  } kFields[] = {{kVersionAt, "layout version"},
                 {kFingerprintAt, "fingerprint"},
                 {kSizesAt, "key and entry sizes"},
                 {kCapacityAt, "capacity"},
                 {kFileSizeAt, "size"}};
  std::array<Word, kHeaderWords> expected;
  describe(layout, expected.data());
  for (const auto& [at, name] : kFields) {
    if (words[at] == expected[at]) continue;
    const bool decimal = at == kCapacityAt || at == kFileSizeAt;
    const auto text = [decimal](Word value) { return decimal ? std::to_string(value) : hexText(value); };
    return std::string(name) + ": expected " + text(expected[at]) + ", found " + text(words[at]);
  }
  return std::nullopt;
}

}  // namespace

SegmentFault headerFault(const Word* words, const Layout& layout) {
  using Kind = SegmentFault::Kind;
  const std::optional<std::string> other = difference(words, layout);
  if (words[kMagicAt] != kMagic) {
    return {other ? Kind::damaged : Kind::damagedHeader,
            "header: expected magic " + hexText(kMagic) + ", found " + hexText(words[kMagicAt])};
  }
  const Word check = sealed(headerChecksum(words), kHeaderCheckAt);
  if (words[kHeaderCheckAt] == check) {
    return other ? SegmentFault{Kind::incompatible, *other} : SegmentFault{};
  }
  // Either the words that describe the layout are right, or the stored check fits once they are set right.
  std::array<Word, kHeaderWords> expected;
  std::copy_n(words, kHeaderWords, expected.data());
  describe(layout, expected.data());
  const bool fits = words[kHeaderCheckAt] == sealed(headerChecksum(expected.data()), kHeaderCheckAt);
  return {fits || !other ? Kind::damagedHeader : Kind::damaged,
          "header: checksum found " + hexText(words[kHeaderCheckAt]) + ", computed " + hexText(check)};
}

}  // namespace Vesta
