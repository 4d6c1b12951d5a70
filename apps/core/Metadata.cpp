#include "apps/core/Metadata.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <utility>

#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Agent {

namespace {

constexpr std::uint64_t kMagic = 0x415441444154454d;  // "METADATA" in memory
constexpr std::uint64_t kLayoutVersion = 1;
constexpr std::size_t kHeaderBytes = 4096;
constexpr std::size_t kHeadWords = 3;  // of a slot
constexpr std::size_t kWord = sizeof(std::uint64_t);

using Header = std::array<std::uint64_t, 5>;

Header headerOf(std::size_t slots, std::size_t slotBytes) {
  Header header{kMagic, kLayoutVersion, slots, slotBytes, 0};
  header[4] = Cairn::checksum(header.data(), 4 * kWord);
  return header;
}

std::uint32_t hashOf(std::uint64_t handle, std::uint64_t genId) noexcept {
  const std::uint64_t mixed = (handle ^ genId << 1) * 0x9e3779b97f4a7c15u;
  return static_cast<std::uint32_t>(mixed >> 32);
}

/// Of handle, genId and the bytes.
std::uint32_t checkOf(const std::uint64_t* slot, std::size_t length) {
  return Cairn::checksum(slot + kHeadWords, length, Cairn::checksum(slot, 2 * kWord));
}

std::size_t lengthOf(const std::uint64_t* slot) { return slot[2] & 0xffffffff; }

bool holdsRecord(const std::uint64_t* slot, std::size_t slotBytes) {
  return slot[0] != 0 && lengthOf(slot) <= slotBytes - kHeadWords * kWord &&
         slot[2] >> 32 == checkOf(slot, lengthOf(slot));
}

std::size_t sizeOf(int file, const std::string& path) {
  struct stat status {};
  if (::fstat(file, &status) != 0) throw Cairn::SystemException("open " + path, errno);
  return static_cast<std::size_t>(status.st_size);
}

/// Of a file of any capacity; nothing for one that is damaged.
std::optional<Header> headerIn(int file, std::size_t size) {
  Header found{};
  const bool isIntact = ::pread(file, found.data(), sizeof found, 0) == sizeof found &&
                        found == headerOf(found[2], found[3]) && found[3] > kHeadWords * kWord &&
                        size == kHeaderBytes + found[2] * found[3];
  return isIntact ? std::optional(found) : std::nullopt;
}

/// Calls `visit(slot)` for each record, by reads: a mapping would give the holes of the file pages.
template <class Visit>
void eachRecordIn(int file, const Header& header, const Visit& visit) {
  const std::size_t slotBytes = header[3];
  std::vector<std::uint64_t> words(slotBytes / kWord);
  for (std::size_t slot = 0; slot < header[2]; ++slot) {
    const auto at = static_cast<off_t>(kHeaderBytes + slot * slotBytes);
    if (::pread(file, words.data(), kHeadWords * kWord, at) < 0 || words[0] == 0) continue;
    if (::pread(file, words.data(), slotBytes, at) != static_cast<ssize_t>(slotBytes)) continue;
    if (holdsRecord(words.data(), slotBytes)) visit(words.data());
  }
}

}  // namespace

Metadata::Metadata(std::string path, Capacity capacity) : path_(std::move(path)), capacity_(capacity) {
  file_ = Cairn::Descriptor(::open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file_) throw Cairn::SystemException("open " + path_, errno);
  const std::size_t size = sizeOf(file_.get(), path_);
  const std::optional<Header> found = headerIn(file_.get(), size);
  isNew_ = size == 0;
  if (found) {
    capacity_.records = std::max(capacity_.records, (*found)[2]);
    capacity_.bytes = std::max(capacity_.bytes, (*found)[3] - kHeadWords * kWord);
  }
  scratch_.resize(slotBytes());
  if (found == headerOf(capacity_.records, slotBytes())) {
    map();
    load();
    return;
  }
  if (!isNew_ && !found) {
    fault_ = path_ + " is damaged: kept as " + path_ +
             ".damaged, the entries of the previous run have no metadata";
    if (std::rename(path_.c_str(), (path_ + ".damaged").c_str()) != 0) {
      throw Cairn::SystemException("rename " + path_, errno);
    }
  }
  const Cairn::Descriptor old = std::move(file_);
  stage();
  if (found) {
    eachRecordIn(old.get(), *found, [this](const Word* slot) {
      add(slot[0], slot[1], {reinterpret_cast<const char*>(slot + kHeadWords), lengthOf(slot)});
    });
  }
  publish();
}

Metadata::~Metadata() {
  if (words_ != nullptr) ::munmap(words_, fileBytes());
}

std::size_t Metadata::slotBytes() const noexcept { return (kHeadWords + (capacity_.bytes + 7) / 8) * kWord; }
std::size_t Metadata::fileBytes() const noexcept { return kHeaderBytes + capacity_.records * slotBytes(); }
const Metadata::Word* Metadata::slotAt(Slot slot) const noexcept {
  return words_ + (kHeaderBytes + slot * slotBytes()) / kWord;
}

/// Under another name first: a kill leaves the old file or the new one with all that was in the old.
void Metadata::stage() {
  const std::string staged = path_ + ".new";
  ::unlink(staged.c_str());
  file_ = Cairn::Descriptor(::open(staged.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  const Header header = headerOf(capacity_.records, slotBytes());
  const bool isMade = file_ && ::pwrite(file_.get(), header.data(), sizeof header, 0) == sizeof header &&
                      ::ftruncate(file_.get(), static_cast<off_t>(fileBytes())) == 0;
  if (!isMade) throw Cairn::SystemException("create " + path_, errno);
  map();
  load();
}

void Metadata::publish() {
  if (std::rename((path_ + ".new").c_str(), path_.c_str()) != 0) {
    throw Cairn::SystemException("create " + path_, errno);
  }
}

std::size_t Metadata::count(const std::string& path) {
  const Cairn::Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) throw Cairn::SystemException("open " + path, errno);
  const std::optional<Header> header = headerIn(file.get(), sizeOf(file.get(), path));
  if (!header) throw Cairn::CorruptionDetectedException(path + ": damaged header or size");
  std::size_t count = 0;
  eachRecordIn(file.get(), *header, [&count](const std::uint64_t*) { ++count; });
  return count;
}

void Metadata::map() {
  void* const memory = ::mmap(nullptr, fileBytes(), PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0);
  if (memory == MAP_FAILED) throw Cairn::SystemException("map " + path_, errno);
  words_ = static_cast<Word*>(memory);
}

/// Reads what the file has pages for, so that those never written stay without.
void Metadata::load() {
  free_.reserve(capacity_.records);
  index_.reserve(capacity_.records);
  std::vector<bool> used(capacity_.records);
  off_t data = static_cast<off_t>(kHeaderBytes);
  while ((data = ::lseek(file_.get(), data, SEEK_DATA)) >= 0) {
    const off_t end = ::lseek(file_.get(), data, SEEK_HOLE);
    const auto first = (static_cast<std::size_t>(data) - kHeaderBytes) / slotBytes();
    for (std::size_t slot = first; slot < capacity_.records; ++slot) {
      const std::size_t at = kHeaderBytes + slot * slotBytes();
      if (at >= static_cast<std::size_t>(end)) break;
      if (used[slot] || !holdsRecord(slotAt(static_cast<Slot>(slot)), slotBytes())) continue;
      const Word* const words = slotAt(static_cast<Slot>(slot));
      used[slot] = true;
      index_.add(hashOf(words[0], words[1]), static_cast<Slot>(slot));
    }
    data = end;
  }
  for (std::size_t slot = capacity_.records; slot-- > 0;) {
    if (!used[slot]) free_.push_back(static_cast<Slot>(slot));
  }
}

void Metadata::retain(const std::function<bool(std::uint64_t, std::uint64_t)>& keep) {
  std::vector<std::pair<Word, Word>> dropped;
  index_.forEach([&](Slot slot) {
    const Word* const words = slotAt(slot);
    if (!keep(words[0], words[1])) dropped.emplace_back(words[0], words[1]);
  });
  for (const auto& [handle, genId] : dropped) remove(handle, genId);
}

Metadata::Slot Metadata::find(std::uint64_t handle, std::uint64_t genId) const noexcept {
  return index_.find(hashOf(handle, genId), [&](Slot slot) {
    const Word* const words = slotAt(slot);
    return words[0] == handle && words[1] == genId;
  });
}

std::string_view Metadata::of(std::uint64_t handle, std::uint64_t genId) const noexcept {
  const Slot slot = find(handle, genId);
  if (slot == FlatIndex::kNone) return {};
  const Word* const words = slotAt(slot);
  return {reinterpret_cast<const char*>(words + kHeadWords), lengthOf(words)};
}

// By a write, not through the mapping: on a full disk it fails, where a store would end the process.
void Metadata::add(std::uint64_t handle, std::uint64_t genId, std::string_view bytes) {
  if (bytes.empty()) return;
  const std::size_t used = kHeadWords * kWord + bytes.size();
  if (free_.empty() || bytes.size() > capacity_.bytes) {
    throw Cairn::ResourceExhaustedException("no room for metadata: used " + std::to_string(index_.size()) +
                                            " of " + std::to_string(capacity_.records) + " records");
  }
  const Slot slot = free_.back();
  auto* const words = reinterpret_cast<Word*>(scratch_.data());
  words[0] = handle;
  words[1] = genId;
  std::memcpy(words + kHeadWords, bytes.data(), bytes.size());
  words[2] = Word{checkOf(words, bytes.size())} << 32 | bytes.size();
  const auto at = static_cast<off_t>(kHeaderBytes + slot * slotBytes());
  if (::pwrite(file_.get(), words, used, at) != static_cast<ssize_t>(used)) {
    throw Cairn::ResourceExhaustedException("no space for metadata in " + path_);
  }
  index_.add(hashOf(handle, genId), slot);
  free_.pop_back();
}

void Metadata::remove(std::uint64_t handle, std::uint64_t genId) noexcept {
  const Slot slot = find(handle, genId);
  if (slot == FlatIndex::kNone) return;
  index_.remove(hashOf(handle, genId), slot);
  std::atomic_ref(const_cast<Word*>(slotAt(slot))[0]).store(0, std::memory_order_release);
  free_.push_back(slot);
}

}  // namespace Agent
