#include "orrery/Mounter.h"

#include "orrery/EntityManager.h"
#include "quill/Generic.h"

namespace Orrery {

namespace {

constexpr Quill::Member kMembers[] = {
    Quill::genericOperation<&Mounter::handleMountStatus>("handleMountStatus"),
};

}  // namespace

constinit const Quill::TypeNode Mounter::_quillType{
    .name = "Orrery::Mounter", .members = kMembers, .base = &Quill::Entity::_quillType};

Mounter::~Mounter() {
  if (pending_) *pending_ = {};
}

const Quill::TypeNode* Mounter::fwkType() const { return &_quillType; }

void Mounter::doMountsComplete(MountStatus, const Quill::Ptr<EntityManager>&) {}

void Mounter::handleMountStatus(MountStatus) {}

}  // namespace Orrery
