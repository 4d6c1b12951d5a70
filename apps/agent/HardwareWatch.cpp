#include "apps/agent/HardwareWatch.h"

#include "apps/process/Log.h"

namespace Agent {

HardwareWatch::HardwareWatch(const MountedTables& tables)
    : tables_(tables), process_(tables.hardwareProcess()) {
  log();
}

void HardwareWatch::log() const {
  if (process_ == 0) {
    return Process::log(Process::LogLevel::warning,
                        "no hardware agent runs: updates wait for one until they run out of time");
  }
  const std::string process = std::to_string(process_);
  Process::log(Process::LogLevel::info, "the hardware agent is process " + process, {{"pid", process}});
}

bool HardwareWatch::check(bool overdue) {
  const pid_t now = tables_.hardwareProcess();
  // The process before this check: it may be another one only because of a restart since then.
  if (overdue && !overdue_) asked_ = process_;
  overdue_ = overdue;
  if (now != process_) {
    process_ = now;
    log();
  }
  const bool restarted = overdue && now != 0 && now != asked_;
  grace_ = restarted ? grace_ + 1 : 0;
  if (grace_ <= kGrace) return false;
  overdue_ = false;
  grace_ = 0;
  return true;
}

}  // namespace Agent
