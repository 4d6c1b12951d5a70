// What the core counts, in words that other processes can read.
#pragma once

#include <cstdint>
#include <memory>

#include "apps/core/Batch.h"
#include "apps/core/ConfigTable.h"
#include "apps/counters/Layout.h"
#include "apps/counters/TickScale.h"

namespace Agent {

/// Counts each event with one store. Only writes and looks at the completions read the clock, which is that
/// of the trace: the system's takes three times as long.
class CoreCounters {
 public:
  /// `shared` is not owned; null for words of its own.
  explicit CoreCounters(Counters::AgentCounters* shared)
      : own_(shared != nullptr ? nullptr : std::make_unique<Counters::AgentCounters>()),
        words_(shared != nullptr ? shared : own_.get()) {}

  const Counters::AgentCounters& words() const noexcept { return *words_; }
  /// `table` counts here from now on.
  void add(ConfigTable& table);

  static void written(const ConfigTable& table, UpdateType type) noexcept {
    table.counters().writes[static_cast<std::size_t>(type)].add();
  }
  /// The hardware has answered after so many ticks.
  void completed(const ConfigTable& table, std::uint16_t code, std::uint64_t ticks) noexcept {
    auto& words = table.counters();
    words.completions[Counters::codeIndex(code)].add();
    words.answerTimes.add(scale_.nanoseconds(ticks));
  }
  /// Nobody was waiting for the answer; `table` is null if the entry is not known either.
  void unexpected(const ConfigTable* table, std::uint16_t code) noexcept;
  /// An update is answered with something else than success; `table` and the handle may be unknown.
  void failed(const ConfigTable* table, StatusCode code, std::uint16_t hardwareCode,
              std::uint64_t handle) noexcept;
  /// To be called periodically.
  void correctTimes() noexcept { scale_.correct(); }

 private:
  std::unique_ptr<Counters::AgentCounters> own_;
  Counters::AgentCounters* words_;  // not owned
  Counters::TickScale scale_;
};

}  // namespace Agent
