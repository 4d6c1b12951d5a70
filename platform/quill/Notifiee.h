// The base of every reactor. A reactor follows one notifier. It is called only while it is registered in the
// notifier's list and active, and the notifier is active as well.
#pragma once

#include <cstdint>
#include <exception>

#include "quill/PtrInterface.h"

namespace Quill {

class EventLoop;

/// One call that is being delivered to a reactor.
class Notification {
 public:
  template <class Call>
  explicit Notification(const Call& call)
      : call_(
            [](const void* target, NotifieeConst& reactor) { (*static_cast<const Call*>(target))(reactor); }),
        target_(&call) {}
  void operator()(NotifieeConst& reactor) const { call_(target_, reactor); }

 private:
  void (*call_)(const void*, NotifieeConst&);
  const void* target_;  // not owned; outlives the notification
};

class NotifieeConst : public PtrInterface {
 public:
  /// Whether the reactor keeps its notifier alive. An uncounted reactor is notified by onZeroReferences.
  enum class Hold { counted, uncounted };

  explicit NotifieeConst(Hold hold = Hold::counted) noexcept : hold_(hold) {}
  ~NotifieeConst() override;
  const TypeNode* fwkType() const override;

  // Virtual operations, in slot order after those of PtrInterface.

  /// The reactor itself, or the one that it forwards to.
  virtual NotifieeConst* quillReactor();
  virtual void isRegisteredNotifieeIs(bool registered);
  /// Points the reactor at another notifier; a registered reactor moves from the old list to the new one.
  virtual void notifierIs(const Ptr<const PtrInterface>& notifier);
  /// Makes one call. An exception of the call is passed to onNotificationException and does not propagate.
  virtual void handleNotification(const Notification& notification);
  /// Writes one line to standard error by default, so that the other reactors are still called.
  virtual void onNotificationException(const std::exception& exception);
  /// The notifier of an uncounted reactor is about to be destroyed; the reactor has none afterwards.
  virtual void onZeroReferences();
  /// The event loop that calls the reactor; null if the notifying call does so itself.
  virtual EventLoop* quillFwkActivity();
  /// The object on whose behalf the reactor acts, or null.
  virtual PtrInterface* actsm();

  static const TypeNode _quillType;

  /// How many exceptions onNotificationException has written down in this process: a change in it means that
  /// some reactor has missed a call.
  static std::uint64_t failedNotifications() noexcept;
  /// Where onNotificationException writes its line; null restores the default, standard error.
  static void failureSinkIs(void (*sink)(const char* line)) noexcept;

  const PtrInterface* notifierObject() const noexcept { return notifier_; }

 private:
  friend class PtrInterface;
  void notifierGone() noexcept;

  const PtrInterface* notifier_ = nullptr;  // counted according to hold_
  Hold hold_;
  bool registered_ = false;
};

template <class Notifiee, class Call>
void PtrInterface::notify(const Call& call) const {
  if (!notificationActive_ || notifiees_.empty()) return;
  const Ptr<const PtrInterface> keep(this);
  NotifieeList::Visit visit(notifiees_);
  const auto step = [&call](NotifieeConst& reactor) { call(static_cast<Notifiee&>(reactor)); };
  const Notification notification(step);
  while (NotifieeConst* reactor = visit.next()) {
    if (!notificationActive_ || !reactor->hasNotificationActive()) continue;
    const Ptr<NotifieeConst> keepReactor(reactor);
    reactor->handleNotification(notification);
  }
}

}  // namespace Quill
