#include "quill/Ptr.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "Counted.h"
#include "cairn/Assert.h"

namespace {

using Quill::AllocTrackTypeInfo;
using Quill::Ptr;

class Pointers : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(AllocTrackTypeInfo::liveTotal(), live_); }
  int ended_ = 0;
  const std::int64_t live_ = AllocTrackTypeInfo::liveTotal();
};

struct Derived final : Counted {
  using Counted::Counted;
};

TEST_F(Pointers, Count_AfterEachStep) {
  Ptr<Counted> a = Quill::allocate<Counted>(&ended_);
  const Counted* const object = a.get();
  EXPECT_EQ(object->references(), 1u);
  EXPECT_TRUE(object->hasNotificationActive());
  Ptr<Counted> b = a;
  EXPECT_EQ(object->references(), 2u);
  Ptr<Counted> c = std::move(b);
  EXPECT_EQ(object->references(), 2u);
  EXPECT_EQ(b, nullptr);
  Ptr<Counted>& same = c;
  c = same;
  EXPECT_EQ(object->references(), 2u);
  c = std::move(same);
  EXPECT_EQ(object->references(), 2u);
  EXPECT_EQ(c.get(), object);
  a.swap(b);
  EXPECT_EQ(object->references(), 2u);
  const Ptr<const Counted> constant = c;
  EXPECT_EQ(object->references(), 3u);
  EXPECT_EQ(Quill::ptrConstCast(constant), c);
  b = nullptr;
  c = Ptr<Counted>();
  EXPECT_EQ(object->references(), 1u);
  EXPECT_EQ(ended_, 0);
  Ptr<const Counted> last = constant;
  Counted* const released = const_cast<Counted*>(last.release());
  EXPECT_EQ(object->references(), 2u);
  const Ptr<Counted> adopted(released, Quill::Adopt::yes);
  EXPECT_EQ(object->references(), 2u);
}

TEST_F(Pointers, LastReference_EndsTheObject) {
  {
    const Ptr<Counted> first = Quill::allocate<Derived>(&ended_);
    Ptr<Counted> second = Quill::allocate<Counted>(&ended_);
    second = first;
    EXPECT_EQ(ended_, 1);
    EXPECT_EQ(Quill::ptrCast<Derived>(second), first);
    EXPECT_EQ(Quill::ptrCast<Reactor>(second), nullptr);
    EXPECT_EQ(AllocTrackTypeInfo::liveTotal(), live_ + 1);
  }
  EXPECT_EQ(ended_, 2);
}

TEST_F(Pointers, Null_IsAnAssertion) {
  const Ptr<Counted> null;
  EXPECT_FALSE(null);
  EXPECT_THROW(null->change(), Cairn::AssertionException);
  EXPECT_THROW(*null, Cairn::AssertionException);
  EXPECT_EQ(Quill::ptrCast<Derived>(null), nullptr);
}

struct Refusing final : Counted {
  Refusing() { throw std::runtime_error("refused"); }
};

TEST_F(Pointers, ThrowingConstructor_LeavesNothing) {
  EXPECT_THROW(Quill::allocate<Refusing>(), std::runtime_error);
  EXPECT_EQ(AllocTrackTypeInfo::liveTotal(), live_);
}

struct Resurrecting final : Counted {
  using Counted::Counted;
  ~Resurrecting() override { const Ptr<Counted> brief(this); }
};

TEST_F(Pointers, ReferencesWhileEnding_EndItOnce) {
  Ptr<Counted> object = Quill::allocate<Resurrecting>(&ended_);
  Counted* const raw = object.get();
  const auto reactor = Quill::allocate<Reactor>([] {}, Reactor::Hold::uncounted);
  struct Toucher final : Quill::NotifieeConst {
    explicit Toucher(Counted* touched) : NotifieeConst(Hold::uncounted), counted(touched) {}
    void onZeroReferences() override { const Ptr<Counted> brief(counted); }
    Counted* counted;
  };
  Toucher toucher(raw);
  toucher.isRegisteredNotifieeIs(true);
  toucher.notifierIs(object);
  object = nullptr;
  EXPECT_EQ(ended_, 1);
  EXPECT_EQ(toucher.notifierObject(), nullptr);
}

TEST_F(Pointers, ThreadSafeMode_CountsAcrossThreads) {
  Quill::PtrInterface::threadSafePtrsIs(true);
  const Ptr<Counted> object = Quill::allocate<Counted>(&ended_);
  const auto copyOften = [&object] {
    for (int i = 0; i < 20'000; ++i) const Ptr<Counted> copy = object;
  };
  std::thread other(copyOften);
  copyOften();
  other.join();
  Quill::PtrInterface::threadSafePtrsIs(false);
  EXPECT_EQ(object->references(), 1u);
}

}  // namespace
