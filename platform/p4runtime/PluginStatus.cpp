#include "p4runtime/PluginStatus.h"

#include "quill/Attribute.h"

namespace P4Runtime {

constinit const Quill::TypeNode PluginStatus::_quillType{.name = "P4Runtime::PluginStatus", .members = {}};
Quill::AllocTrackTypeInfo PluginStatus::quillAllocTrackTypeInfo_;
void PluginStatus::operator delete(void* memory) noexcept {
  Quill::deallocate(memory, quillAllocTrackTypeInfo_);
}

PluginStatus::~PluginStatus() = default;
PluginStatus::NotifieeConst::~NotifieeConst() = default;
void PluginStatus::NotifieeConst::onCleanupsCompleted() {}

const Quill::TypeNode* PluginStatus::fwkType() const { return &_quillType; }

void PluginStatus::cleanupsCompletedIs(std::uint32_t count) {
  Quill::attributeIs(*this, cleanupsCompleted_, count, &NotifieeConst::onCleanupsCompleted);
}

}  // namespace P4Runtime
