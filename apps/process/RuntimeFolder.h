#pragma once

#include <string>

namespace Process {

/// The folder both programs use unless told otherwise: private to the user, in memory.
std::string defaultRuntimeFolder();

/// Makes sure of the folder at `path`: a real directory, this user's own, with rights 0700. Makes it when it
/// is missing. Throws Cairn::Exception saying what was expected and what is there.
void requireRuntimeFolder(const std::string& path);

/// Keeps this process's fast trace in `program`.trace in that folder, beside that of the run before. Throws
/// what Skein::ringIs throws.
void traceInto(const std::string& runtimeFolder, const std::string& program);

}  // namespace Process
