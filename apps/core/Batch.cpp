#include "apps/core/Batch.h"

#include <utility>

namespace Agent {

Batch::Batch(std::vector<Update> submitted, Done whenDone, Progress whenProgressed, Clock::time_point expires)
    : updates(std::move(submitted)),
      results(updates.size()),
      operations(updates.size(), Operation{this}),
      open(updates.size()),
      deadline(expires),
      done(std::move(whenDone)),
      progress(std::move(whenProgressed)) {}

void Batch::answer(Operation& operation, Code code, std::string_view message,
                   std::uint16_t hardwareCode) noexcept {
  Result& result = results[static_cast<std::size_t>(&operation - operations.data())];
  result.code = code;
  result.hardwareCode = hardwareCode;
  try {
    result.message = message;
  } catch (const std::bad_alloc&) {
    result.message.clear();
  }
  operation.state = Operation::State::answered;
  --open;
}

}  // namespace Agent
