#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "cairn/Assert.h"
#include "quill/Counted.h"
#include "tests/NothingLeft.h"

namespace {

using Quill::Ptr;

struct Counted : Quill::Counted<Counted, Quill::PtrInterface> {
  explicit Counted(int& ended) : ended_(ended) {}
  ~Counted() override { ++ended_; }

  struct NotifieeConst : Quill::NotifieeConst {
    using Quill::NotifieeConst::NotifieeConst;
    virtual void onChange() = 0;
  };
  void change() const {
    notify<NotifieeConst>([](NotifieeConst& reactor) { reactor.onChange(); });
  }

 private:
  int& ended_;
};

struct Derived final : Counted {
  using Counted::Counted;
};

struct Reactor final : Quill::Counted<Reactor, Counted::NotifieeConst> {
  explicit Reactor(std::function<void()> react) : Counted(Hold::uncounted), react_(std::move(react)) {}

  void onChange() override { react_(); }
  void onZeroReferences() override { ++notifierEnds; }
  void onNotificationException(const std::exception& exception) override { complaints += exception.what(); }

  int notifierEnds = 0;
  std::string complaints;

 private:
  std::function<void()> react_;
};

class Objects : public ::testing::Test {
 protected:
  /// A registered and active reactor that adds `name` to the calls and then does `more`.
  Ptr<Reactor> follow(
      char name, std::function<void()> more = [] {}) {
    auto reactor = Quill::allocate<Reactor>([this, name, more = std::move(more)] {
      calls_ += name;
      more();
    });
    reactor->isRegisteredNotifieeIs(true);
    reactor->notifierIs(object_);
    reactors_.push_back(reactor);
    return reactor;
  }
  /// The calls of one change.
  std::string change() {
    calls_.clear();
    object_.get()->change();
    return calls_;
  }

  const NothingLeft nothingLeft_;
  int ended_ = 0;
  Ptr<Counted> object_ = Quill::allocate<Counted>(ended_);
  std::vector<Ptr<Reactor>> reactors_;
  std::string calls_;
};

TEST_F(Objects, References_AreCountedByEachPointer) {
  EXPECT_EQ(object_->references(), 1u);
  Ptr<Counted> a = object_;
  Ptr<Counted> b = std::move(a);
  Ptr<Counted>& same = b;
  b = same;
  b = std::move(same);
  EXPECT_EQ(object_->references(), 2u);
  a.swap(b);
  EXPECT_EQ(b, nullptr);
  Ptr<const Counted> constant = a;
  EXPECT_EQ(object_->references(), 3u);
  a = Ptr<Counted>();
  const Ptr<const Counted> adopted(constant.release(), Quill::Adopt::yes);
  EXPECT_EQ(object_->references(), 2u);
}

TEST_F(Objects, LastReference_EndsTheObject) {
  const Ptr<Counted> derived = Quill::allocate<Derived>(ended_);
  object_ = derived;
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(Quill::ptrCast<Derived>(object_), derived);
  EXPECT_EQ(Quill::ptrCast<Reactor>(object_), nullptr);
  EXPECT_THROW(Ptr<Counted>()->change(), Cairn::AssertionException);
  EXPECT_THROW(*Ptr<Counted>(), Cairn::AssertionException);
}

TEST_F(Objects, ThreadSafeMode_CountsAcrossThreads) {
  Quill::PtrInterface::threadSafePtrsIs(true);
  const auto copyOften = [this] {
    for (int i = 0; i < 20'000; ++i) const Ptr<Counted> copy = object_;
  };
  std::thread other(copyOften);
  copyOften();
  other.join();
  Quill::PtrInterface::threadSafePtrsIs(false);
  EXPECT_EQ(object_->references(), 1u);
}

TEST_F(Objects, Notification_NeedsBothFlagsAndTheRegistration) {
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

TEST_F(Objects, Visit_SkipsReactorsThatLeaveOrComeAndSurvivesAnException) {
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

TEST_F(Objects, Visit_InsideAVisit) {
  Ptr<Reactor> b;
  bool nested = false;
  follow('a', [&] {
    if (std::exchange(nested, true)) return;
    object_->change();
    b->isRegisteredNotifieeIs(false);
    object_->change();
  });
  b = follow('b');
  follow('c', [&] { object_->hasNotificationActiveIs(calls_ != "ac"); });  // none after it
  EXPECT_EQ(change(), "aabcacc");
  follow('d');
  EXPECT_EQ(change(), "ac");
}

TEST_F(Objects, LastReferenceDroppedInACall_TheVisitIsFinished) {
  const auto a = follow('a', [this] { object_ = nullptr; });
  follow('b');
  EXPECT_EQ(change(), "ab");
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(a->notifierEnds, 1);
  EXPECT_EQ(a->notifierObject(), nullptr);
}

TEST_F(Objects, ReactorsDroppedInACall_AreNotCalledAnyMore) {
  follow('a', [this] { reactors_.clear(); });  // itself and the next
  follow('b');
  EXPECT_EQ(change(), "a");
  EXPECT_TRUE(object_->notifieeList().empty());
}

}  // namespace
