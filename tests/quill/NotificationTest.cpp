#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Counted.h"
#include "quill/Attribute.h"

namespace {

using Quill::Ptr;
using Hold = Quill::NotifieeConst::Hold;

class Notifications : public ::testing::Test {
 protected:
  void TearDown() override {
    reactors_.clear();
    object_ = nullptr;
    EXPECT_EQ(Quill::AllocTrackTypeInfo::liveTotal(), live_);
  }

  /// A registered and active reactor that adds `name` to the calls and then does `more`.
  Ptr<Reactor> follow(char name, std::function<void()> more = {}, Hold hold = Hold::uncounted) {
    auto reactor = Quill::allocate<Reactor>(
        [this, name, more = std::move(more)] {
          calls_ += name;
          if (more) more();
        },
        hold);
    reactor->isRegisteredNotifieeIs(true);
    reactor->notifierIs(object_);
    reactors_.push_back(reactor);
    return reactor;
  }
  /// The calls of one change.
  std::string change() {
    calls_.clear();
    object_->change();
    return calls_;
  }

  const std::int64_t live_ = Quill::AllocTrackTypeInfo::liveTotal();
  int ended_ = 0;
  Ptr<Counted> object_ = Quill::allocate<Counted>(&ended_);
  std::vector<Ptr<Reactor>> reactors_;
  std::string calls_;
};

TEST_F(Notifications, Call_NeedsBothFlagsAndTheRegistration) {
  const auto a = follow('a');
  const auto b = follow('b');
  EXPECT_EQ(change(), "ab");
  a->hasNotificationActiveIs(false);
  EXPECT_EQ(change(), "b");
  a->hasNotificationActiveIs(true);
  b->isRegisteredNotifieeIs(false);
  EXPECT_EQ(change(), "a");
  b->isRegisteredNotifieeIs(true);
  object_->hasNotificationActiveIs(false);
  EXPECT_EQ(change(), "");
  object_->hasNotificationActiveIs(true);
  EXPECT_EQ(change(), "ab");
  EXPECT_FALSE(Counted(nullptr).hasNotificationActive());
}

TEST_F(Notifications, Visit_SkipsThoseWhoLeaveAndLeavesOutThoseWhoCome) {
  Ptr<Reactor> b;
  Ptr<Reactor> c;
  const auto a = follow('a', [&] {
    if (calls_ != "a") return;
    reactors_[0]->isRegisteredNotifieeIs(false);
    b->isRegisteredNotifieeIs(false);
    c->hasNotificationActiveIs(false);
    follow('e');
  });
  b = follow('b');
  c = follow('c');
  const auto d = follow('d');
  EXPECT_EQ(change(), "ad");
  EXPECT_EQ(change(), "de");
  b->isRegisteredNotifieeIs(true);  // comes back as the last
  EXPECT_EQ(change(), "deb");
}

TEST_F(Notifications, Visit_InsideAVisit) {
  Ptr<Reactor> b;
  bool nested = false;
  follow('a', [&] {
    if (std::exchange(nested, true)) return;
    object_->change();
    b->isRegisteredNotifieeIs(false);
    object_->change();
  });
  b = follow('b');
  follow('c');
  EXPECT_EQ(change(), "aabcacc");
  EXPECT_EQ(change(), "ac");
}

TEST_F(Notifications, Visit_StopsWhenTheNotifierIsSwitchedOff) {
  follow('a', [&] { object_->hasNotificationActiveIs(false); });
  follow('b');
  EXPECT_EQ(change(), "a");
}

TEST_F(Notifications, Exception_GoesToItsReactorAndTheOthersAreCalled) {
  const auto a = follow('a', [] { throw std::runtime_error("refused"); });
  follow('b');
  EXPECT_EQ(change(), "ab");
  EXPECT_EQ(a->complaints, "refused");
  EXPECT_EQ(change(), "ab");
}

TEST_F(Notifications, Repointing_MovesTheRegistrationAndTheReference) {
  const auto a = follow('a', {}, Hold::counted);
  EXPECT_EQ(object_->references(), 2u);
  const auto other = Quill::allocate<Counted>(&ended_);
  a->notifierIs(other);
  EXPECT_EQ(object_->references(), 1u);
  EXPECT_EQ(other->references(), 2u);
  EXPECT_EQ(change(), "");
  other->change();
  EXPECT_EQ(calls_, "a");
  a->notifierIs(other);
  EXPECT_EQ(other->notifieeList().size(), 1u);
  a->notifierIs(nullptr);
  EXPECT_EQ(other->notifieeList().size(), 0u);
  EXPECT_EQ(other->references(), 1u);
  a->notifierIs(object_);  // still wants to be registered
  EXPECT_EQ(change(), "a");
}

TEST_F(Notifications, NotifierEnds_TellsUncountedReactorsOnce) {
  const auto a = follow('a');
  object_ = nullptr;
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(a->notifierEnds, 1);
  EXPECT_EQ(a->notifierObject(), nullptr);
}

TEST_F(Notifications, LastReferenceDroppedInACall_TheVisitIsFinished) {
  follow('a', [this] { object_ = nullptr; });
  follow('b');
  const Counted* const object = object_.get();
  object->change();
  EXPECT_EQ(calls_, "ab");
  EXPECT_EQ(ended_, 1);
}

TEST_F(Notifications, ReactorsDroppedInACall_AreNotCalledAnyMore) {
  follow('a', [this] { reactors_.clear(); });  // itself and the next
  follow('b');
  EXPECT_EQ(change(), "a");
  EXPECT_EQ(object_->notifieeList().size(), 0u);
  EXPECT_EQ(change(), "");
}

TEST_F(Notifications, Attribute_IsSilentWhenUnchanged) {
  int value = 1;
  follow('a');
  const auto set = [&](int newValue) {
    Quill::attributeIs<Counted::NotifieeConst>(*object_, value, newValue, &Counted::NotifieeConst::onChange);
  };
  set(1);
  EXPECT_EQ(calls_, "");
  set(2);
  EXPECT_EQ(calls_, "a");
  EXPECT_EQ(value, 2);
}

TEST_F(Notifications, Attribute_ReleasesTheOldObjectBeforeItCalls) {
  Ptr<Counted> held = Quill::allocate<Counted>(&ended_);
  follow('a', [this] { EXPECT_EQ(ended_, 1); });
  Quill::attributeIs<Counted::NotifieeConst>(*object_, held, Quill::allocate<Counted>(),
                                             &Counted::NotifieeConst::onChange);
  EXPECT_EQ(calls_, "a");
}

}  // namespace
