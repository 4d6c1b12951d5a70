#include "orrery/Mounter.h"

namespace Orrery {

Mounter::~Mounter() = default;

void Mounter::doMountsComplete(MountStatus, const Quill::Ptr<EntityManager>&) {}

void Mounter::handleMountStatus(MountStatus) {}

}  // namespace Orrery
