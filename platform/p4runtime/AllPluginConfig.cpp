#include "p4runtime/AllPluginConfig.h"

namespace P4Runtime {

constinit const Quill::TypeNode AllPluginConfig::_quillType{.name = "P4Runtime::AllPluginConfig",
                                                            .members = {}};

AllPluginConfig::~AllPluginConfig() = default;
constinit const Quill::TypeNode AllPluginConfig::NotifieeConst::_quillType{
    .name = "P4Runtime::AllPluginConfig::NotifieeConst", .members = {}};
const Quill::TypeNode* AllPluginConfig::NotifieeConst::fwkType() const { return &_quillType; }
AllPluginConfig::NotifieeConst::~NotifieeConst() = default;
void AllPluginConfig::NotifieeConst::onCleanupsRequested(const Quill::Name&) {}

std::uint32_t AllPluginConfig::cleanupsRequested(const Quill::Name& plugin) const {
  const auto found = cleanupsRequested_.find(plugin.stringValue());
  return found == cleanupsRequested_.end() ? 0 : found->second;
}

void AllPluginConfig::cleanupsRequestedIs(const Quill::Name& plugin, std::uint32_t count) {
  if (cleanupsRequested(plugin) == count) return;
  cleanupsRequested_[plugin.stringValue()] = count;
  const Quill::Name name = plugin;  // may be that of a plugin that goes in its cleanup
  notify<NotifieeConst>([&name](NotifieeConst& reactor) { reactor.onCleanupsRequested(name); });
}

}  // namespace P4Runtime
