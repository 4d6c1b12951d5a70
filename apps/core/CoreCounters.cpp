#include "apps/core/CoreCounters.h"

namespace Agent {

void CoreCounters::add(ConfigTable& table) {
  table.countersAre(words_->tables[table.index()]);
  table.counters().capacity.set(table.capacity());
  table.counters().highWater.set(table.used());
}

void CoreCounters::unexpected(const ConfigTable* table, std::uint16_t code) noexcept {
  if (table == nullptr) return words_->unknownCompletions.add();
  table->counters().completions[Counters::codeIndex(code)].add();
  table->counters().unexpectedCompletions.add();
}

void CoreCounters::failed(const ConfigTable* table, StatusCode code, std::uint16_t hardwareCode,
                          std::uint64_t handle) noexcept {
  const std::uint64_t number = words_->failures.value() + 1;
  const std::uint64_t time = Counters::wallNanoseconds();
  const std::uint64_t tableNumber = table == nullptr ? 0 : table->index() + 1;
  const std::uint64_t what =
      tableNumber << 32 | std::uint64_t{static_cast<std::uint8_t>(code)} << 16 | hardwareCode;
  auto& place = words_->lastFailures[number % Counters::kFailures];
  place.check.set(0);
  place.number.set(number);
  place.time.set(time);
  place.handle.set(handle);
  place.what.set(what);
  place.check.set(Counters::failureCheck(number, time, handle, what));
  words_->failures.set(number);
  if (table != nullptr && code == StatusCode::deadlineExceeded) table->counters().timeouts.add();
}

}  // namespace Agent
