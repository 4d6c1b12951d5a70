#include "apps/process/RuntimeFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "cairn/Exception.h"
#include "skein/Skein.h"

namespace Process {

namespace {
[[noreturn]] void refuse(const std::string& path, const std::string& expected, const std::string& got) {
  throw Cairn::Exception("runtime folder " + path + ": expected " + expected + ", got " + got);
}

std::string octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", mode & 07777u);
  return text;
}
}  // namespace

std::string defaultRuntimeFolder() { return "/dev/shm/tolmar-" + std::to_string(::getuid()); }

void requireRuntimeFolder(const std::string& path) {
  if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    throw Cairn::SystemException("runtime folder " + path, errno);
  }
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) throw Cairn::SystemException("runtime folder " + path, errno);
  if (!S_ISDIR(status.st_mode))
    refuse(path, "a directory", S_ISLNK(status.st_mode) ? "a link" : "another file");
  if (status.st_uid != ::geteuid()) {
    refuse(path, "one of user " + std::to_string(::geteuid()),
           "one of user " + std::to_string(status.st_uid));
  }
  if ((status.st_mode & 07777u) != 0700u) refuse(path, "rights 0700", octal(status.st_mode));
}

void traceInto(const std::string& runtimeFolder, const std::string& program) {
  constexpr std::size_t kBytes = 1u << 20;
  Skein::ringIs(runtimeFolder + "/" + program + ".trace", kBytes);
}

}  // namespace Process
