#include "quill/Ptr.h"

#include <gtest/gtest.h>

#include <thread>

#include "Counted.h"
#include "cairn/Assert.h"
#include "tests/NothingLeft.h"

namespace {

using Quill::Ptr;

class Pointers : public ::testing::Test {
 protected:
  const NothingLeft nothingLeft_;
  int ended_ = 0;
};

struct Derived final : Counted {
  using Counted::Counted;
};

TEST_F(Pointers, Count_AfterEachStep) {
  Ptr<Counted> a = Quill::allocate<Counted>(&ended_);
  const Counted& object = *a;
  EXPECT_EQ(object.references(), 1u);
  EXPECT_TRUE(object.hasNotificationActive());
  Ptr<Counted> b = a;
  EXPECT_EQ(object.references(), 2u);
  Ptr<Counted> c = std::move(b);
  Ptr<Counted>& same = c;
  c = same;
  c = std::move(same);
  a.swap(b);
  EXPECT_EQ(a, nullptr);
  EXPECT_EQ(object.references(), 2u);
  Ptr<const Counted> constant = c;
  EXPECT_EQ(object.references(), 3u);
  b = nullptr;
  c = Ptr<Counted>();
  EXPECT_EQ(object.references(), 1u);
  const Ptr<const Counted> adopted(constant.release(), Quill::Adopt::yes);
  EXPECT_EQ(object.references(), 1u);
  EXPECT_EQ(ended_, 0);
}

TEST_F(Pointers, LastReference_EndsTheObject) {
  {
    const Ptr<Counted> first = Quill::allocate<Derived>(&ended_);
    Ptr<Counted> second = Quill::allocate<Counted>(&ended_);
    second = first;
    EXPECT_EQ(ended_, 1);
    EXPECT_EQ(Quill::ptrCast<Derived>(second), first);
    EXPECT_EQ(Quill::ptrCast<Reactor>(second), nullptr);
  }
  EXPECT_EQ(ended_, 2);
}

TEST_F(Pointers, Null_IsAnAssertion) {
  EXPECT_THROW(Ptr<Counted>()->change(), Cairn::AssertionException);
  EXPECT_THROW(*Ptr<Counted>(), Cairn::AssertionException);
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
