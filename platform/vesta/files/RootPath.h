#pragma once

#include <string>

namespace Vesta {

/// Where a table lives: <rootFolder>/<path>/<collection>. `path` is relative, its parts joined by single "/";
/// parts are neither empty nor "." nor ".."; `collection` is one such part.
class RootPath {
 public:
  /// Throws Cairn::Exception for a path or collection of another form.
  RootPath(std::string rootFolder, std::string path, std::string collection);

  const std::string& rootFolder() const noexcept { return rootFolder_; }
  const std::string& path() const noexcept { return path_; }
  const std::string& collection() const noexcept { return collection_; }

  /// The folder of the segment file, its lock file and its wake-up files.
  std::string folder() const { return rootFolder_ + "/" + path_; }
  /// The segment file; names the table in messages.
  std::string text() const { return folder() + "/" + collection_; }
  /// The table's name in the service: the socket-name prefix, the path and the collection joined by ".".
  std::string vestaName() const;

  /// First part of the names of wake-up files.
  static constexpr const char* kSocketNamePrefix = "vesta";
  /// The prefix of the base memory root path.
  static constexpr const char* kMemoryPrefix = "shmem";

  friend bool operator==(const RootPath&, const RootPath&) = default;

 private:
  std::string rootFolder_;
  std::string path_;
  std::string collection_;
};

}  // namespace Vesta
