#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "apps/counters/Layout.h"
#include "cairn/Descriptor.h"
#include "vesta/segment/SegmentGuard.h"

namespace Counters {

/// What a counter file says of its program.
struct ProgramState {
  pid_t process = 0;
  std::string version;
  std::string options;
  std::uint64_t startWall = 0;  ///< CLOCK_REALTIME in nanoseconds
  bool living = false;          ///< it still holds the lock of the file
  std::uint64_t silence = 0;    ///< nanoseconds since its last heartbeat, while it lives
};
/// Nanoseconds of silence after which a program counts as hanging or stopped.
inline constexpr std::uint64_t kStale = 2'000'000'000;

/// The validated bytes of one counter file, mapped read-only. To survive that the file is truncated later,
/// the program needs Vesta::installSegmentGuard.
class CounterBytes {
 public:
  /// Throws Cairn::SystemException, also ENOENT, and Cairn::CorruptionDetectedException for what is no
  /// counter file of this program in this layout version.
  CounterBytes(const std::string& path, ProgramId program, std::size_t fileBytes);
  ~CounterBytes();
  CounterBytes(const CounterBytes&) = delete;
  CounterBytes& operator=(const CounterBytes&) = delete;

  /// Copies `count` words, each of them whole. Throws Cairn::CorruptionDetectedException for a file that was
  /// truncated.
  void copy(std::uint64_t* to, std::size_t count) const;
  ProgramState program(std::uint64_t heartbeat) const;
  /// False once the path names another file or none: the program was started again.
  bool inPlace() const noexcept;

 private:
  std::string path_;
  std::size_t bytes_;
  Cairn::Descriptor file_;
  void* mapped_ = nullptr;
  Header header_{};
  std::unique_ptr<Vesta::GuardedMapping> guard_;
};

/// The counters of another process. `Words`: AgentCounts or HardwareCounts.
template <class Words>
class CounterView {
 public:
  /// Throws as CounterBytes does, like read().
  explicit CounterView(const std::string& path) : path_(path) { read(); }

  /// Reads all words again, from the file that now has the name.
  void read() {
    if (!bytes_ || !bytes_->inPlace()) {
      bytes_.reset();
      bytes_ = std::make_unique<CounterBytes>(path_, Words::kProgram, kFileBytes<Words>);
    }
    bytes_->copy(reinterpret_cast<std::uint64_t*>(words_.get()), sizeof(Words) / sizeof(std::uint64_t));
    program_ = bytes_->program(words_->heartbeat);
  }
  const Words& words() const noexcept { return *words_; }
  const ProgramState& program() const noexcept { return program_; }

 private:
  std::string path_;
  std::unique_ptr<CounterBytes> bytes_;
  std::unique_ptr<Words> words_ = std::make_unique<Words>();
  ProgramState program_;
};

}  // namespace Counters
