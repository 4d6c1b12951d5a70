// A folder of its own for the ring files of one test.
#pragma once

#include <gtest/gtest.h>

#include <fstream>

#include "skein/Skein.h"
#include "skein/TraceReader.h"
#include "tests/RuntimeFolder.h"

class RingFixture : public ::testing::Test {
 protected:
  static constexpr std::size_t kSmallRing = Braid::kMinRingBytes;
  std::string path(const std::string& name = "ring") const { return folder_.path() + "/" + name; }
  RuntimeFolder folder_;
};
