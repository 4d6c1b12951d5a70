// A folder of its own for the ring files of one test.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "skein/Skein.h"
#include "skein/TraceReader.h"

class RingFixture : public ::testing::Test {
 protected:
  static constexpr std::size_t kSmallRing = Braid::kMinRingBytes;

  void SetUp() override {
    std::string pattern = "/tmp/skein_test_XXXXXX";
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name = "ring") const { return folder_ + "/" + name; }

  std::string folder_;
};
