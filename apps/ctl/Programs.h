#pragma once

#include <optional>
#include <string>
#include <vector>

#include "apps/counters/CounterView.h"

namespace Ctl {

/// One program by its counter file. `Words`: AgentCounts or HardwareCounts.
template <class Words>
struct Program {
  std::string name;
  std::optional<Counters::CounterView<Words>> view;
  std::string problem;  ///< why the counters cannot be read; empty if they can

  const Words* words() const { return view ? &view->words() : nullptr; }
  void read(const std::string& folder);
  /// Why the program does not do its work; empty if it does.
  std::string fault() const;
  /// "running for 5 min", or the fault.
  std::string stateText() const;
};

/// An update that was not answered with success.
struct Failure {
  std::uint64_t number;
  std::uint64_t time;  ///< nanoseconds since 1970
  std::string table;   ///< empty if it named none
  std::uint64_t handle;
  std::string status;  ///< "DEADLINE_EXCEEDED"
  unsigned hardwareCode;
};

/// Both programs as their counter files show them.
class Programs {
 public:
  /// Throws Cairn::Exception when the folder has neither counter file.
  explicit Programs(std::string folder);

  /// Reads all counters again.
  void read();
  const Program<Counters::AgentCounts>& agent() const noexcept { return agent_; }
  const Program<Counters::HardwareCounts>& hardware() const noexcept { return hardware_; }
  /// CLOCK_MONOTONIC in nanoseconds at the last read.
  std::uint64_t time() const noexcept { return time_; }
  /// The latest first.
  std::vector<Failure> failures() const;
  /// Why a program does not do its work, one line each.
  std::vector<std::string> faults() const;

 private:
  std::string folder_;
  Program<Counters::AgentCounts> agent_{"p4rt-agent", {}, {}};
  Program<Counters::HardwareCounts> hardware_{"hw-agent", {}, {}};
  std::uint64_t time_ = 0;
};

/// The names of the tables, in the order of their list.
const std::vector<std::string>& tableNames();
/// The hardware's code, or "other".
std::string codeText(std::size_t index);
/// Answers with another code than 0.
std::uint64_t failedOf(const std::array<std::uint64_t, Counters::kCodes>& answers);

}  // namespace Ctl
