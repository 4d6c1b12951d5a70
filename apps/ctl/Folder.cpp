#include "apps/ctl/Folder.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "P4RuntimeTolmar/OutputTables.h"
#include "cairn/Exception.h"

namespace Ctl {

namespace {

namespace fs = std::filesystem;

[[noreturn]] void refuse(const std::string& path, const std::string& problem) {
  throw Cairn::Exception("runtime folder " + path + ": " + problem);
}

}  // namespace

Folder::Folder(const std::string& path) : path_(fs::path(path).lexically_normal().string()) {
  if (path_.size() > 1 && path_.back() == '/') path_.pop_back();
  struct stat status {};
  if (::stat(path_.c_str(), &status) != 0) {
    refuse(path_, errno == ENOENT ? "there is none; neither program has run with it (--runtime-folder DIR)"
                                  : std::strerror(errno));
  }
  if (!S_ISDIR(status.st_mode)) refuse(path_, "expected a folder, found another file");
  std::error_code error;
  const bool isEmpty = fs::directory_iterator(path_, error) == fs::directory_iterator();
  if (error) refuse(path_, error.message());
  const std::string tables(TolmarHwLib::kOutputTablePrefix);
  const auto counts = [&](std::string_view program) {
    return fs::exists(file(std::string(program) + ".counters"), error);
  };
  if (isEmpty ||
      (!fs::exists(file(tables), error) && traces().empty() && !counts(kAgent) && !counts(kHardwareAgent))) {
    refuse(path_, "neither tables (" + tables + ") nor a trace or counters of " + std::string(kAgent) +
                      " or " + std::string(kHardwareAgent) + " in it; neither program has run with it");
  }
}

std::vector<std::string> Folder::files() const {
  std::vector<std::string> found;
  std::error_code error;
  constexpr auto kOptions = fs::directory_options::skip_permission_denied;
  for (fs::recursive_directory_iterator at(path_, kOptions, error), end; at != end && !error;
       at.increment(error)) {
    if (at->is_regular_file(error)) found.push_back(fs::path(at->path()).lexically_relative(path_).string());
  }
  std::sort(found.begin(), found.end());
  return found;
}

std::vector<std::string> Folder::traces() const {
  std::vector<std::string> found;
  for (const std::string_view program : {kAgent, kHardwareAgent}) {
    for (const char* const ending : {".trace.old", ".trace"}) {
      std::string name = file(std::string(program) + ending);
      struct stat status {};
      if (::lstat(name.c_str(), &status) == 0) found.push_back(std::move(name));
    }
  }
  return found;
}

Agent::BeforeImages::Contents Folder::beforeImages() const {
  try {
    return Agent::BeforeImages::read(file(std::string(kAgent) + ".undo"));
  } catch (const Cairn::SystemException& failure) {
    if (failure.error() != ENOENT) throw;
    return {};
  }
}

Writer writerOf(pid_t process, bool living) {
  if (!living) return {process == 0 ? Writer::State::none : Writer::State::gone, process};
  std::ifstream stat("/proc/" + std::to_string(process) + "/stat");
  std::string text;
  std::getline(stat, text);
  // The state follows the program's name, which is in brackets and may hold any character.
  const std::size_t end = text.rfind(')');
  const bool stopped = end != std::string::npos && end + 2 < text.size() && text[end + 2] == 'T';
  return {stopped ? Writer::State::stopped : Writer::State::running, process};
}

}  // namespace Ctl
