#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "cairn/Descriptor.h"

namespace Vesta {

/// Locks that end when their holder dies: open-file-description locks on single bytes of a file that is never
/// removed or renamed. Objects of one process exclude each other as processes do.
class LockFile {
 public:
  static constexpr long kWriter = 0;    ///< held by the writer for as long as it is attached
  static constexpr long kCreation = 1;  ///< held while a process creates, recovers or replaces the segment
  static constexpr long readerByte(unsigned reader) { return 64 + static_cast<long>(reader); }
  /// Also held by reader n while it is attached or about to attach; released if the segment is incompatible.
  static constexpr long followerByte(unsigned reader) { return 128 + static_cast<long>(reader); }

  /// Opens or creates `name` in the folder `folderDescriptor`; `path` is for messages.
  LockFile(int folderDescriptor, const std::string& name, const std::string& path);
  /// Opens an existing file for queries alone. Throws Cairn::SystemException, also ENOENT.
  explicit LockFile(const std::string& path);

  bool tryLock(long byte);
  /// False when another object has held it for longer than `bound`.
  bool lockWithin(long byte, std::chrono::milliseconds bound);
  void unlock(long byte) noexcept;
  /// Whether another object holds it.
  bool heldElsewhere(long byte) const { return !heldElsewhere(byte, byte + 1).empty(); }
  /// Those of the bytes from `first` up to but not including `end` that other objects hold, in any order.
  std::vector<long> heldElsewhere(long first, long end) const;
  const std::string& path() const noexcept { return path_; }
  /// False once the path names another file or none.
  bool inPlace() const noexcept;

 private:
  std::string path_;
  Cairn::Descriptor file_;
};

/// Holds the creation lock while it lives; its constructor throws Cairn::Exception when another object has
/// held the lock for longer than `bound`.
class CreationLock {
 public:
  static constexpr std::chrono::milliseconds kUsualBound{5000};

  CreationLock(LockFile& file, const std::string& path, std::chrono::milliseconds bound = kUsualBound);
  ~CreationLock() { file_.unlock(LockFile::kCreation); }
  CreationLock(const CreationLock&) = delete;
  CreationLock& operator=(const CreationLock&) = delete;

 private:
  LockFile& file_;
};

}  // namespace Vesta
