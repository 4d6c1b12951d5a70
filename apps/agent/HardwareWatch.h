#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "apps/agent/MountedTables.h"
#include "quill/EventLoop.h"

namespace Agent {

/// Looks out for a restart of the hardware agent while answers are overdue. One that has restarted answers
/// within moments what it finds open; what it leaves unanswered then, it never will.
class HardwareWatch {
 public:
  /// `needed` tells whether answers are still overdue; `restarted` is called when none of them will come.
  /// Neither `loop` nor `tables` is owned.
  HardwareWatch(Quill::EventLoop& loop, const MountedTables& tables, std::function<bool()> needed,
                std::function<void()> restarted);
  ~HardwareWatch();
  HardwareWatch(const HardwareWatch&) = delete;
  HardwareWatch& operator=(const HardwareWatch&) = delete;

  /// An answer is overdue. Does nothing while the watch is on; it ends by itself.
  void start();

 private:
  static constexpr std::chrono::milliseconds kInterval{200};
  static constexpr int kGraceIntervals = 5;

  void look();

  Quill::EventLoop& loop_;       // not owned
  const MountedTables& tables_;  // not owned
  std::function<bool()> needed_;
  std::function<void()> restarted_;
  std::vector<pid_t> before_;  // the tables' writers when the watch began
  int grace_ = 0;              // intervals since they were found changed and complete
  std::optional<Quill::EventLoop::TimerId> timer_;
};

}  // namespace Agent
