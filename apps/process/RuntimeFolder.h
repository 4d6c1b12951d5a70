#pragma once

#include <string>

#include "cairn/Descriptor.h"

namespace Process {

/// The folder that both programs use by default: private to the user, in memory.
std::string defaultRuntimeFolder();

/// The folder of the shared-memory tables: a real directory of this user's own with mode 0700.
class RuntimeFolder {
 public:
  /// Opens the folder at `path`, and makes it first when it is missing. A link is refused, also when a slash
  /// follows its name. Throws Cairn::Exception saying what was expected and what is there.
  explicit RuntimeFolder(const std::string& path);

  /// Without trailing slashes and "." or ".." parts.
  const std::string& path() const noexcept { return path_; }
  /// Locks the folder itself for as long as this object lives, whatever becomes of the files in it. Throws
  /// Cairn::Exception naming the process that has locked it already.
  void lock();
  /// Keeps this process's fast trace in `program`.trace in the folder, beside that of the run before. Tracing
  /// is an aid: when the file cannot be made, for want of space for example, that is logged and no more.
  void trace(const std::string& program) const;

 private:
  std::string path_;
  Cairn::Descriptor folder_;
};

}  // namespace Process
