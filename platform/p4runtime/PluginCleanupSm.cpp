#include "p4runtime/PluginCleanupSm.h"

#include "p4runtime/P4RuntimePluginBase.h"

namespace P4Runtime {

constinit const Quill::TypeNode PluginCleanupSm::_quillType{.name = "P4Runtime::PluginCleanupSm",
                                                            .members = {}};

PluginCleanupSm::PluginCleanupSm(const Quill::Ptr<const AllPluginConfig>& config, P4RuntimePluginBase* plugin)
    : plugin_(plugin) {
  notifierIs(config);
  isRegisteredNotifieeIs(true);
}

PluginCleanupSm::~PluginCleanupSm() = default;

void PluginCleanupSm::onCleanupsRequested(const Quill::Name& plugin) {
  if (!(plugin == plugin_->name())) return;
  const bool ownHelper = static_cast<bool>(plugin_->pluginCleanupHelper());
  const auto helper = ownHelper ? plugin_->pluginCleanupHelper() : plugin_->defaultPluginCleanupHelper();
  if (helper) helper->handleCleanupRequest();
}

}  // namespace P4Runtime
