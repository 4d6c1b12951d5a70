#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "apps/core/BeforeImages.h"
#include "apps/ctl/Entry.h"

namespace Ctl {

/// The programs, as their files in the folder are called.
inline constexpr std::string_view kAgent = "p4rt-agent";
inline constexpr std::string_view kHardwareAgent = "hw-agent";

/// A runtime folder, read from outside: nothing in it is created, changed or locked.
class Folder {
 public:
  /// Throws Cairn::Exception for what is not a folder with files of the programs in it.
  explicit Folder(const std::string& path);

  const std::string& path() const noexcept { return path_; }
  std::string file(std::string_view name) const { return path_ + "/" + std::string(name); }
  /// Every regular file below the folder, by its path in it; sorted.
  std::vector<std::string> files() const;
  /// Those of the traces that exist, the previous runs' included.
  std::vector<std::string> traces() const;
  /// The undecided updates of the agent; none without a file. Throws what BeforeImages::read throws.
  Agent::BeforeImages::Contents beforeImages() const;

 private:
  std::string path_;
};

/// The state of a process. `living`: it holds the lock of a writer.
Writer writerOf(pid_t process, bool living);

}  // namespace Ctl
