#include "apps/counters/CounterView.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "apps/counters/TickScale.h"
#include "cairn/Exception.h"
#include "cairn/Hash.h"

namespace Counters {

namespace {

[[noreturn]] void refuse(const std::string& path, const std::string& what, std::uint64_t expected,
                         std::uint64_t found) {
  throw Cairn::CorruptionDetectedException("counter file " + path + ": " + what + ": expected " +
                                           std::to_string(expected) + ", found " + std::to_string(found));
}

void check(const Header& header, ProgramId program, std::size_t bytes, const std::string& path) {
  if (std::memcmp(header.magic, kMagic, sizeof kMagic) != 0) {
    throw Cairn::CorruptionDetectedException("counter file " + path +
                                             ": it does not begin with \"TOLCOUNT\"");
  }
  const auto same = [&path](const char* what, std::uint64_t expected, std::uint64_t found) {
    if (expected != found) refuse(path, what, expected, found);
  };
  same("layout version", kLayoutVersion, header.version);
  same("checksum of the header", Cairn::checksum(&header, offsetof(Header, checksum)), header.checksum);
  same("program", static_cast<std::uint32_t>(program), header.program);
  same("tables", TolmarHwLib::kOutputTableCount, header.tables);
  same("bytes in the header", bytes, header.fileBytes);
}

std::string_view textOf(const char* text, std::size_t bytes) { return {text, strnlen(text, bytes)}; }

}  // namespace

CounterBytes::CounterBytes(const std::string& path, ProgramId program, std::size_t fileBytes)
    : path_(path),
      bytes_(fileBytes),
      file_(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK)) {
  struct stat status {};
  if (!file_ || fstat(file_.get(), &status) != 0) throw Cairn::SystemException("counter file " + path, errno);
  if (!S_ISREG(status.st_mode)) {
    throw Cairn::CorruptionDetectedException("counter file " + path + ": expected a regular file");
  }
  // The header says more about a file of another version than its size does.
  const ssize_t length = pread(file_.get(), &header_, sizeof header_, 0);
  if (length != static_cast<ssize_t>(sizeof header_)) {
    refuse(path, "bytes", bytes_, static_cast<std::uint64_t>(status.st_size));
  }
  check(header_, program, bytes_, path);
  if (static_cast<std::size_t>(status.st_size) != bytes_) {
    refuse(path, "bytes", bytes_, static_cast<std::uint64_t>(status.st_size));
  }
  void* const mapped = mmap(nullptr, bytes_, PROT_READ, MAP_SHARED, file_.get(), 0);
  if (mapped == MAP_FAILED) throw Cairn::SystemException("map counter file " + path, errno);
  mapped_ = mapped;
  guard_ = std::make_unique<Vesta::GuardedMapping>(static_cast<const Vesta::Word*>(mapped_),
                                                   bytes_ / sizeof(Vesta::Word), false);
}

CounterBytes::~CounterBytes() {
  guard_.reset();
  if (mapped_ != nullptr) munmap(mapped_, bytes_);
}

void CounterBytes::copy(std::uint64_t* to, std::size_t count) const {
  // Relaxed, pairs with Counter: words are single and in no order.
  const auto* const from =
      reinterpret_cast<const std::atomic<std::uint64_t>*>(static_cast<const char*>(mapped_) + kPageBytes);
  for (std::size_t i = 0; i < count; ++i) to[i] = from[i].load(std::memory_order_relaxed);
  if (guard_->lostMemory()) {
    throw Cairn::CorruptionDetectedException("counter file " + path_ + ": it was truncated");
  }
}

ProgramState CounterBytes::program(std::uint64_t heartbeat) const {
  ProgramState state;
  state.process = static_cast<pid_t>(header_.pid);
  state.version = textOf(header_.programVersion, sizeof header_.programVersion);
  state.options = textOf(header_.options, sizeof header_.options);
  state.startWall = header_.startWall;
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  lock.l_len = 1;
  state.living = fcntl(file_.get(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
  const std::uint64_t since = std::max(heartbeat, header_.startMonotonic);
  const std::uint64_t now = monotonicNanoseconds();
  state.silence = state.living && now > since ? now - since : 0;
  return state;
}

bool CounterBytes::inPlace() const noexcept {
  struct stat named {};
  struct stat held {};
  return lstat(path_.c_str(), &named) == 0 && fstat(file_.get(), &held) == 0 && named.st_dev == held.st_dev &&
         named.st_ino == held.st_ino;
}

}  // namespace Counters
