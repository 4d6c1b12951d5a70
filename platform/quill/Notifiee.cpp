#include "quill/Notifiee.h"

#include <cstdio>

namespace Quill {

NotifieeConst::~NotifieeConst() {
  if (notifier_ == nullptr) return;
  notifier_->notifieeList().remove(this);
  if (hold_ == Hold::counted) notifier_->referenceDel();
}

NotifieeConst* NotifieeConst::quillReactor() { return this; }

void NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_) return;
  registered_ = registered;
  if (notifier_ == nullptr) return;
  if (registered) {
    notifier_->notifieeList().add(this);
  } else {
    notifier_->notifieeList().remove(this);
  }
}

void NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier.get() == notifier_) return;
  const PtrInterface* const old = std::exchange(notifier_, notifier.get());
  if (notifier_ != nullptr) {
    if (hold_ == Hold::counted) notifier_->referenceIs();
    if (registered_) notifier_->notifieeList().add(this);
  }
  if (old != nullptr) {
    old->notifieeList().remove(this);
    if (hold_ == Hold::counted) old->referenceDel();
  }
}

void NotifieeConst::handleNotification(const Notification& notification) {
  try {
    notification(*this);
  } catch (const std::exception& exception) {
    onNotificationException(exception);
  }
}

void NotifieeConst::onNotificationException(const std::exception& exception) {
  std::fprintf(stderr, "exception in a reactor: %s\n", exception.what());
}

void NotifieeConst::onZeroReferences() {}
EventLoop* NotifieeConst::quillFwkActivity() { return nullptr; }
PtrInterface* NotifieeConst::actsm() { return nullptr; }

void NotifieeConst::notifierGone() noexcept { notifier_ = nullptr; }

}  // namespace Quill
