#include "apps/counters/CounterFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "apps/counters/TickScale.h"
#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Counters {

std::string optionsText(int count, const char* const* arguments) {
  std::string text;
  for (int i = 1; i < count; ++i) text.append(i == 1 ? "" : " ").append(arguments[i]);
  return text;
}

CounterMemory::CounterMemory(const std::string& path, ProgramId program, std::size_t fileBytes,
                             const std::string& options)
    : path_(path), unpublished_(path + ".new." + std::to_string(getpid())), bytes_(fileBytes) {
  file_ = Cairn::Descriptor(
      open(unpublished_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!file_) throw Cairn::SystemException("create counter file " + unpublished_, errno);
  try {
    map(program, options);
  } catch (...) {
    unlink(unpublished_.c_str());
    throw;
  }
  guard_ = std::make_unique<Vesta::GuardedMapping>(static_cast<const Vesta::Word*>(mapped_),
                                                   bytes_ / sizeof(Vesta::Word), false);
}

void CounterMemory::publish() {
  if (rename(unpublished_.c_str(), path_.c_str()) != 0) {
    throw Cairn::SystemException("name counter file " + path_, errno);
  }
  unpublished_.clear();
}

void CounterMemory::map(ProgramId program, const std::string& options) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  if (fcntl(file_.get(), F_OFD_SETLK, &lock) != 0) {
    throw Cairn::SystemException("lock counter file " + path_, errno);
  }
  // Without reserved blocks, a full file system would be a signal at the first access.
  if (const int error = posix_fallocate(file_.get(), 0, static_cast<off_t>(bytes_)); error != 0) {
    throw Cairn::SystemException("reserve counter file " + path_, error);
  }
  void* const mapped = mmap(nullptr, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, file_.get(), 0);
  if (mapped == MAP_FAILED) throw Cairn::SystemException("map counter file " + path_, errno);
  mapped_ = mapped;
  auto* const header = new (mapped_) Header{};
  std::memcpy(header->magic, kMagic, sizeof kMagic);
  header->version = kLayoutVersion;
  header->program = static_cast<std::uint32_t>(program);
  header->pid = static_cast<std::uint32_t>(getpid());
  header->tables = TolmarHwLib::kOutputTableCount;
  header->fileBytes = bytes_;
  header->startWall = wallNanoseconds();
  header->startMonotonic = monotonicNanoseconds();
  std::string_view(TOLMAR_VERSION).copy(header->programVersion, sizeof header->programVersion - 1);
  options.copy(header->options, sizeof header->options - 1);
  header->checksum = Cairn::checksum(header, offsetof(Header, checksum));
}

CounterMemory::~CounterMemory() {
  if (!unpublished_.empty()) unlink(unpublished_.c_str());
  guard_.reset();
  munmap(mapped_, bytes_);
}

}  // namespace Counters
