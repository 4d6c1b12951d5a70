// Cleanup of one plugin: from the agent's request to its completion.
#pragma once

#include "p4runtime/PluginEntities.h"
#include "quill/Counted.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

class P4RuntimePluginBase;

/// Cleans up after one plugin. A plugin that has something to clean up derives its own helper, which does its
/// work first and calls this class's handleCleanupRequest last.
class PluginCleanupHelper : public Quill::Typed<PluginCleanupHelper, Quill::PtrInterface> {
 public:
  PluginCleanupHelper(const Quill::Ptr<const AllPluginConfig>& allPluginConfig,
                      const Quill::Ptr<PluginStatus>& pluginStatus,
                      const Quill::Ptr<CliCommandConfig>& cliConfig);
  ~PluginCleanupHelper() override;

  /// Completes the request: counts it in the plugin status, if there is one. The agent may release the helper
  /// and the plugin in this call.
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

/// Passes the cleanup requests for one plugin to its cleanup helper.
class PluginCleanupSm : public Quill::Typed<PluginCleanupSm, AllPluginConfig::NotifieeConst> {
 public:
  /// `plugin` is not owned and outlives the state machine.
  PluginCleanupSm(const Quill::Ptr<const AllPluginConfig>& config, P4RuntimePluginBase* plugin);
  ~PluginCleanupSm() override;

  void onCleanupsRequested(const Quill::Name& plugin) override;

  static const Quill::TypeNode _quillType;

 private:
  P4RuntimePluginBase* plugin_;  // not owned
};

}  // namespace P4Runtime
