#include "p4runtime/CliCommand.h"

namespace P4Runtime {

constinit const Quill::TypeNode CliCommandConfig::_quillType{.name = "P4Runtime::CliCommandConfig",
                                                             .members = {}};
Quill::AllocTrackTypeInfo CliCommandConfig::quillAllocTrackTypeInfo_;
void CliCommandConfig::operator delete(void* memory) noexcept {
  Quill::deallocate(memory, quillAllocTrackTypeInfo_);
}
CliCommandConfig::~CliCommandConfig() = default;
const Quill::TypeNode* CliCommandConfig::fwkType() const { return &_quillType; }

constinit const Quill::TypeNode CliCommandStatus::_quillType{.name = "P4Runtime::CliCommandStatus",
                                                             .members = {}};
Quill::AllocTrackTypeInfo CliCommandStatus::quillAllocTrackTypeInfo_;
void CliCommandStatus::operator delete(void* memory) noexcept {
  Quill::deallocate(memory, quillAllocTrackTypeInfo_);
}
CliCommandStatus::~CliCommandStatus() = default;
const Quill::TypeNode* CliCommandStatus::fwkType() const { return &_quillType; }

}  // namespace P4Runtime
