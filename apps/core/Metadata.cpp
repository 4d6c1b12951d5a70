#include "apps/core/Metadata.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
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

}  // namespace

Metadata::Metadata(std::string path, Capacity capacity)
    : path_(std::move(path)), capacity_(capacity), scratch_(slotBytes()) {
  file_ = Cairn::Descriptor(::open(path_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
  struct stat status {};
  if (!file_ || ::fstat(file_.get(), &status) != 0) throw Cairn::SystemException("open " + path_, errno);
  const auto size = static_cast<std::size_t>(status.st_size);
  Header found{};
  const Header wanted = headerOf(capacity_.records, slotBytes());
  const bool isRead = ::pread(file_.get(), found.data(), sizeof found, 0) == sizeof found;
  if (isRead && found == wanted && size == fileBytes()) {
    map();
    load();
    return;
  }
  const std::vector<Record> records = recordsIn(file_.get(), size).value_or(std::vector<Record>());
  if (size != 0 && !(isRead && found == headerOf(found[2], found[3]))) {
    fault_ = path_ + " is damaged: kept as " + path_ +
             ".damaged, the entries of the previous run have no metadata";
    if (std::rename(path_.c_str(), (path_ + ".damaged").c_str()) != 0) {
      throw Cairn::SystemException("rename " + path_, errno);
    }
  }
  create();
  for (const Record& record : records) {
    if (record.bytes.size() <= capacity_.bytes) add(record.handle, record.genId, record.bytes);
  }
}

Metadata::~Metadata() {
  if (words_ != nullptr) ::munmap(words_, fileBytes());
}

std::size_t Metadata::slotBytes() const noexcept { return (kHeadWords + (capacity_.bytes + 7) / 8) * kWord; }
std::size_t Metadata::fileBytes() const noexcept { return kHeaderBytes + capacity_.records * slotBytes(); }
const Metadata::Word* Metadata::slotAt(Slot slot) const noexcept {
  return words_ + (kHeaderBytes + slot * slotBytes()) / kWord;
}

/// The records of a file of any capacity; nothing for a damaged file.
std::optional<std::vector<Metadata::Record>> Metadata::recordsIn(int file, std::size_t size) {
  std::vector<Word> words(size / kWord);
  const ssize_t length = ::pread(file, words.data(), words.size() * kWord, 0);
  if (length != static_cast<ssize_t>(words.size() * kWord) || size < kHeaderBytes) return std::nullopt;
  const std::size_t slotWords = words[3] / kWord;
  if (!std::equal(words.begin(), words.begin() + 5, headerOf(words[2], words[3]).begin()) ||
      slotWords < kHeadWords) {
    return std::nullopt;
  }
  std::vector<Record> records;
  for (std::size_t at = kHeaderBytes / kWord; at + slotWords <= words.size(); at += slotWords) {
    const Word* const slot = &words[at];
    if (!holdsRecord(slot, slotWords * kWord)) continue;
    const char* const bytes = reinterpret_cast<const char*>(slot + kHeadWords);
    records.push_back({slot[0], slot[1], std::string(bytes, lengthOf(slot))});
  }
  return records;
}

std::size_t Metadata::count(const std::string& path) {
  const Cairn::Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0) throw Cairn::SystemException("open " + path, errno);
  const auto records = recordsIn(file.get(), static_cast<std::size_t>(status.st_size));
  if (!records) throw Cairn::CorruptionDetectedException(path + ": damaged header or size");
  return records->size();
}

/// Under another name first: a kill leaves the old file or the new one.
void Metadata::create() {
  const std::string staged = path_ + ".new";
  ::unlink(staged.c_str());
  file_ = Cairn::Descriptor(::open(staged.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  const Header header = headerOf(capacity_.records, slotBytes());
  const bool isMade = file_ && ::pwrite(file_.get(), header.data(), sizeof header, 0) == sizeof header &&
                      ::ftruncate(file_.get(), static_cast<off_t>(fileBytes())) == 0 &&
                      std::rename(staged.c_str(), path_.c_str()) == 0;
  if (!isMade) throw Cairn::SystemException("create " + path_, errno);
  map();
  load();
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
