#include "p4runtime/PluginStatus.h"

#include "quill/Attribute.h"

namespace P4Runtime {

constinit const Quill::TypeNode PluginStatus::_quillType{.name = "P4Runtime::PluginStatus", .members = {}};

PluginStatus::~PluginStatus() = default;
PluginStatus::NotifieeConst::~NotifieeConst() = default;
void PluginStatus::NotifieeConst::onCleanupsCompleted() {}

void PluginStatus::cleanupsCompletedIs(std::uint32_t count) {
  Quill::attributeIs(*this, cleanupsCompleted_, count, &NotifieeConst::onCleanupsCompleted);
}

}  // namespace P4Runtime
