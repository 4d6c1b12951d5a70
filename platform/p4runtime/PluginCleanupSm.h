#pragma once

#include "p4runtime/AllPluginConfig.h"
#include "quill/Counted.h"
#include "quill/TypeNode.h"

namespace P4Runtime {

class P4RuntimePluginBase;

/// Hands the cleanup requests for one plugin to its cleanup helper; to its default helper when it has no own.
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
