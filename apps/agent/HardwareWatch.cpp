#include "apps/agent/HardwareWatch.h"

#include <algorithm>

namespace Agent {

HardwareWatch::HardwareWatch(Quill::EventLoop& loop, const MountedTables& tables,
                             std::function<bool()> needed, std::function<void()> restarted)
    : loop_(loop), tables_(tables), needed_(std::move(needed)), restarted_(std::move(restarted)) {}

HardwareWatch::~HardwareWatch() {
  if (timer_) loop_.timerDel(*timer_);
}

void HardwareWatch::start() {
  if (timer_) return;
  before_ = tables_.writers();
  grace_ = 0;
  timer_ = loop_.timerIs(kInterval, [this] { look(); });
}

void HardwareWatch::look() {
  timer_.reset();
  if (!needed_()) return;
  const std::vector<pid_t> now = tables_.writers();
  const bool complete = std::find(now.begin(), now.end(), 0) == now.end();
  grace_ = complete && now != before_ ? grace_ + 1 : 0;
  if (grace_ > kGraceIntervals) return restarted_();
  timer_ = loop_.timerIs(kInterval, [this] { look(); });
}

}  // namespace Agent
