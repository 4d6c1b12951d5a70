#include "vesta/LockFile.h"

#include <fcntl.h>

#include <cerrno>
#include <thread>

#include "cairn/Exception.h"
#include "vesta/PrivateFile.h"

namespace Vesta {

namespace {

struct flock lockOf(short type, long byte) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = 1;
  return lock;
}

}  // namespace

LockFile::LockFile(int folderDescriptor, const std::string& name, const std::string& path) : path_(path) {
  file_ = openPrivateFile(folderDescriptor, name, O_RDWR | O_CREAT, path);
}

bool LockFile::tryLock(long byte) {
  struct flock lock = lockOf(F_WRLCK, byte);
  if (fcntl(file_.get(), F_OFD_SETLK, &lock) == 0) return true;
  if (errno == EAGAIN || errno == EACCES) return false;
  throw Cairn::SystemException("lock " + path_, errno);
}

bool LockFile::lockWithin(long byte, std::chrono::milliseconds bound) {
  const auto end = std::chrono::steady_clock::now() + bound;
  while (!tryLock(byte)) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

void LockFile::unlock(long byte) noexcept {
  struct flock lock = lockOf(F_UNLCK, byte);
  fcntl(file_.get(), F_OFD_SETLK, &lock);
}

bool LockFile::heldElsewhere(long byte) const {
  struct flock lock = lockOf(F_WRLCK, byte);
  if (fcntl(file_.get(), F_OFD_GETLK, &lock) != 0) throw Cairn::SystemException("query lock " + path_, errno);
  return lock.l_type != F_UNLCK;
}

CreationLock::CreationLock(LockFile& file, const std::string& path) : file_(file) {
  constexpr std::chrono::milliseconds kBound{5000};
  if (!file_.lockWithin(LockFile::kCreation, kBound)) {
    throw Cairn::Exception(path + ": another process has been creating it for " +
                           std::to_string(kBound.count()) + " ms");
  }
}

}  // namespace Vesta
