#pragma once

#include <gtest/gtest.h>

#include "quill/AllocTrack.h"

/// Checks at its end that no counted object is left that was not there at its beginning. The first member of
/// a fixture, so that it ends last.
struct NothingLeft {
  NothingLeft() : before(Quill::AllocTrackTypeInfo::liveTotal()) {}
  NothingLeft(const NothingLeft&) = delete;
  NothingLeft& operator=(const NothingLeft&) = delete;
  ~NothingLeft() { EXPECT_EQ(Quill::AllocTrackTypeInfo::liveTotal(), before); }
  const std::int64_t before;
};
