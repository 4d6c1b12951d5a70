#include "vesta/TableFiles.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "cairn/Exception.h"
#include "vesta/PrivateFile.h"

namespace Vesta {

namespace {

Word randomWord() {
  Word word = 0;
  if (getrandom(&word, sizeof word, 0) != sizeof word || word == 0) word = static_cast<Word>(getpid());
  return word;
}

std::size_t sizeOf(int file, const std::string& path) {
  struct stat status {};
  if (fstat(file, &status) != 0) throw Cairn::SystemException("inspect " + path, errno);
  return static_cast<std::size_t>(status.st_size);
}

HeaderFault sizeFault(std::size_t expected, std::size_t found) {
  return {"size: expected " + std::to_string(expected) + ", found " + std::to_string(found), true};
}

}  // namespace

TableFiles::TableFiles(const RootPath& path)
    : path_(path),
      folder_(openPrivateFolder(path.rootFolder(), path.path())),
      lock_(folder_.get(), path.collection() + ".lock", path.text() + ".lock") {}

TableFiles::Found TableFiles::open(const Layout& layout, Access access) const {
  Descriptor file;
  try {
    file = openPrivateFile(folder(), path_.collection(), access == Access::observer ? O_RDONLY : O_RDWR,
                           path_.text());
  } catch (const Cairn::SystemException& failure) {
    if (failure.error() == ENOENT) return {nullptr, true, {}};
    throw;
  }
  const std::size_t size = sizeOf(file.get(), path_.text());
  std::array<Word, kHeaderWords> header{};
  if (pread(file.get(), header.data(), sizeof header, 0) != static_cast<ssize_t>(sizeof header)) {
    return {nullptr, false, sizeFault(layout.bytes(), size)};
  }
  HeaderFault fault = headerFault(header.data(), layout);
  if (fault.text.empty() && size != layout.bytes()) fault = sizeFault(layout.bytes(), size);
  if (!fault.text.empty()) return {nullptr, false, std::move(fault)};
  return {std::make_shared<Segment>(file.get(), layout, access), false, {}};
}

TableFiles::Unnamed TableFiles::create(const Layout& layout, Word firstSequence) const {
  Unnamed created;
  created.file = Descriptor(openat(folder(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
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

void TableFiles::name(const Unnamed& created) const {
  const std::string unnamed = "/proc/self/fd/" + std::to_string(created.file.get());
  if (linkat(AT_FDCWD, unnamed.c_str(), folder(), path_.collection().c_str(), AT_SYMLINK_FOLLOW) != 0) {
    throw Cairn::SystemException("name segment " + path_.text(), errno);
  }
}

void TableFiles::markRetired(int segment) const {
  const Word mark = kRetired;
  const auto at = static_cast<off_t>(kStateAt * sizeof(Word));
  if (sizeOf(segment, path_.text()) >= kTablesAt * sizeof(Word))
    (void)!pwrite(segment, &mark, sizeof mark, at);
}

void TableFiles::setAside() const {
  markRetired(openPrivateFile(folder(), path_.collection(), O_RDWR, path_.text()).get());
  for (unsigned number = 1;; ++number) {
    const std::string aside = path_.collection() + ".retired." + std::to_string(number);
    if (renameat2(folder(), path_.collection().c_str(), folder(), aside.c_str(), RENAME_NOREPLACE) == 0)
      return;
    if (errno != EEXIST) throw Cairn::SystemException("set segment " + path_.text() + " aside", errno);
  }
}

void TableFiles::remove() const {
  try {
    markRetired(openPrivateFile(folder(), path_.collection(), O_RDWR, path_.text()).get());
  } catch (const Cairn::SystemException& failure) {
    if (failure.error() == ENOENT) return;
    throw;
  }
  if (unlinkat(folder(), path_.collection().c_str(), 0) != 0) {
    throw Cairn::SystemException("remove segment " + path_.text(), errno);
  }
  wakeEveryone();
  for (unsigned reader = 0; reader < kMaxReaders; ++reader) {
    if (!lock_.heldElsewhere(LockFile::readerByte(reader))) unlinkat(folder(), fifoName(reader).c_str(), 0);
  }
}

void TableFiles::validate(const Layout& layout) const {
  const Found found = open(layout, Access::observer);
  if (found.missing) throw Cairn::SystemException("open " + path_.text(), ENOENT);
  if (!found.segment) throw Cairn::CorruptionDetectedException(path_.text() + ": " + found.fault.text);
}

std::string TableFiles::fifoName(unsigned reader) const {
  return std::string(RootPath::kSocketNamePrefix) + "." + path_.collection() + "." + std::to_string(reader);
}

WakeFifo TableFiles::readerFifo(unsigned reader) const {
  return WakeFifo::forReader(folder(), fifoName(reader), path_.folder() + "/" + fifoName(reader));
}

void TableFiles::wakeEveryone() const {
  for (const long byte : lock_.heldElsewhere(LockFile::readerByte(0), LockFile::readerByte(kMaxReaders))) {
    WakeFifo::forWriter(folder(), fifoName(static_cast<unsigned>(byte - LockFile::readerByte(0)))).wake();
  }
}

int TableFiles::writerPid() const {
  const Descriptor file(
      openat(folder(), path_.collection().c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  Word word = 0;
  if (!file || pread(file.get(), &word, sizeof word, kWriterPidAt * sizeof(Word)) != sizeof word) return 0;
  return isSealed(word, kWriterPidAt) ? static_cast<int>(static_cast<std::uint32_t>(word)) : 0;
}

}  // namespace Vesta
