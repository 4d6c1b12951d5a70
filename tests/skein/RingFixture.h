// A folder of its own for the ring files of one test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "skein/Skein.h"
#include "skein/TraceReader.h"
#include "tests/RuntimeFolder.h"

class RingFixture : public ::testing::Test {
 protected:
  using Texts = std::vector<std::string>;
  static constexpr std::size_t kSmallRing = Braid::kMinRingBytes;
  std::string path(const std::string& name = "ring") const { return folder_.path() + "/" + name; }
  /// The texts of the last `count` messages in the ring.
  Texts lastTexts(std::size_t count, const std::string& name = "ring") const {
    Texts texts;
    for (const auto& record : Skein::readTrace(path(name))) texts.push_back(record.text());
    texts.erase(texts.begin(), texts.end() - static_cast<std::ptrdiff_t>(std::min(count, texts.size())));
    return texts;
  }
  RuntimeFolder folder_;
};
