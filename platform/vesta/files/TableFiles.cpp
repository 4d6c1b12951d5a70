#include "vesta/files/TableFiles.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "cairn/Exception.h"
#include "vesta/files/PrivateFile.h"

namespace Vesta {

namespace {

std::size_t sizeOf(int file, const std::string& path) {
  struct stat status {};
  if (fstat(file, &status) != 0) throw Cairn::SystemException("inspect " + path, errno);
  return static_cast<std::size_t>(status.st_size);
}

std::string wrongSize(std::size_t expected, std::size_t found) {
  return "size: expected " + std::to_string(expected) + ", found " + std::to_string(found);
}

}  // namespace

Word randomWord() noexcept {
  Word word = 0;
  if (getrandom(&word, sizeof word, 0) != sizeof word || word == 0) word = static_cast<Word>(getpid());
  return word;
}

TableFiles::TableFiles(const RootPath& path)
    : path_(path),
      folder_(openPrivateFolder(path.rootFolder(), path.path())),
      lock_(folder_.get(), path.collection() + ".lock", path.text() + ".lock") {}

TableFiles::Found TableFiles::open(const Layout& layout, Access access) const {
  Cairn::Descriptor file;
  try {
    file = openPrivateFile(folder(), path_.collection(), access == Access::passiveReader ? O_RDONLY : O_RDWR,
                           path_.text());
  } catch (const Cairn::SystemException& failure) {
    if (failure.error() == ENOENT) return {nullptr, true, {}};
    throw;
  }
  return inspect(file.get(), layout, access, path_.text());
}

TableFiles::Found TableFiles::inspect(int file, const Layout& layout, Access access,
                                      const std::string& path) {
  const std::size_t size = sizeOf(file, path);
  std::array<Word, kHeaderWords> header{};
  if (pread(file, header.data(), sizeof header, 0) != static_cast<ssize_t>(sizeof header)) {
    return {nullptr, false, {SegmentFault::Kind::damaged, wrongSize(layout.bytes(), size)}};
  }
  SegmentFault fault = headerFault(header.data(), layout);
  const bool wholeFile = size == layout.bytes();
  if (!fault && !wholeFile) {
    fault = {SegmentFault::Kind::damagedHeader, wrongSize(layout.bytes(), size)};
  }
  std::shared_ptr<Segment> segment;
  if (wholeFile || (access == Access::reader && size >= kTablesAt * sizeof(Word))) {
    segment = std::make_shared<Segment>(file, layout, access);
  } else if (access != Access::reader && fault.rowsUsable()) {
    segment = Segment::copyOf(file, layout);
  }
  return {std::move(segment), false, std::move(fault)};
}

SegmentFault TableFiles::sizeFault(const Segment& segment) const {
  struct stat file {};
  if (fstatat(folder(), path_.collection().c_str(), &file, AT_SYMLINK_NOFOLLOW) != 0) return {};
  const auto size = static_cast<std::size_t>(file.st_size);
  if (!segment.maps(file) || size == segment.layout().bytes()) return {};
  return {SegmentFault::Kind::damagedHeader, wrongSize(segment.layout().bytes(), size)};
}

bool TableFiles::isNamed(const Segment& segment) const noexcept {
  struct stat file {};
  return fstatat(folder(), path_.collection().c_str(), &file, AT_SYMLINK_NOFOLLOW) == 0 && segment.maps(file);
}

TableFiles::Unnamed TableFiles::create(const Layout& layout, Word firstSequence) const {
  Unnamed created;
  created.file = Cairn::Descriptor(openat(folder(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  const std::string what = "create segment " + path_.text();
  if (!created.file) throw Cairn::SystemException(what, errno);
  if (fchmod(created.file.get(), 0600) != 0) throw Cairn::SystemException(what, errno);
  const int error = posix_fallocate(created.file.get(), 0, static_cast<off_t>(layout.bytes()));
  if (error != 0) {
    throw Cairn::SystemException(what + ": reserve " + std::to_string(layout.bytes()) + " bytes", error);
  }
  created.segment = std::make_shared<Segment>(created.file.get(), layout, Access::writer);
  formatSegment(*created.segment, firstSequence & kSequenceMask, randomWord());
  return created;
}

void TableFiles::link(const Unnamed& created, const std::string& name) const {
  const std::string unnamed = "/proc/self/fd/" + std::to_string(created.file.get());
  if (linkat(AT_FDCWD, unnamed.c_str(), folder(), name.c_str(), AT_SYMLINK_FOLLOW) != 0) {
    throw Cairn::SystemException("name segment " + path_.folder() + "/" + name, errno);
  }
}

void TableFiles::name(const Unnamed& created) const { link(created, path_.collection()); }

// The new segment is linked under the name that the old one is to have, and the two names are exchanged, so
// that the table has a segment at every moment, also if this process dies. The mark comes first: a writer
// that dies before the exchange leaves a segment that its successor replaces.
void TableFiles::replace(const Unnamed& created) const {
  constexpr unsigned kKept = 8;
  std::string retired;
  for (unsigned number = 1;; ++number) {
    retired = path_.collection() + ".retired." + std::to_string(number);
    if (number == kKept) unlinkat(folder(), retired.c_str(), 0);
    if (number == kKept || faccessat(folder(), retired.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0) break;
  }
  const Cairn::Descriptor old = openPrivateFile(folder(), path_.collection(), O_RDWR, path_.text());
  link(created, retired);
  stateIs(old.get(), kRetired);
  if (renameat2(folder(), retired.c_str(), folder(), path_.collection().c_str(), RENAME_EXCHANGE) != 0) {
    const int error = errno;
    stateIs(old.get(), kLive);
    unlinkat(folder(), retired.c_str(), 0);
    throw Cairn::SystemException("exchange segments " + path_.text() + " and " + retired, error);
  }
}

void TableFiles::stateIs(int segment, Word state) const {
  const auto at = static_cast<off_t>(kStateAt * sizeof(Word));
  if (sizeOf(segment, path_.text()) >= (kStateAt + 1) * sizeof(Word))
    (void)!pwrite(segment, &state, sizeof state, at);
}

void TableFiles::remove() {
  try {
    stateIs(openPrivateFile(folder(), path_.collection(), O_RDWR, path_.text()).get(), kRetired);
    if (unlinkat(folder(), path_.collection().c_str(), 0) != 0) {
      throw Cairn::SystemException("remove segment " + path_.text(), errno);
    }
  } catch (const Cairn::SystemException& failure) {
    if (failure.error() != ENOENT) throw;
  }
  const Word asleep = wakeEveryone();
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    if (!lock_.tryLock(LockFile::readerByte(reader))) continue;  // no reader can take this number meanwhile
    unlinkat(folder(), fifoName(reader).c_str(), 0);
    lock_.unlock(LockFile::readerByte(reader));
  }
  if (asleep == 0) return;
  throw Cairn::ResourceExhaustedException(path_.text() + " is removed; no descriptor to wake its readers");
}

void TableFiles::validate(const Layout& layout) const {
  const Found found = open(layout, Access::passiveReader);
  if (found.missing) throw Cairn::SystemException("open " + path_.text(), ENOENT);
  if (found.fault) {
    throw Cairn::CorruptionDetectedException(path_.text() + ": " + found.fault.text);
  }
}

std::string TableFiles::displacedFile(const Segment& segment) const {
  if (!lock_.inPlace()) return lock_.path();
  struct stat status {};
  if (segment.retired()) return {};
  const bool inPlace = lstat(path_.text().c_str(), &status) == 0 && segment.maps(status);
  // A writer may have replaced the segment in between: it is marked first.
  return inPlace || segment.retired() ? std::string() : path_.text();
}

std::string TableFiles::fifoName(unsigned reader) const {
  return std::string(RootPath::kSocketNamePrefix) + "." + path_.collection() + "." + std::to_string(reader);
}

WakeFifo TableFiles::readerFifo(unsigned reader) const {
  return WakeFifo::forReader(folder(), fifoName(reader), path_.folder() + "/" + fifoName(reader));
}

// Returns the bits of the readers that could not be woken for want of a descriptor.
Word TableFiles::wakeEveryone() const {
  Word asleep = 0;
  for (const long byte : lock_.heldElsewhere(LockFile::readerByte(0), LockFile::readerByte(kMaxReaders))) {
    const auto reader = static_cast<unsigned>(byte - LockFile::readerByte(0));
    WakeFifo fifo;
    if (!WakeFifo::forWriter(folder(), fifoName(reader), fifo)) asleep |= Word{1} << reader;
    fifo.wake();
  }
  return asleep;
}

void TableFiles::wakeEveryone(Segment& segment) const {
  std::atomic_ref<Word>(segment.at(kSleepersAt)).fetch_or(wakeEveryone(), std::memory_order_seq_cst);
}

int TableFiles::writerProcess() const {
  const Cairn::Descriptor file(
      openat(folder(), path_.collection().c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  Word word = 0;
  if (!file || pread(file.get(), &word, sizeof word, kWriterProcessAt * sizeof(Word)) != sizeof word)
    return 0;
  return isSealed(word, kWriterProcessAt) ? static_cast<int>(static_cast<std::uint32_t>(word)) : 0;
}

}  // namespace Vesta
