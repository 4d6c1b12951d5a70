#include "p4runtime/PluginStatus.h"

#include "quill/Attribute.h"

namespace P4Runtime {

constinit const Quill::TypeNode PluginStatus::_quillType{.name = "P4Runtime::PluginStatus", .members = {}};

PluginStatus::~PluginStatus() = default;
constinit const Quill::TypeNode PluginStatus::NotifieeConst::_quillType{
    .name = "P4Runtime::PluginStatus::NotifieeConst", .members = {}};
const Quill::TypeNode* PluginStatus::NotifieeConst::fwkType() const { return &_quillType; }
PluginStatus::NotifieeConst::~NotifieeConst() = default;
void PluginStatus::NotifieeConst::onCleanupsCompleted() {}

void PluginStatus::cleanupsCompletedIs(std::uint32_t count) {
  Quill::attributeIs(*this, cleanupsCompleted_, count, &NotifieeConst::onCleanupsCompleted);
}

}  // namespace P4Runtime
