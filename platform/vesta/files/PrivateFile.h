#pragma once

#include <sys/stat.h>

#include <string>

#include "cairn/Descriptor.h"

namespace Vesta {

/// Opens the folder <root>/<path>, creating what is missing with mode 0700. No symbolic link is followed
/// below the root, and every folder below it must belong to this user and be closed to others.
Cairn::Descriptor openPrivateFolder(const std::string& root, const std::string& path);

/// Opens a regular file of this user with mode 0600 and no other, creating it when `flags` has O_CREAT.
/// `path` is for messages. Throws Cairn::SystemException, also ENOENT, and Cairn::Exception for a file of
/// another kind, owner or mode.
Cairn::Descriptor openPrivateFile(int folder, const std::string& name, int flags, const std::string& path);

/// Opens a regular file for reading, whatever its owner and mode, for processes that only read. `path` is for
/// messages. Throws Cairn::SystemException, also ENOENT, and Cairn::Exception for another kind of file.
Cairn::Descriptor openToRead(const std::string& path);

/// Throws Cairn::Exception unless `status` is that of this user's file of `kind` (S_IFREG, S_IFIFO) and mode
/// 0600.
void requirePrivate(const struct stat& status, mode_t kind, const std::string& path);

}  // namespace Vesta
