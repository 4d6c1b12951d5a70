#pragma once

#include "p4runtime/AllPluginConfig.h"
#include "p4runtime/CliCommand.h"
#include "p4runtime/PluginStatus.h"
#include "quill/Counted.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

/// Does the cleaning up of one plugin. A plugin with something to clean up derives its own, does its work
/// first and calls this class's handleCleanupRequest last.
class PluginCleanupHelper : public Quill::Typed<PluginCleanupHelper, Quill::PtrInterface> {
 public:
  PluginCleanupHelper(const Quill::Ptr<const AllPluginConfig>& allPluginConfig,
                      const Quill::Ptr<PluginStatus>& pluginStatus,
                      const Quill::Ptr<CliCommandConfig>& cliConfig);
  ~PluginCleanupHelper() override;

  /// Completes the request: counts it in the plugin status, if there is one. This may be where the agent lets
  /// the helper and the plugin go.
  virtual void handleCleanupRequest();

  const Quill::Ptr<const AllPluginConfig>& allPluginConfig() const noexcept { return allPluginConfig_; }
  const Quill::Ptr<PluginStatus>& pluginStatus() const noexcept { return pluginStatus_; }
  const Quill::Ptr<CliCommandConfig>& cliConfig() const noexcept { return cliConfig_; }

  static const Quill::TypeNode _quillType;

 private:
  Quill::Ptr<const AllPluginConfig> allPluginConfig_;
  Quill::Ptr<PluginStatus> pluginStatus_;
  Quill::Ptr<CliCommandConfig> cliConfig_;
};

}  // namespace P4Runtime
