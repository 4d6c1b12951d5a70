#include "p4runtime/PluginCleanup.h"

#include "p4runtime/P4RuntimePluginBase.h"

namespace P4Runtime {

constinit const Quill::TypeNode PluginCleanupHelper::_quillType{.name = "P4Runtime::PluginCleanupHelper",
                                                                .members = {}};
constinit const Quill::TypeNode PluginCleanupSm::_quillType{.name = "P4Runtime::PluginCleanupSm",
                                                            .members = {}};

PluginCleanupHelper::PluginCleanupHelper(const Quill::Ptr<const AllPluginConfig>& allPluginConfig,
                                         const Quill::Ptr<PluginStatus>& pluginStatus,
                                         const Quill::Ptr<CliCommandConfig>& cliConfig)
    : allPluginConfig_(allPluginConfig), pluginStatus_(pluginStatus), cliConfig_(cliConfig) {}

PluginCleanupHelper::~PluginCleanupHelper() = default;

void PluginCleanupHelper::handleCleanupRequest() {
  const Quill::Ptr<PluginStatus> status = pluginStatus_;  // a reactor of it may release this helper
  if (status) status->cleanupsCompletedIs(status->cleanupsCompleted() + 1);
}

PluginCleanupSm::PluginCleanupSm(const Quill::Ptr<const AllPluginConfig>& config, P4RuntimePluginBase* plugin)
    : plugin_(plugin) {
  notifierIs(config);
  isRegisteredNotifieeIs(true);
}

PluginCleanupSm::~PluginCleanupSm() = default;

void PluginCleanupSm::onCleanupsRequested(const Quill::Name& plugin) {
  if (plugin == plugin_->name()) plugin_->requestCleanup();
}

}  // namespace P4Runtime
