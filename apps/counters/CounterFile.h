#pragma once

#include <memory>
#include <string>

#include "apps/counters/Layout.h"
#include "apps/process/Log.h"
#include "cairn/Descriptor.h"
#include "cairn/Exception.h"
#include "vesta/segment/SegmentGuard.h"

namespace Counters {

/// The options of a command line as one text.
std::string optionsText(int count, const char* const* arguments);

/// The memory of one counter file, locked while this lives.
class CounterMemory {
 public:
  /// Makes the file under another name, which it has until publish(). Throws Cairn::SystemException, and
  /// leaves no file behind then.
  CounterMemory(const std::string& path, ProgramId program, std::size_t fileBytes,
                const std::string& options);
  ~CounterMemory();
  CounterMemory(const CounterMemory&) = delete;
  CounterMemory& operator=(const CounterMemory&) = delete;

  /// Replaces the file of an earlier run. Throws Cairn::SystemException.
  void publish();
  void* words() noexcept { return static_cast<char*>(mapped_) + kPageBytes; }

 private:
  void map(ProgramId program, const std::string& options);

  std::string path_;
  std::string unpublished_;  // its name until publish(), empty afterwards
  Cairn::Descriptor file_;
  std::size_t bytes_;
  void* mapped_ = nullptr;
  // Should somebody truncate the file, the program counts on in memory of its own.
  std::unique_ptr<Vesta::GuardedMapping> guard_;
};

/// The counters of this process in a file. `Words`: AgentCounters or HardwareCounters.
template <class Words>
class CounterFile {
 public:
  CounterFile(const std::string& path, const std::string& options)
      : memory_(path, Words::kProgram, kFileBytes<Words>, options), words_(new (memory_.words()) Words) {}

  void publish() { memory_.publish(); }
  Words& words() noexcept { return *words_; }

 private:
  CounterMemory memory_;
  Words* words_;  // not owned
};

/// The counter file for `path`, to be published. Counters are an aid: when it cannot be made, for want of
/// space for example, that is logged, and null returned.
template <class Words>
std::unique_ptr<CounterFile<Words>> makeCounters(const std::string& path, const std::string& options) {
  try {
    return std::make_unique<CounterFile<Words>>(path, options);
  } catch (const Cairn::Exception& failure) {
    Process::log(Process::LogLevel::warning, "continuing without a counter file: " + failure.message());
    return nullptr;
  }
}

/// Publishes `counters` unless they are null. That it cannot be done is logged, too.
template <class Words>
void publish(const std::unique_ptr<CounterFile<Words>>& counters) {
  try {
    if (counters) counters->publish();
  } catch (const Cairn::Exception& failure) {
    Process::log(Process::LogLevel::warning, "continuing without a counter file: " + failure.message());
  }
}

}  // namespace Counters
