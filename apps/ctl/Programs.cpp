#include "apps/ctl/Programs.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "P4RuntimeTolmar/OutputTables.h"
#include "apps/core/Status.h"
#include "apps/counters/TickScale.h"
#include "apps/ctl/Text.h"
#include "cairn/Exception.h"

namespace Ctl {

template <class Words>
void Program<Words>::read(const std::string& folder) {
  problem.clear();
  try {
    if (view) {
      view->read();
    } else {
      view.emplace(folder + "/" + name + ".counters");
    }
  } catch (const Cairn::Exception& failure) {
    problem = failure.message();
    view.reset();
  }
}

template <class Words>
std::string Program<Words>::fault() const {
  if (!view) return fmt::format("{}: {}", name, problem);
  const Counters::ProgramState& state = view->program();
  if (!state.living) return fmt::format("{} (pid {}) is not running", name, state.process);
  if (state.silence <= Counters::kStale) return {};
  return fmt::format("{} (pid {}) has been silent for {}: it hangs or was stopped", name, state.process,
                     durationText(state.silence));
}

template <class Words>
std::string Program<Words>::stateText() const {
  const std::string wrong = fault();
  if (!wrong.empty()) return wrong;
  const Counters::ProgramState& state = view->program();
  return fmt::format("{} {} (pid {}) running for {}", name, state.version, state.process,
                     durationText(now() - std::min(now(), state.startWall)));
}

template struct Program<Counters::AgentCounts>;
template struct Program<Counters::HardwareCounts>;

Programs::Programs(std::string folder) : folder_(std::move(folder)) {
  read();
  if (agent_.view || hardware_.view) return;
  throw Cairn::Exception(
      fmt::format("runtime folder {}: no counters: {}; {}", folder_, agent_.problem, hardware_.problem));
}

void Programs::read() {
  agent_.read(folder_);
  hardware_.read(folder_);
  time_ = Counters::monotonicNanoseconds();
}

std::vector<Failure> Programs::failures() const {
  std::vector<Failure> found;
  if (!agent_.view) return found;
  for (const auto& failure : agent_.words()->lastFailures) {
    const bool isWhole =
        failure.check == Counters::failureCheck(failure.number, failure.time, failure.handle, failure.what);
    if (failure.number == 0 || !isWhole) continue;
    const std::size_t table = failure.what >> 32;
    const std::size_t status = failure.what >> 16 & 0xffff;
    found.push_back({failure.number, failure.time,
                     table >= 1 && table <= tableNames().size() ? tableNames()[table - 1] : std::string(),
                     failure.handle,
                     status <= static_cast<std::size_t>(Agent::StatusCode::unavailable)
                         ? std::string(statusCodeName(static_cast<Agent::StatusCode>(status)))
                         : std::to_string(status),
                     static_cast<unsigned>(failure.what & 0xffff)});
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.number > b.number; });
  return found;
}

std::vector<std::string> Programs::faults() const {
  std::vector<std::string> found = {agent_.fault(), hardware_.fault()};
  std::erase(found, "");
  return found;
}

const std::vector<std::string>& tableNames() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> found;
    TolmarHwLib::forEachOutputTable([&]<std::size_t>(const auto& table) { found.emplace_back(table.name); });
    return found;
  }();
  return names;
}

std::string codeText(std::size_t index) {
  return index + 1 < Counters::kCodes ? std::to_string(index) : std::string("other");
}

std::uint64_t failedOf(const std::array<std::uint64_t, Counters::kCodes>& answers) {
  return std::accumulate(answers.begin() + 1, answers.end(), std::uint64_t{0});
}

}  // namespace Ctl
