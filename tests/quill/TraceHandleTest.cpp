#include "quill/TraceHandle.h"

#include <gtest/gtest.h>

#include "cairn/Assert.h"

namespace {

using Quill::TraceHandle;

/// The enabled levels of `handle`, as bits.
unsigned levels(const TraceHandle& handle) {
  unsigned all = 0;
  for (int level = 0; level < 32; ++level) all |= (handle.enabled(level) ? 1u : 0u) << level;
  return all;
}

TEST(TraceHandle, LevelsAreSetByNameAlsoBeforeTheHandleExists) {
  const TraceHandle first("first");
  EXPECT_EQ(levels(first), 0u);
  { const TraceHandle gone("second"); }
  TraceHandle::levelIs("first", 31, true);
  TraceHandle::levelIs("second", 0, true);
  TraceHandle::levelIs("*", 4, true);
  const TraceHandle second("second");
  EXPECT_EQ(levels(first), 1u << 31 | 1u << 4);
  EXPECT_EQ(levels(second), 1u << 4 | 1u);
  TraceHandle::levelIs("*", 4, false);
  TraceHandle::levelIs("second", 0, false);
  EXPECT_EQ(levels(first), 1u << 31);
  EXPECT_EQ(levels(second), 0u);
  EXPECT_THROW(TraceHandle::levelIs("first", 32, true), Cairn::AssertionException);
  EXPECT_THROW(TraceHandle::levelIs("first", -1, true), Cairn::AssertionException);
  TraceHandle::levelIs("first", 31, false);
}

}  // namespace
