#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "Counted.h"
#include "quill/Entity.h"
#include "tests/NothingLeft.h"

namespace {

using Quill::Ptr;

class Notifications : public ::testing::Test {
 protected:
  /// A registered and active reactor that adds `name` to the calls and then does `more`.
  Ptr<Reactor> follow(char name, std::function<void()> more = {}) {
    auto reactor = Quill::allocate<Reactor>([this, name, more = std::move(more)] {
      calls_ += name;
      if (more) more();
    });
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

  const NothingLeft nothingLeft_;
  int ended_ = 0;
  Ptr<Counted> object_ = Quill::allocate<Counted>(&ended_);
  std::vector<Ptr<Reactor>> reactors_;
  std::string calls_;
};

TEST_F(Notifications, Types_AreInheritedByClassesWithoutTheirOwn) {
  EXPECT_EQ(object_->fwkType()->name, "Quill::PtrInterface");
  EXPECT_EQ(follow('a')->fwkType()->name, "Quill::NotifieeConst");
  EXPECT_EQ(Quill::Entity(Quill::Name("entity")).fwkType(), &Quill::Entity::_quillType);
}

TEST_F(Notifications, Call_NeedsBothFlagsAndTheRegistration) {
  EXPECT_FALSE(Counted().hasNotificationActive());
  const auto a = follow('a');
  const auto b = follow('b');
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
}

TEST_F(Notifications, Visit_SkipsThoseWhoLeaveAndLeavesOutThoseWhoComeAndSurvivesAnException) {
  Ptr<Reactor> b;
  Ptr<Reactor> c;
  follow('a', [&] {
    reactors_[0]->isRegisteredNotifieeIs(false);
    b->isRegisteredNotifieeIs(false);
    c->hasNotificationActiveIs(false);
    follow('e');
  });
  b = follow('b');
  c = follow('c');
  const auto d = follow('d', [] { throw std::runtime_error("refused"); });
  EXPECT_EQ(change(), "ad");
  EXPECT_EQ(change(), "de");
  EXPECT_EQ(d->complaints, "refusedrefused");
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
  follow('c', [&] { object_->hasNotificationActiveIs(calls_ != "ac"); });  // nobody after it
  EXPECT_EQ(change(), "aabcacc");
  follow('d');
  EXPECT_EQ(change(), "ac");
}

TEST_F(Notifications, LastReferenceDroppedInACall_TheVisitIsFinished) {
  const auto a = follow('a', [this] { object_ = nullptr; });
  follow('b');
  object_.get()->change();
  EXPECT_EQ(calls_, "ab");
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(a->notifierEnds, 1);
  EXPECT_EQ(a->notifierObject(), nullptr);
}

TEST_F(Notifications, ReactorsDroppedInACall_AreNotCalledAnyMore) {
  follow('a', [this] { reactors_.clear(); });  // itself and the next
  follow('b');
  EXPECT_EQ(change(), "a");
  EXPECT_TRUE(object_->notifieeList().empty());
}

}  // namespace
