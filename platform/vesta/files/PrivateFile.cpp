#include "vesta/files/PrivateFile.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include "cairn/Exception.h"

namespace Vesta {

namespace {

std::string modeText(mode_t mode) {
  char text[16];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

void requireOwner(const struct stat& status, const std::string& path) {
  if (status.st_uid == geteuid()) return;
  throw Cairn::Exception(path + ": expected owner " + std::to_string(geteuid()) + ", found " +
                         std::to_string(status.st_uid));
}

Cairn::Descriptor openFolder(int parent, const std::string& name, const std::string& path) {
  constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  int descriptor = openat(parent, name.c_str(), kFlags);
  if (descriptor < 0 && errno == ENOENT) {
    if (mkdirat(parent, name.c_str(), 0700) != 0 && errno != EEXIST) {
      throw Cairn::SystemException("create folder " + path, errno);
    }
    descriptor = openat(parent, name.c_str(), kFlags);
  }
  if (descriptor < 0) throw Cairn::SystemException("open folder " + path, errno);
  Cairn::Descriptor folder(descriptor);
  struct stat status {};
  if (fstat(descriptor, &status) != 0) throw Cairn::SystemException("inspect folder " + path, errno);
  requireOwner(status, path);
  if ((status.st_mode & 077) != 0) {
    throw Cairn::Exception("folder " + path + ": expected mode 0700, found " + modeText(status.st_mode));
  }
  return folder;
}

}  // namespace

Cairn::Descriptor openPrivateFolder(const std::string& root, const std::string& path) {
  if (mkdir(root.c_str(), 0700) != 0 && errno != EEXIST) {
    throw Cairn::SystemException("create root folder " + root, errno);
  }
  Cairn::Descriptor folder(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder) throw Cairn::SystemException("open root folder " + root, errno);
  std::string walked = root;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string part = path.substr(begin, end - begin);
    walked += "/" + part;
    folder = openFolder(folder.get(), part, walked);
    begin = end + 1;
  }
  return folder;
}

void requirePrivate(const struct stat& status, mode_t kind, const std::string& path) {
  if ((status.st_mode & S_IFMT) != kind) {
    throw Cairn::Exception(path + ": expected a " + (kind == S_IFREG ? "regular file" : "FIFO") +
                           ", found file type " + modeText((status.st_mode & S_IFMT) >> 12));
  }
  requireOwner(status, path);
  if ((status.st_mode & 07777) != 0600) {
    throw Cairn::Exception(path + ": expected mode 0600, found " + modeText(status.st_mode));
  }
}

Cairn::Descriptor openPrivateFile(int folder, const std::string& name, int flags, const std::string& path) {
  // O_NONBLOCK: a FIFO or device in the file's place must not hold the opener up.
  Cairn::Descriptor file(openat(folder, name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600));
  if (!file) throw Cairn::SystemException("open " + path, errno);
  struct stat status {};
  if (fstat(file.get(), &status) != 0) throw Cairn::SystemException("inspect " + path, errno);
  requirePrivate(status, S_IFREG, path);
  return file;
}

Cairn::Descriptor openToRead(const std::string& path) {
  Cairn::Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file || fstat(file.get(), &status) != 0) throw Cairn::SystemException("open " + path, errno);
  if (!S_ISREG(status.st_mode)) throw Cairn::Exception(path + ": expected a regular file");
  return file;
}

}  // namespace Vesta
