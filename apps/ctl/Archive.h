#pragma once

#include <string>
#include <string_view>

struct archive;

namespace Ctl {

/// A .tar.gz file that is being written.
class Archive {
 public:
  /// Creates the file, mode 0600. Throws Cairn::SystemException, also when there is one of that name.
  explicit Archive(const std::string& path);
  /// Removes the file unless finish() has returned.
  ~Archive();
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;

  /// Adds a file. Throws Cairn::Exception.
  void add(const std::string& name, std::string_view contents);
  /// Adds a copy of the file at `path`, as it is now; false when it cannot be read. Throws Cairn::Exception.
  bool addCopy(const std::string& name, const std::string& path);
  void finish();

 private:
  void header(const std::string& name, std::size_t size);
  void write(const char* bytes, std::size_t size);
  void require(int result);

  std::string path_;
  int file_;
  archive* archive_;  // owned
  bool finished_ = false;
};

}  // namespace Ctl
