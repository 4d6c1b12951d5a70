#pragma once

#include "apps/agent/MountedTables.h"

namespace Agent {

/// Follows which process is the hardware agent, and detects its restart while answers are overdue. A hardware
/// agent that has restarted answers at once what it finds open; what it leaves unanswered then, it never
/// will.
class HardwareWatch {
 public:
  /// `tables` is not owned. Logs whether a hardware agent runs.
  explicit HardwareWatch(const MountedTables& tables);

  /// To be called periodically, `overdue` telling whether answers are; logs when the hardware agent has come
  /// or gone. True when answers that are overdue will not come any more.
  bool check(bool overdue);

 private:
  static constexpr int kGrace = 3;  // checks

  void log() const;

  const MountedTables& tables_;  // not owned
  pid_t process_;                // at the last check; 0: none
  pid_t asked_ = 0;              // the process when answers became overdue
  bool overdue_ = false;         // at the last check
  int grace_ = 0;                // checks since another process than asked_ was found
};

}  // namespace Agent
