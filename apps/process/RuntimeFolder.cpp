#include "apps/process/RuntimeFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "apps/process/Log.h"
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

// By name alone: the system would follow a link "NAME" for "NAME/" and "NAME/.".
std::string withoutTrailingSlash(const std::string& path) {
  std::string name = std::filesystem::path(path).lexically_normal().string();
  if (name.size() > 1 && name.back() == '/') name.pop_back();
  return name;
}

// The kernel's list has no other key than the inode, which is enough for a message.
std::string holderOf(ino_t inode) {
  std::ifstream locks("/proc/locks");
  const std::string ending = std::string(":").append(std::to_string(inode)).append(" ");
  for (std::string line; std::getline(locks, line);) {
    int process = 0;
    if (line.find(ending) == std::string::npos) continue;
    if (std::sscanf(line.c_str(), "%*d: FLOCK %*s WRITE %d", &process) == 1) {
      return "process " + std::to_string(process);
    }
  }
  return "another process";
}

}  // namespace

std::string defaultRuntimeFolder() { return "/dev/shm/tolmar-" + std::to_string(::getuid()); }

RuntimeFolder::RuntimeFolder(const std::string& path) : path_(withoutTrailingSlash(path)) {
  if (::mkdir(path_.c_str(), 0700) != 0 && errno != EEXIST) {
    throw Cairn::SystemException("runtime folder " + path_, errno);
  }
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) throw Cairn::SystemException("runtime folder " + path_, errno);
  if (!S_ISDIR(status.st_mode))
    refuse(path_, "a directory", S_ISLNK(status.st_mode) ? "a link" : "another file");
  folder_ = Cairn::Descriptor(::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder_ || ::fstat(folder_.get(), &status) != 0) {
    throw Cairn::SystemException("runtime folder " + path_, errno);
  }
  if (status.st_uid != ::geteuid()) {
    refuse(path_, "one of user " + std::to_string(::geteuid()),
           "one of user " + std::to_string(status.st_uid));
  }
  if ((status.st_mode & 07777u) != 0700u) refuse(path_, "mode 0700", octal(status.st_mode));
}

void RuntimeFolder::lock() {
  if (::flock(folder_.get(), LOCK_EX | LOCK_NB) == 0) return;
  if (errno != EWOULDBLOCK) throw Cairn::SystemException("lock runtime folder " + path_, errno);
  struct stat status {};
  ::fstat(folder_.get(), &status);
  throw Cairn::Exception("runtime folder " + path_ + " is in use by " + holderOf(status.st_ino));
}

void RuntimeFolder::trace(const std::string& program) const {
  constexpr std::size_t kBytes = 1u << 20;
  try {
    Skein::ringIs(path_ + "/" + program + ".trace", kBytes);
  } catch (const Cairn::Exception& failure) {
    log(LogLevel::warning, "continuing without a trace file: " + failure.message());
  }
}

}  // namespace Process
