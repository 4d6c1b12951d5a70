#include "quill/Notifiee.h"

#include <atomic>
#include <cstdio>

#include "quill/TypeNode.h"

namespace Quill {

constinit const TypeNode NotifieeConst::_quillType{.name = "Quill::NotifieeConst", .members = {}};

const TypeNode* NotifieeConst::fwkType() const { return &_quillType; }

NotifieeConst::~NotifieeConst() {
  if (notifier_ == nullptr) return;
  notifier_->notifieeList().remove(this);
  if (hold_ == Hold::counted) notifier_->referenceDel();
}

NotifieeConst* NotifieeConst::quillReactor() { return this; }

void NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  if (registered == registered_) return;
  if (notifier_ != nullptr) {
    if (registered) {
      notifier_->notifieeList().add(this);
    } else {
      notifier_->notifieeList().remove(this);
    }
  }
  registered_ = registered;
}

void NotifieeConst::notifierIs(const Ptr<const PtrInterface>& notifier) {
  if (notifier.get() == notifier_) return;
  // The one step that can fail comes first: the reactor then follows its old notifier as before.
  if (notifier && registered_) notifier->notifieeList().add(this);
  if (notifier && hold_ == Hold::counted) notifier->referenceIs();
  const PtrInterface* const old = std::exchange(notifier_, notifier.get());
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

namespace {

std::atomic<std::uint64_t> failures{0};

void toStandardError(const char* line) { std::fprintf(stderr, "%s\n", line); }

std::atomic<void (*)(const char*)> failureSink{&toStandardError};

}  // namespace

std::uint64_t NotifieeConst::failedNotifications() noexcept { return failures.load(); }

void NotifieeConst::failureSinkIs(void (*sink)(const char* line)) noexcept {
  failureSink = sink != nullptr ? sink : &toStandardError;
}

// Without an allocation: the exception may be that there is no memory.
void NotifieeConst::onNotificationException(const std::exception& exception) {
  ++failures;
  char line[1024];
  std::snprintf(line, sizeof line, "exception in a reactor: %s", exception.what());
  failureSink.load()(line);
}

void NotifieeConst::onZeroReferences() {}
EventLoop* NotifieeConst::quillFwkActivity() { return nullptr; }
PtrInterface* NotifieeConst::actsm() { return nullptr; }

void NotifieeConst::notifierGone() noexcept { notifier_ = nullptr; }

}  // namespace Quill
