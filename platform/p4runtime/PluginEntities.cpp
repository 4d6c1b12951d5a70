#include "p4runtime/PluginEntities.h"

#include "quill/Attribute.h"

namespace P4Runtime {

constinit const Quill::TypeNode CliCommandConfig::_quillType{.name = "P4Runtime::CliCommandConfig",
                                                             .members = {}};
constinit const Quill::TypeNode CliCommandStatus::_quillType{.name = "P4Runtime::CliCommandStatus",
                                                             .members = {}};
constinit const Quill::TypeNode AllPluginConfig::_quillType{.name = "P4Runtime::AllPluginConfig",
                                                            .members = {}};
constinit const Quill::TypeNode AllPluginConfig::NotifieeConst::_quillType{
    .name = "P4Runtime::AllPluginConfig::NotifieeConst", .members = {}};
constinit const Quill::TypeNode PluginStatus::_quillType{.name = "P4Runtime::PluginStatus", .members = {}};
constinit const Quill::TypeNode PluginStatus::NotifieeConst::_quillType{
    .name = "P4Runtime::PluginStatus::NotifieeConst", .members = {}};

CliCommandConfig::~CliCommandConfig() = default;
CliCommandStatus::~CliCommandStatus() = default;

AllPluginConfig::~AllPluginConfig() = default;
AllPluginConfig::NotifieeConst::~NotifieeConst() = default;
void AllPluginConfig::NotifieeConst::onCleanupsRequested(const Quill::Name&) {}

std::uint32_t AllPluginConfig::cleanupsRequested(const Quill::Name& plugin) const {
  const auto found = cleanupsRequested_.find(plugin.stringValue());
  return found == cleanupsRequested_.end() ? 0 : found->second;
}

void AllPluginConfig::cleanupsRequestedIs(const Quill::Name& plugin, std::uint32_t count) {
  if (cleanupsRequested(plugin) == count) return;
  cleanupsRequested_[plugin.stringValue()] = count;
  const Quill::Name name = plugin;  // may be that of a plugin that is destroyed by its cleanup
  notify<NotifieeConst>([&name](NotifieeConst& reactor) { reactor.onCleanupsRequested(name); });
}

PluginStatus::~PluginStatus() = default;
PluginStatus::NotifieeConst::~NotifieeConst() = default;
void PluginStatus::NotifieeConst::onCleanupsCompleted() {}

void PluginStatus::cleanupsCompletedIs(std::uint32_t count) {
  Quill::attributeIs(*this, cleanupsCompleted_, count, &NotifieeConst::onCleanupsCompleted);
}

}  // namespace P4Runtime
