#include "apps/ctl/Archive.h"

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <vector>

#include "cairn/Descriptor.h"
#include "cairn/Exception.h"

namespace Ctl {

Archive::Archive(const std::string& path)
    : path_(path),
      file_(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)),
      archive_(nullptr) {
  if (file_ < 0) throw Cairn::SystemException("create " + path, errno);
  archive_ = archive_write_new();
  archive_write_set_format_pax_restricted(archive_);
  archive_write_add_filter_gzip(archive_);
  require(archive_write_open_fd(archive_, file_));
}

Archive::~Archive() {
  archive_write_free(archive_);
  ::close(file_);
  if (!finished_) ::unlink(path_.c_str());
}

void Archive::require(int result) {
  if (result < ARCHIVE_WARN) {
    const char* const reason = archive_error_string(archive_);
    throw Cairn::Exception("write " + path_ + ": " + (reason != nullptr ? reason : "failed"));
  }
}

void Archive::header(const std::string& name, std::size_t size) {
  archive_entry* const entry = archive_entry_new();
  archive_entry_set_pathname(entry, name.c_str());
  archive_entry_set_size(entry, static_cast<la_int64_t>(size));
  archive_entry_set_filetype(entry, AE_IFREG);
  archive_entry_set_perm(entry, 0600);
  archive_entry_set_mtime(entry, std::time(nullptr), 0);
  const int result = archive_write_header(archive_, entry);
  archive_entry_free(entry);
  require(result);
}

void Archive::write(const char* bytes, std::size_t size) {
  const la_ssize_t written = archive_write_data(archive_, bytes, size);
  if (written != static_cast<la_ssize_t>(size)) require(ARCHIVE_FATAL);
}

void Archive::add(const std::string& name, std::string_view contents) {
  header(name, contents.size());
  write(contents.data(), contents.size());
}

// A file that becomes shorter meanwhile is filled up with zeros; what is added to a longer one is left out.
bool Archive::addCopy(const std::string& name, const std::string& path) {
  const Cairn::Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  auto left = static_cast<std::size_t>(status.st_size);
  header(name, left);
  std::vector<char> part(std::size_t{1} << 20);
  while (left > 0) {
    const std::size_t wanted = std::min(left, part.size());
    ssize_t got = ::read(file.get(), part.data(), wanted);
    if (got <= 0) {
      std::fill(part.begin(), part.end(), '\0');
      got = static_cast<ssize_t>(wanted);
    }
    write(part.data(), static_cast<std::size_t>(got));
    left -= static_cast<std::size_t>(got);
  }
  return true;
}

void Archive::finish() {
  require(archive_write_close(archive_));
  if (::fsync(file_) != 0) throw Cairn::SystemException("write " + path_, errno);
  finished_ = true;
}

}  // namespace Ctl
