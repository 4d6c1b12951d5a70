#pragma once

#include <sys/types.h>

#include <string>

#include "cairn/Descriptor.h"
#include "vesta/files/LockFile.h"

namespace Server {

/// A listening Unix socket at a path, mode 0600, and the lock beside it ("<path>.lock") that makes its owner
/// the only one: a second server is refused at once, whatever the first is doing, and a socket that a killed
/// server has left is replaced.
class UnixSocket {
 public:
  /// Throws Cairn::Exception, saying what was expected and what is there, for a path that is served, too long
  /// or taken by another file, and Cairn::SystemException when the system refuses.
  explicit UnixSocket(const std::string& path);
  /// Removes the socket unless another one is in its place.
  ~UnixSocket();
  UnixSocket(const UnixSocket&) = delete;
  UnixSocket& operator=(const UnixSocket&) = delete;

  /// Listening and non-blocking.
  int descriptor() const noexcept { return listener_.get(); }

 private:
  std::string path_;
  Cairn::Descriptor folder_;
  Vesta::LockFile lock_;
  Cairn::Descriptor listener_;
  dev_t device_ = 0;  // with the inode, the socket's own file
  ino_t inode_ = 0;
};

}  // namespace Server
