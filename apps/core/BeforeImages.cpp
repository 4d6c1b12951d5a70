#include "apps/core/BeforeImages.h"

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
#include <utility>

#include "cairn/Descriptor.h"
#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Agent {

namespace {

constexpr std::uint64_t kMagic = 0x454d414945464542;  // "BEFEIAME" in memory
constexpr std::uint64_t kLayoutVersion = 2;
constexpr std::size_t kHeaderBytes = 4096;
constexpr std::size_t kRecordHead = 4;  // words
constexpr std::uint64_t kInUse = std::uint64_t{1} << 63;
constexpr std::uint64_t kLate = std::uint64_t{1} << 62;
constexpr std::uint64_t kPresent = std::uint64_t{1} << 61;

std::size_t tableOf(std::uint64_t control) { return control >> 32 & 0xff; }
BeforeImages::Place batchOf(std::uint64_t control) { return control >> 16 & 0xffff; }
std::size_t lengthOf(std::uint64_t control) { return control & 0xffff; }

// A batch word's check is over the rest of it and its place.

constexpr unsigned kIdAt = 17;
std::uint64_t idOf(std::uint64_t word) { return word >> kIdAt; }
std::uint64_t wordOf(BeforeImages::Place batch, std::uint64_t id, bool decided) {
  const std::uint64_t word = id << kIdAt | std::uint64_t{decided};
  return word | (Cairn::checksum(&word, sizeof word, batch) & 0xffff) << 1;
}
bool isIntactWord(BeforeImages::Place batch, std::uint64_t word) {
  return word == 0 || word == wordOf(batch, idOf(word), (word & 1) != 0);
}

// Release: a process that reads the word after a kill also reads what was stored before it.
void store(std::uint64_t& word, std::uint64_t value) noexcept {
  std::atomic_ref(word).store(value, std::memory_order_release);
}

}  // namespace

BeforeImages::BeforeImages(std::string path, Capacity capacity) : capacity_(capacity) {
  open(path);
  if (!describesItself()) {
    const std::string kept = path + ".damaged";
    fault_ = path + " is damaged or of another layout: kept as " + kept +
             ", undecided updates of the previous run stay as they are in the tables";
    munmap(std::exchange(words_, nullptr), fileBytes());
    if (std::rename(path.c_str(), kept.c_str()) != 0) throw Cairn::SystemException("rename " + path, errno);
    open(path);
    isNew_ = false;
  }
  findFree();
}

BeforeImages::~BeforeImages() {
  if (words_ != nullptr) munmap(words_, fileBytes());
}

std::size_t BeforeImages::recordWords() const noexcept { return kRecordHead + (capacity_.rowBytes + 7) / 8; }

std::size_t BeforeImages::fileBytes() const noexcept {
  return kHeaderBytes + sizeof(Word) * (capacity_.batches + capacity_.records * recordWords());
}

BeforeImages::Word* BeforeImages::batchWord(Place batch) const noexcept {
  return words_ + kHeaderBytes / sizeof(Word) + batch;
}

BeforeImages::Word* BeforeImages::recordAt(Place record) const noexcept {
  return words_ + kHeaderBytes / sizeof(Word) + capacity_.batches + record * recordWords();
}

/// Maps the file; a new one gets its disk space at once, so that no store can fail later.
void BeforeImages::open(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (file < 0) throw Cairn::SystemException("open " + path, errno);
  struct stat status {};
  int error = fstat(file, &status) != 0 ? errno : 0;
  const auto bytes = static_cast<off_t>(fileBytes());
  isNew_ = status.st_size == 0;
  isWhole_ = isNew_ || status.st_size == bytes;
  // A file of another size is mapped as far as it would be needed, but only its header is read.
  if (error == 0 && status.st_size < bytes) error = posix_fallocate(file, 0, bytes);
  void* const memory =
      error == 0 ? mmap(nullptr, fileBytes(), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0) : MAP_FAILED;
  if (error == 0 && memory == MAP_FAILED) error = errno;
  close(file);
  if (error != 0) throw Cairn::SystemException("map " + path, error);
  words_ = static_cast<Word*>(memory);
  if (isNew_) format();
}

void BeforeImages::format() noexcept {
  words_[1] = kLayoutVersion;
  words_[2] = capacity_.batches;
  words_[3] = capacity_.records;
  words_[4] = recordWords() * sizeof(Word);
  words_[5] = Cairn::checksum(words_ + 1, 4 * sizeof(Word));
  store(words_[0], kMagic);
}

bool BeforeImages::describesItself() const noexcept {
  return isWhole_ && words_[0] == kMagic && words_[1] == kLayoutVersion && words_[2] == capacity_.batches &&
         words_[3] == capacity_.records && words_[4] == recordWords() * sizeof(Word) &&
         words_[5] == Cairn::checksum(words_ + 1, 4 * sizeof(Word));
}

bool BeforeImages::counts(Place record) const noexcept {
  const Word control = recordAt(record)[0];
  if ((control & kInUse) == 0) return false;
  if ((control & kLate) != 0) return true;
  const Place batch = batchOf(control);
  return batch < capacity_.batches && *batchWord(batch) == wordOf(batch, recordAt(record)[1], false);
}

// Over all words but the check itself; the late bit is set after the others.
BeforeImages::Word BeforeImages::checkOf(const Word* record) const noexcept {
  const Word head[] = {record[0] & ~kLate, record[1], record[2]};
  return Cairn::checksum(record + kRecordHead, lengthOf(record[0]), Cairn::checksum(head, sizeof head));
}

bool BeforeImages::isIntact(Place record) const noexcept {
  const Word* const words = recordAt(record);
  return lengthOf(words[0]) <= capacity_.rowBytes && lengthOf(words[0]) >= Lumen::lm_contentOffset &&
         words[3] == checkOf(words);
}

/// Words and records that count stay in use; ids and orders continue above those in the file. Other records
/// are cleared: a batch could get the id of theirs again once their word has been damaged.
void BeforeImages::findFree() {
  uses_.assign(capacity_.batches, {0, true});
  freeBatches_.reserve(capacity_.batches);
  freeRecords_.reserve(capacity_.records);
  for (std::size_t record = capacity_.records; record-- > 0;) {
    const Word* const words = recordAt(static_cast<Place>(record));
    if (!counts(static_cast<Place>(record))) {
      if (words[0] != 0) store(recordAt(static_cast<Place>(record))[0], 0);
      freeRecords_.push_back(static_cast<Place>(record));
      continue;
    }
    if (!isIntact(static_cast<Place>(record))) {
      fault_ = "a before-image is damaged: its entry stays as it is in the table";
      store(recordAt(static_cast<Place>(record))[0], 0);
      freeRecords_.push_back(static_cast<Place>(record));
      continue;
    }
    nextOrder_ = std::max(nextOrder_, words[2] + 1);
    if ((words[0] & kLate) == 0) ++uses_[batchOf(words[0])].records;
  }
  for (Place batch = static_cast<Place>(capacity_.batches); batch-- > 0;) {
    Word& word = *batchWord(batch);
    if (!isIntactWord(batch, word)) {
      fault_ =
          "a batch word of before-images is damaged: the entries of its batch stay as they are in the tables";
      store(word, 0);
    }
    nextBatchId_ = std::max(nextBatchId_, idOf(word) + 1);
    if (uses_[batch].records == 0) freeBatches_.push_back(batch);
  }
}

std::vector<BeforeImages::Image> BeforeImages::undecided() const { return contents().undecided; }

BeforeImages::Contents BeforeImages::contents() const {
  Contents contents;
  std::vector<std::pair<Word, Image>> found;
  for (Place batch = 0; batch < capacity_.batches; ++batch) {
    if (!isIntactWord(batch, *batchWord(batch))) ++contents.damaged;
  }
  for (Place record = 0; record < capacity_.records; ++record) {
    if (!counts(record)) continue;
    if (!isIntact(record)) {
      ++contents.damaged;
      continue;
    }
    const Word* const words = recordAt(record);
    found.emplace_back(words[2], Image{record, tableOf(words[0]), (words[0] & kPresent) != 0, row(record)});
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  contents.undecided.reserve(found.size());
  for (auto& [order, image] : found) contents.undecided.push_back(std::move(image));
  return contents;
}

// A record that the agent uses again while it is copied fails its check; such a copy is made again.
BeforeImages::Contents BeforeImages::read(const std::string& path) {
  constexpr int kAttempts = 5;
  Contents contents;
  for (int attempt = 0; attempt == 0 || (contents.damaged != 0 && attempt < kAttempts); ++attempt) {
    contents = BeforeImages(path).contents();
  }
  return contents;
}

BeforeImages::BeforeImages(const std::string& path) : capacity_{} {
  constexpr std::size_t kMostRecords = std::size_t{1} << 24;
  const Cairn::Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  std::array<Word, 6> header{};
  if (!file) throw Cairn::SystemException("open " + path, errno);
  const auto refuse = [&path](const char* problem) {
    throw Cairn::CorruptionDetectedException(path + ": " + problem);
  };
  if (::pread(file.get(), header.data(), sizeof header, 0) != sizeof header) refuse("ends early");
  if (header[0] != kMagic) refuse("not a file of before-images");
  if (header[1] != kLayoutVersion) refuse("unknown layout version");
  if (header[5] != Cairn::checksum(&header[1], 4 * sizeof(Word))) refuse("damaged header");
  if (header[2] > 0xffff || header[3] > kMostRecords || header[4] < kRecordHead * sizeof(Word) ||
      header[4] > 0x10000 + kRecordHead * sizeof(Word)) {
    refuse("impossible capacity");
  }
  capacity_ = {header[2], header[3], header[4] - kRecordHead * sizeof(Word)};
  void* const memory =
      ::mmap(nullptr, fileBytes(), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw Cairn::SystemException("copy " + path, errno);
  words_ = static_cast<Word*>(memory);
  std::size_t at = 0;
  for (ssize_t got = 1; at < fileBytes() && got > 0;
       at += static_cast<std::size_t>(std::max<ssize_t>(got, 0))) {
    got = ::pread(file.get(), reinterpret_cast<char*>(words_) + at, fileBytes() - at, static_cast<off_t>(at));
  }
  if (at < fileBytes()) {
    ::munmap(std::exchange(words_, nullptr), fileBytes());
    refuse("ends early");
  }
}

BeforeImages::Place BeforeImages::begin() noexcept {
  if (freeBatches_.empty()) return kNone;
  const Place batch = freeBatches_.back();
  freeBatches_.pop_back();
  store(*batchWord(batch), wordOf(batch, nextBatchId_++, false));
  uses_[batch] = {};
  return batch;
}

BeforeImages::Place BeforeImages::add(Place batch, std::size_t table, bool present,
                                      const Lumen::BaseRow& row) noexcept {
  const std::size_t length = row.rowLength();
  if (freeRecords_.empty() || length > capacity_.rowBytes) return kNone;
  const Place record = freeRecords_.back();
  freeRecords_.pop_back();
  Word* const words = recordAt(record);
  const Word control = kInUse | (present ? kPresent : 0) | Word{table} << 32 | Word{batch} << 16 | length;
  // Nobody takes a half-written record for one: it is not in use until its control word is stored.
  store(words[0], 0);
  words[1] = idOf(*batchWord(batch));
  words[2] = nextOrder_++;
  std::memcpy(words + kRecordHead, row.bytes().data, length);
  const Word head[] = {control, words[1], words[2]};
  words[3] = Cairn::checksum(words + kRecordHead, length, Cairn::checksum(head, sizeof head));
  store(words[0], control);
  ++uses_[batch].records;
  return record;
}

Lumen::BaseRow BeforeImages::row(Place record) const {
  const Word* const words = recordAt(record);
  const auto* const bytes = reinterpret_cast<const std::byte*>(words + kRecordHead);
  return Lumen::BaseRow::fromBytes({bytes, lengthOf(words[0])});
}

void BeforeImages::lateIs(Place record) noexcept {
  Word& control = recordAt(record)[0];
  if ((control & kLate) != 0) return;
  store(control, control | kLate);
  released(record);
}

void BeforeImages::decide(Place batch) noexcept {
  Word& word = *batchWord(batch);
  store(word, wordOf(batch, idOf(word), true));
  freeBatches_.push_back(batch);
}

void BeforeImages::abandon(Place batch) noexcept {
  uses_[batch].ended = true;
  if (uses_[batch].records == 0) freeBatches_.push_back(batch);
}

void BeforeImages::remove(Place record) noexcept {
  Word& control = recordAt(record)[0];
  const bool late = (control & kLate) != 0;
  store(control, control & ~kInUse);
  if (!late) released(record);
  freeRecords_.push_back(record);
}

/// The record does not count because of its batch any more. The last one frees the word of an ended batch.
void BeforeImages::released(Place record) noexcept {
  const Place batch = batchOf(recordAt(record)[0]);
  Use& use = uses_[batch];
  if (--use.records == 0 && use.ended) freeBatches_.push_back(batch);
}

}  // namespace Agent
