#include "p4runtime/PluginCleanupHelper.h"

namespace P4Runtime {

constinit const Quill::TypeNode PluginCleanupHelper::_quillType{.name = "P4Runtime::PluginCleanupHelper",
                                                                .members = {}};

PluginCleanupHelper::PluginCleanupHelper(const Quill::Ptr<const AllPluginConfig>& allPluginConfig,
                                         const Quill::Ptr<PluginStatus>& pluginStatus,
                                         const Quill::Ptr<CliCommandConfig>& cliConfig)
    : allPluginConfig_(allPluginConfig), pluginStatus_(pluginStatus), cliConfig_(cliConfig) {}

PluginCleanupHelper::~PluginCleanupHelper() = default;

void PluginCleanupHelper::handleCleanupRequest() {
  // A reactor of the status may let this helper go, so the status is held from here.
  const Quill::Ptr<PluginStatus> status = pluginStatus_;
  if (status) status->cleanupsCompletedIs(status->cleanupsCompleted() + 1);
}

}  // namespace P4Runtime
