#pragma once

#include "p4runtime/PluginCleanup.h"

namespace P4RuntimeTolmar {

class TolmarP4RuntimePlugin;

/// Cleans up after the plugin when the agent asks for it. Holds the plugin, which holds it: the agent ends
/// the cycle by clearing the plugin's pluginCleanupHelper attribute.
class PluginCleanupHelper final : public Quill::Typed<PluginCleanupHelper, P4Runtime::PluginCleanupHelper> {
 public:
  PluginCleanupHelper(const Quill::Ptr<const P4Runtime::AllPluginConfig>& allPluginConfig,
                      const Quill::Ptr<P4Runtime::PluginStatus>& pluginStatus,
                      const Quill::Ptr<P4Runtime::CliCommandConfig>& cliConfig,
                      const Quill::Ptr<TolmarP4RuntimePlugin>& parent);
  ~PluginCleanupHelper() override;

  /// Unmounts the config tables, then completes the request; only completes it without a parent. When an
  /// unmount throws, the request is not completed.
  void handleCleanupRequest() override;

  /// The plugin, or null.
  const Quill::Ptr<TolmarP4RuntimePlugin>& parent() const noexcept { return parent_; }
  /// The plugin's name; empty without a parent.
  Quill::Name name() const;

  static const Quill::TypeNode _quillType;

 private:
  Quill::Ptr<TolmarP4RuntimePlugin> parent_;
};

}  // namespace P4RuntimeTolmar
