#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace Quill {

/// A named source of trace lines with levels 0 to 31, each on or off, at first off. Settings apply to handles
/// that are created later, too.
///
/// Thread safety: enabled() may be called on any thread; all else, construction and destruction included, on
/// one.
class TraceHandle {
 public:
  explicit TraceHandle(std::string_view name);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const std::string& name() const noexcept { return name_; }
  bool enabled(int level) const noexcept {
    return (levels_.load(std::memory_order_relaxed) >> level & 1u) != 0;
  }

  struct Line {
    std::string_view handle;
    int level;
    std::string_view source;
    int line;
    std::string_view function;
    std::string_view text;
  };
  /// Passes one line to the sink, whether the level is on or off; callers check enabled() before they build
  /// the text.
  void trace(int level, std::string_view source, int line, std::string_view function,
             std::string_view text) const;

  /// Switches one level on or off for the handle `name`, or for every handle when `name` is "*".
  static void levelIs(std::string_view name, int level, bool on);
  /// The names of the handles that exist, in order of creation.
  static std::vector<std::string> names();
  using Sink = std::function<void(const Line&)>;
  /// Null restores the default, which writes to standard error.
  static void sinkIs(Sink sink);

 private:
  std::string name_;
  std::atomic<std::uint32_t> levels_{0};
};

}  // namespace Quill
