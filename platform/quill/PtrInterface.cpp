#include "quill/PtrInterface.h"

#include "quill/TypeNode.h"

namespace Quill {

constinit const TypeNode PtrInterface::_quillType{.name = "Quill::PtrInterface", .members = {}};

NotifieeList& PtrInterface::notifieeList() const { return notifiees_; }

void PtrInterface::hasNotificationActiveIs(bool active) { notificationActive_ = active; }

void PtrInterface::zeroReferencesIs(bool zero) {
  if (!zero) return;
  references_.store(kEndingReferences, std::memory_order_relaxed);
  {
    NotifieeList::Visit visit(notifiees_);
    while (NotifieeConst* reactor = visit.next()) reactor->onZeroReferences();
  }
  delete this;
}

const TypeNode* PtrInterface::fwkType() const { return &_quillType; }

PtrInterface::~PtrInterface() {
  while (NotifieeConst* reactor = notifiees_.front()) {
    notifiees_.remove(reactor);
    reactor->notifierGone();
  }
}

}  // namespace Quill
