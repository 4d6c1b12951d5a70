#pragma once

#include "p4runtime/PluginCleanup.h"

namespace P4RuntimeTolmar {

class TolmarP4RuntimePlugin;

/// Cleans up the plugin on the agent's request. Plugin and helper hold each other; the agent breaks the cycle
/// by clearing the plugin's pluginCleanupHelper attribute.
class PluginCleanupHelper final : public Quill::Typed<PluginCleanupHelper, P4Runtime::PluginCleanupHelper> {
 public:
  PluginCleanupHelper(const Quill::Ptr<const P4Runtime::AllPluginConfig>& allPluginConfig,
                      const Quill::Ptr<P4Runtime::PluginStatus>& pluginStatus,
                      const Quill::Ptr<P4Runtime::CliCommandConfig>& cliConfig,
                      const Quill::Ptr<TolmarP4RuntimePlugin>& parent);
  ~PluginCleanupHelper() override;

  /// Unmounts the config tables if there is a parent, then completes the request. The request is not
  /// completed if an unmount throws.
  void handleCleanupRequest() override;

  /// The plugin; may be null.
  const Quill::Ptr<TolmarP4RuntimePlugin>& parent() const noexcept { return parent_; }
  /// The plugin's name; empty without a parent.
  Quill::Name name() const;

  static const Quill::TypeNode _quillType;

 private:
  Quill::Ptr<TolmarP4RuntimePlugin> parent_;
};

}  // namespace P4RuntimeTolmar
