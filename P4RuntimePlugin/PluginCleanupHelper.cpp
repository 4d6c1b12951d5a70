#include "P4RuntimePlugin/PluginCleanupHelper.h"

#include "P4RuntimePlugin/LoadTime.h"
#include "P4RuntimePlugin/P4RuntimeTolmarPlugin.h"
#include "P4RuntimePlugin/Trace.h"
#include "quill/Generic.h"

namespace P4RuntimeTolmar {

namespace {

constexpr const char* kSource = "./P4RuntimePlugin/PluginCleanupHelper";

constexpr Quill::Member kMembers[] = {
    Quill::genericReader<&P4Runtime::PluginCleanupHelper::allPluginConfig>("allPluginConfig",
                                                                           "P4Runtime::AllPluginConfig"),
    Quill::genericReader<&P4Runtime::PluginCleanupHelper::pluginStatus>("pluginStatus",
                                                                        "P4Runtime::PluginStatus"),
    Quill::genericReader<&P4Runtime::PluginCleanupHelper::cliConfig>("cliConfig",
                                                                     "P4Runtime::CliCommandConfig"),
    Quill::genericReader<&PluginCleanupHelper::parent>("parent", "P4RuntimeTolmar::TolmarP4RuntimePlugin"),
    Quill::genericReader<&PluginCleanupHelper::name>("name"),
    Quill::genericOperation<&PluginCleanupHelper::handleCleanupRequest>("handleCleanupRequest"),
};

}  // namespace

constinit const Quill::TypeNode PluginCleanupHelper::_quillType{
    .name = "P4RuntimeTolmar::PluginCleanupHelper", .members = kMembers};

PluginCleanupHelper::PluginCleanupHelper(const Quill::Ptr<const P4Runtime::AllPluginConfig>& allPluginConfig,
                                         const Quill::Ptr<P4Runtime::PluginStatus>& pluginStatus,
                                         const Quill::Ptr<P4Runtime::CliCommandConfig>& cliConfig,
                                         const Quill::Ptr<TolmarP4RuntimePlugin>& parent)
    : Typed(allPluginConfig, pluginStatus, cliConfig), parent_(parent) {}

PluginCleanupHelper::~PluginCleanupHelper() = default;

Quill::Name PluginCleanupHelper::name() const { return parent_ ? parent_->name() : Quill::Name(); }

void PluginCleanupHelper::handleCleanupRequest() {
  static constinit const TracePoint trace{4, kSource, __LINE__, "handleCleanupRequest",
                                          "TolmarP4RuntimePlugin::handleCleanupRequest"};
  trace(pluginTrace());
  // The plugin is held only during its call. No member is used after the base operation, in which the agent
  // may release the helper and the plugin.
  if (const Quill::Ptr<TolmarP4RuntimePlugin> plugin = parent_) plugin->doCleanup();
  P4Runtime::PluginCleanupHelper::handleCleanupRequest();
}

}  // namespace P4RuntimeTolmar
