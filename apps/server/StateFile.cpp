#include "apps/server/StateFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "cairn/Exception.h"
#include "cairn/Hash.h"
#include "vesta/files/PrivateFile.h"

namespace Server {

namespace {

struct Header {
  std::array<char, 8> magic;
  std::uint32_t version;
  std::uint32_t checksum;
  std::uint64_t length;
};
static_assert(sizeof(Header) == 24);
constexpr std::array<char, 8> kMagic = {'T', 'o', 'l', 'S', 't', 'a', 't', 'e'};
constexpr const char* kStagedSuffix = ".new";

std::string wholeFile(int file, const std::string& path) {
  std::string bytes;
  std::array<char, 65536> part;
  while (true) {
    const ssize_t length = ::read(file, part.data(), part.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) throw Cairn::SystemException("read " + path, errno);
    if (length == 0) return bytes;
    bytes.append(part.data(), static_cast<std::size_t>(length));
  }
}

void writeAll(int file, std::string_view bytes, const std::string& path) {
  while (!bytes.empty()) {
    const ssize_t length = ::write(file, bytes.data(), bytes.size());
    if (length < 0 && errno == EINTR) continue;
    if (length < 0) throw Cairn::SystemException("write " + path, errno);
    bytes.remove_prefix(static_cast<std::size_t>(length));
  }
}

}  // namespace

StateFile::StateFile(const std::string& folder, std::string name, std::uint32_t version, std::string loss)
    : name_(std::move(name)),
      path_(folder + "/" + name_),
      version_(version),
      loss_(std::move(loss)),
      folder_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (!folder_) throw Cairn::SystemException("open folder " + folder, errno);
}

void StateFile::refuse(const std::string& problem) const {
  throw Cairn::Exception(fmt::format("{}: {}; remove the file to start without {}", path_, problem, loss_));
}

std::uint32_t StateFile::checksumOf(std::string_view contents) const {
  const std::uint64_t length = contents.size();
  std::uint32_t sum = Cairn::checksum(name_.data(), name_.size());
  sum = Cairn::checksum(&version_, sizeof version_, sum);
  sum = Cairn::checksum(&length, sizeof length, sum);
  return Cairn::checksum(contents.data(), contents.size(), sum);
}

std::optional<std::string> StateFile::read() const {
  std::string bytes;
  try {
    const Cairn::Descriptor file = Vesta::openPrivateFile(folder_.get(), name_, O_RDONLY, path_);
    bytes = wholeFile(file.get(), path_);
  } catch (const Cairn::SystemException& failure) {
    if (failure.error() == ENOENT) return std::nullopt;
    throw;
  }
  Header header;
  if (bytes.size() < sizeof header) refuse(fmt::format("expected at least 24 bytes, got {}", bytes.size()));
  std::memcpy(&header, bytes.data(), sizeof header);
  bytes.erase(0, sizeof header);
  if (header.magic != kMagic) refuse("expected a state file, got another file");
  if (header.version != version_) {
    refuse(fmt::format("expected version {}, got {}", version_, header.version));
  }
  if (header.length != bytes.size()) {
    refuse(fmt::format("expected {} bytes of contents, got {}", header.length, bytes.size()));
  }
  if (header.checksum != checksumOf(bytes)) refuse("the checksum does not fit, so the file is damaged");
  return bytes;
}

void StateFile::stage(std::string_view contents) {
  const std::string name = name_ + kStagedSuffix;
  const std::string path = path_ + kStagedSuffix;
  // One that a killed agent has left, or another file with its name, is in the way.
  ::unlinkat(folder_.get(), name.c_str(), 0);
  const Cairn::Descriptor file =
      Vesta::openPrivateFile(folder_.get(), name, O_WRONLY | O_CREAT | O_EXCL, path);
  const Header header{kMagic, version_, checksumOf(contents), contents.size()};
  writeAll(file.get(), {reinterpret_cast<const char*>(&header), sizeof header}, path);
  writeAll(file.get(), contents, path);
}

void StateFile::publish() {
  if (::renameat(folder_.get(), (name_ + kStagedSuffix).c_str(), folder_.get(), name_.c_str()) != 0) {
    throw Cairn::SystemException("replace " + path_, errno);
  }
}

}  // namespace Server
