// The destination of the table service's debug messages: a flag word that selects messages, and a sink.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace Cairn {

class DebugHandler {
 public:
  static constexpr std::uint32_t kErrorFlag = 0x2;   ///< corruption and detaching, logged at level 1
  static constexpr std::uint32_t kDebugFlag = 0x20;  ///< readiness and placeholder calls, logged at level 5

  struct Message {
    int level;
    std::string_view source;
    int line;
    std::string_view function;
    std::string_view text;
  };
  using Sink = std::function<void(const Message&)>;

  explicit DebugHandler(std::uint32_t flags = kErrorFlag) : flags_(flags) {}

  std::uint32_t flags() const noexcept { return flags_; }
  void flagsIs(std::uint32_t flags) noexcept { flags_ = flags; }
  bool wants(std::uint32_t flag) const noexcept { return (flags_ & flag) != 0; }

  /// The default sink writes one line to standard error.
  void sinkIs(Sink sink) { sink_ = std::move(sink); }

  /// Hands the message to the sink. The caller tests the flag before it builds the text.
  void log(int level, std::string_view source, int line, std::string_view function,
           const std::string& text) const;

 private:
  std::uint32_t flags_;
  Sink sink_;
};

}  // namespace Cairn
