#pragma once

#include <string>
#include <vector>

#include "p4runtime/PluginContext.h"

namespace Lumen {
class RowOpsGenerator;
}
namespace Plugin {
class LoaderInitCaller;
}
namespace Quill {
struct TypeNode;
}

namespace P4Runtime {

/// One plugin library in this process: loading, starting, letting go and unloading. What the library
/// registers while it is loaded is told apart by having come during the load, so libraries are loaded one at
/// a time on the agent's thread.
class PluginLibrary {
 public:
  /// Loads the library at `path` (a path with a "/", or a name for the loader's search). Throws
  /// Cairn::Exception with the loader's own words when that fails.
  explicit PluginLibrary(const std::string& path);
  /// Unloads unless done already.
  ~PluginLibrary();
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;

  const std::string& path() const noexcept { return path_; }
  /// The registration names of the library's plugins, in order of registration.
  std::vector<std::string> plugins() const;

  /// Runs the library's callers with `context`, the same at every call. What a plugin throws passes on.
  void init(const Quill::Ptr<PluginContext>& context);

  /// Has every plugin that was started with the context clean up (its tables are removed). What a plugin
  /// throws passes on; the plugins after it are then not asked.
  static void requestCleanup(const PluginContext& context);

  /// Lets go of everything of the library, in this order: the cleanup helpers of its plugins, the table
  /// implementations that the row database got during init(), callers, row-operations generators, type
  /// descriptors; then unloads it. No plugin of it may be held by anybody else.
  void unload();

 private:
  void dropCleanupHelpers() const;

  std::string path_;
  void* handle_ = nullptr;
  Quill::Ptr<PluginContext> context_;                // null before init
  std::vector<Plugin::LoaderInitCaller*> callers_;   // not owned
  std::vector<Lumen::RowOpsGenerator*> generators_;  // not owned
  std::vector<const Quill::TypeNode*> typeNodes_;    // not owned
  std::vector<std::string> tables_;                  // names of those that got their implementation in init
};

}  // namespace P4Runtime
