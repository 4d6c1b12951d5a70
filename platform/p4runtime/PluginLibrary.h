#pragma once

#include <string>
#include <vector>

#include "p4runtime/PluginContext.h"

namespace P4Runtime {

/// One plugin library in this process: loading, starting, releasing and unloading. It is the registrant of
/// all that the library registers while it is loaded and started. Used on the agent's thread.
class PluginLibrary {
 public:
  /// Loads the library at `path` (a path with a "/", or a name for the loader's search). Throws
  /// Cairn::Exception with the loader's own words when that fails, or if the library is in the process
  /// already: it would not register anything a second time.
  explicit PluginLibrary(const std::string& path);
  /// Unloads unless done already.
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  const std::string& path() const noexcept { return path_; }
  /// The registration names of the library's plugins, in order of registration; none after unload().
  std::vector<std::string> plugins() const;

  /// Runs the library's callers with `context`. Exceptions of the plugins propagate; LmTableError if another
  /// library serves one of its tables in the same row database. Throws Cairn::Exception after unload(), or
  /// for a context other than that of an earlier call.
  void init(const Quill::Ptr<PluginContext>& context);

  /// Has every plugin that was started with the context clean up (its tables are removed). An exception of a
  /// plugin propagates, and the plugins after it are not cleaned up.
  static void requestCleanup(const PluginContext& context);

  /// Releases everything of the library, in this order: the cleanup helpers of its plugins, the table
  /// implementations that the row database got during init(), callers, type descriptors; then unloads it. No
  /// plugin of it may be held by anybody else.
  void unload();

 private:
  void dropCleanupHelpers() const;

  std::string path_;
  void* handle_ = nullptr;  // null once unloaded
  Quill::Registrant registrant_;
  Quill::Ptr<PluginContext> context_;  // null before init
};

}  // namespace P4Runtime
