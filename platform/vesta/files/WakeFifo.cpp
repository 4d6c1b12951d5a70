#include "vesta/files/WakeFifo.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "cairn/Exception.h"
#include "vesta/files/PrivateFile.h"

namespace Vesta {

namespace {

constexpr int kFlags = O_RDWR | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC;

}  // namespace

WakeFifo WakeFifo::forReader(int folder, const std::string& name, const std::string& path) {
  if (mkfifoat(folder, name.c_str(), 0600) != 0 && errno != EEXIST) {
    throw Cairn::SystemException("create FIFO " + path, errno);
  }
  WakeFifo fifo;
  fifo.fifo_ = Cairn::Descriptor(openat(folder, name.c_str(), kFlags));
  if (!fifo.fifo_) throw Cairn::SystemException("open FIFO " + path, errno);
  struct stat status {};
  if (fstat(fifo.descriptor(), &status) != 0) throw Cairn::SystemException("inspect FIFO " + path, errno);
  requirePrivate(status, S_IFIFO, path);
  fifo.drain();
  return fifo;
}

bool WakeFifo::forWriter(int folder, const std::string& name, WakeFifo& fifo) {
  fifo.fifo_ = Cairn::Descriptor(openat(folder, name.c_str(), kFlags));
  if (!fifo) return errno != EMFILE && errno != ENFILE && errno != ENOMEM;
  struct stat status {};
  if (fstat(fifo.descriptor(), &status) != 0 || !S_ISFIFO(status.st_mode) || status.st_uid != geteuid()) {
    fifo.fifo_ = Cairn::Descriptor();
  }
  return true;
}

void WakeFifo::wake() const noexcept {
  if (fifo_) (void)!write(descriptor(), "w", 1);
}

void WakeFifo::drain() const noexcept {
  char bytes[256];
  while (read(descriptor(), bytes, sizeof bytes) == static_cast<ssize_t>(sizeof bytes)) {
  }
}

bool WakeFifo::inPlace(int folder, const std::string& name) const {
  struct stat mine {};
  struct stat there {};
  return fifo_ && fstat(descriptor(), &mine) == 0 &&
         fstatat(folder, name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0 && mine.st_dev == there.st_dev &&
         mine.st_ino == there.st_ino;
}

}  // namespace Vesta
