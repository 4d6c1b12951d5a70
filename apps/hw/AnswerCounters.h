#pragma once

#include <memory>

#include "apps/counters/Layout.h"
#include "apps/counters/TickScale.h"
#include "skein/Ring.h"

namespace HwAgent {

/// Counts the answers of one table.
class AnswerCounters {
 public:
  using Words = Counters::HardwareTableWords<Counters::Counter>;

  /// In memory of its own.
  AnswerCounters() : own_(std::make_shared<Words>()), words_(own_.get()) {}
  /// Neither is owned.
  AnswerCounters(Words& words, const Counters::TickScale& scale) : words_(&words), scale_(&scale) {}

  Words& words() const noexcept { return *words_; }
  /// A change was seen, at the time that is returned.
  std::uint64_t seen() const noexcept {
    words_->seen.add();
    return Braid::ticks();
  }
  void answered(std::uint16_t code, std::uint64_t seen) const noexcept {
    words_->answers[Counters::codeIndex(code)].add();
    addTime(seen);
  }
  void removed(std::uint64_t seen) const noexcept {
    words_->removals.add();
    addTime(seen);
  }

 private:
  void addTime(std::uint64_t seen) const noexcept {
    const std::uint64_t ticks = Braid::ticks() - seen;
    words_->answerTimes.add(scale_ == nullptr ? ticks : scale_->nanoseconds(ticks));
  }

  std::shared_ptr<Words> own_;
  Words* words_;                                // not owned
  const Counters::TickScale* scale_ = nullptr;  // not owned
};

}  // namespace HwAgent
