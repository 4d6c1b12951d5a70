#include "quill/TraceHandle.h"

#include <gtest/gtest.h>

#include "cairn/Assert.h"

namespace {

using Quill::TraceHandle;

TEST(TraceHandle, Levels_AreSetByNameAlsoBeforeTheHandleExists) {
  const TraceHandle first("first");
  { const TraceHandle gone("second"); }
  EXPECT_FALSE(first.enabled(31));
  TraceHandle::levelIs("first", 31, true);
  TraceHandle::levelIs("second", 0, true);
  TraceHandle::levelIs("*", 4, true);
  const TraceHandle second("second");
  EXPECT_TRUE(first.enabled(31) && first.enabled(4) && second.enabled(0) && second.enabled(4));
  EXPECT_FALSE(first.enabled(0) || second.enabled(31));
  for (const char* const name : {"*", "first", "second"}) {
    for (const int level : {0, 4, 31}) TraceHandle::levelIs(name, level, false);
  }
  EXPECT_FALSE(first.enabled(31) || first.enabled(4) || second.enabled(0));
  EXPECT_THROW(TraceHandle::levelIs("first", 32, true), Cairn::AssertionException);
  EXPECT_THROW(TraceHandle::levelIs("first", -1, true), Cairn::AssertionException);
}

}  // namespace
