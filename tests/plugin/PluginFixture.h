#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "RuntimeFolder.h"
#include "quill/AllocTrack.h"
#include "quill/PtrInterface.h"
#include "quill/TraceHandle.h"
#include "skein/Skein.h"
#include "skein/TraceReader.h"

/// All tests run a second time with atomic counting, asked for by the environment.
inline const bool threadSafePtrs = [] {
  const bool asked = std::getenv("TOLMAR_THREAD_SAFE_PTRS") != nullptr;
  Quill::PtrInterface::threadSafePtrsIs(asked);
  return asked;
}();

/// Checks after every test that no counted object is left.
class PluginFixture : public ::testing::Test {
 protected:
  void TearDown() override {
    Quill::TraceHandle::sinkIs(nullptr);
    for (const auto& count : Quill::AllocTrackTypeInfo::counts()) {
      const auto before = liveBefore_.find(count.type);
      EXPECT_EQ(count.live, before == liveBefore_.end() ? 0 : before->second) << count.type;
    }
  }

  RuntimeFolder folder_;

 private:
  static std::map<std::string, std::int64_t> live() {
    std::map<std::string, std::int64_t> result;
    for (const auto& count : Quill::AllocTrackTypeInfo::counts()) result[count.type] = count.live;
    return result;
  }
  const std::map<std::string, std::int64_t> liveBefore_ = live();
};

/// One trace line with everything that a filter may go by.
struct TraceLine {
  std::string handle;
  int level;
  std::string source;
  int line;
  std::string function;
  std::string text;
  friend bool operator==(const TraceLine&, const TraceLine&) = default;
  friend std::ostream& operator<<(std::ostream& out, const TraceLine& l) {
    return out << l.handle << "/" << l.level << " " << l.source << ":" << l.line << " " << l.function << ": "
               << l.text;
  }
};

/// What a trace handle writes at one level, from here to the end of the object.
class HandleLines {
 public:
  HandleLines(std::string name, int level) : name_(std::move(name)), level_(level) {
    Quill::TraceHandle::levelIs(name_, level_, true);
    Quill::TraceHandle::sinkIs([this](const Quill::TraceHandle::Line& l) {
      lines.push_back({std::string(l.handle), l.level, std::string(l.source), l.line, std::string(l.function),
                       std::string(l.text)});
    });
  }
  ~HandleLines() {
    Quill::TraceHandle::levelIs(name_, level_, false);
    Quill::TraceHandle::sinkIs(nullptr);
  }
  HandleLines(const HandleLines&) = delete;
  HandleLines& operator=(const HandleLines&) = delete;

  std::vector<std::string> texts() const {
    std::vector<std::string> all;
    for (const TraceLine& line : lines) all.push_back(line.text);
    return all;
  }

  std::vector<TraceLine> lines;

 private:
  std::string name_;
  int level_;
};

/// The fast trace of one source, from here on.
class FastTrace {
 public:
  explicit FastTrace(const RuntimeFolder& folder) : path_(folder.path() + "/ring") {
    Skein::ringIs(path_, 64 * 1024);
    before_ = Skein::readTrace(path_).size();
  }

  std::vector<Skein::TraceRecord> records() const {
    auto all = Skein::readTrace(path_);
    all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(before_));
    return all;
  }

 private:
  std::string path_;
  std::size_t before_ = 0;
};
