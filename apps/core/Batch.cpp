#include "apps/core/Batch.h"

#include <new>
#include <utility>

namespace Agent {

Batch::Batch(std::vector<Update> submitted, std::size_t tables, Atomicity wanted, Done whenDone,
             Clock::time_point expires)
    : updates(std::move(submitted)),
      results(updates.size()),
      operations(updates.size(), Operation{this}),
      atomicity(wanted),
      unanswered(updates.size()),
      undecided(updates.size()),
      rooms(tables),
      deadline(expires),
      done(std::move(whenDone)) {}

void Batch::answer(Operation& operation, StatusCode code, std::string_view message,
                   std::uint16_t hardwareCode) noexcept {
  if (code != StatusCode::ok) {  // which the result is until it gets another
    UpdateStatus& result = results[static_cast<std::size_t>(&operation - operations.data())];
    result.code = code;
    result.hardwareCode = hardwareCode;
    try {
      result.message = message;
    } catch (const std::bad_alloc&) {
      result.message.clear();
    }
  }
  if (operation.state != Operation::State::applied) --undecided;
  operation.state = Operation::State::answered;
  --unanswered;
}

}  // namespace Agent
