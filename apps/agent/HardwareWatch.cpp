#include "apps/agent/HardwareWatch.h"

#include <algorithm>

namespace Agent {

HardwareWatch::HardwareWatch(Quill::Ptr<Orrery::EntityManager> entityManager, std::function<bool()> needed,
                             std::function<void()> restarted)
    : entityManager_(std::move(entityManager)),
      needed_(std::move(needed)),
      restarted_(std::move(restarted)) {}

HardwareWatch::~HardwareWatch() {
  if (timer_) entityManager_->eventLoop().timerDel(*timer_);
}

void HardwareWatch::start() {
  if (timer_) return;
  before_ = writers();
  grace_ = 0;
  timer_ = entityManager_->eventLoop().timerIs(kInterval, [this] { look(); });
}

std::vector<pid_t> HardwareWatch::writers() const {
  std::vector<pid_t> processes;
  for (const Quill::String& path : entityManager_->mountedPaths()) {
    const auto table = Quill::ptrCast<QuillVesta::TableEntity>(entityManager_->entity(path));
    if (table) processes.push_back(table->writerProcess());
  }
  return processes;
}

void HardwareWatch::look() {
  timer_.reset();
  if (!needed_()) return;
  const std::vector<pid_t> now = writers();
  const bool complete = std::find(now.begin(), now.end(), 0) == now.end();
  grace_ = complete && now != before_ ? grace_ + 1 : 0;
  if (grace_ > kGraceIntervals) return restarted_();
  timer_ = entityManager_->eventLoop().timerIs(kInterval, [this] { look(); });
}

}  // namespace Agent
