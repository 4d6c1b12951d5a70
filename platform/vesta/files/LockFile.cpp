#include "vesta/files/LockFile.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include "cairn/Exception.h"
#include "vesta/files/PrivateFile.h"

namespace Vesta {

namespace {

struct flock lockOf(short type, long byte, long count = 1) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = byte;
  lock.l_len = count;
  return lock;
}

}  // namespace

LockFile::LockFile(int folderDescriptor, const std::string& name, const std::string& path) : path_(path) {
  file_ = openPrivateFile(folderDescriptor, name, O_RDWR | O_CREAT, path);
}

LockFile::LockFile(const std::string& path) : path_(path), file_(openToRead(path)) {}

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

// A query returns any one of the locks in its range, so the parts on both sides of that one are queried next.
std::vector<long> LockFile::heldElsewhere(long first, long end) const {
  std::vector<long> held;
  std::vector<std::pair<long, long>> ranges{{first, end}};
  while (!ranges.empty()) {
    const auto [from, to] = ranges.back();
    ranges.pop_back();
    if (from >= to) continue;
    struct flock lock = lockOf(F_WRLCK, from, to - from);
    if (fcntl(file_.get(), F_OFD_GETLK, &lock) != 0)
      throw Cairn::SystemException("query lock " + path_, errno);
    if (lock.l_type == F_UNLCK) continue;
    const long at = std::clamp(static_cast<long>(lock.l_start), from, to - 1);
    held.push_back(at);
    ranges.emplace_back(from, at);
    ranges.emplace_back(at + 1, to);
  }
  return held;
}

bool LockFile::inPlace() const noexcept {
  struct stat named {};
  struct stat held {};
  return lstat(path_.c_str(), &named) == 0 && fstat(file_.get(), &held) == 0 && named.st_dev == held.st_dev &&
         named.st_ino == held.st_ino;
}

CreationLock::CreationLock(LockFile& file, const std::string& path, std::chrono::milliseconds bound)
    : file_(file) {
  if (!file_.lockWithin(LockFile::kCreation, bound)) {
    throw Cairn::Exception(path + ": another process has been creating it for " +
                           std::to_string(bound.count()) + " ms");
  }
}

}  // namespace Vesta
