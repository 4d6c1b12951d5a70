#include "apps/bridge/Inbox.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <limits>

#include "cairn/Exception.h"

namespace Bridge {

Inbox::Inbox() : descriptor_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (!descriptor_) throw Cairn::SystemException("eventfd", errno);
}

void Inbox::Closed::run() noexcept {}

bool Inbox::post(Work& work) noexcept {
  Work* newest = newest_.load(std::memory_order_relaxed);
  do {
    if (newest == &closed_) return false;
    work.next_ = newest;
  } while (
      !newest_.compare_exchange_weak(newest, &work, std::memory_order_release, std::memory_order_relaxed));
  // From here on the work may be gone.
  if (newest == nullptr) wake();
  return true;
}

// A write that fails finds the counter at its limit: the descriptor is readable already.
void Inbox::wake() const noexcept {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(descriptor_.get(), &one, sizeof one);
}

std::size_t Inbox::run(std::size_t limit) {
  // Before the stack is taken: work that is posted after that finds it empty and makes the descriptor
  // readable again.
  std::uint64_t count = 0;
  [[maybe_unused]] const ssize_t length = ::read(descriptor_.get(), &count, sizeof count);
  append(newest_.exchange(nullptr, std::memory_order_acquire));
  const std::size_t done = runTaken(limit);
  if (oldestTaken_ != nullptr) wake();
  return done;
}

void Inbox::close() {
  append(newest_.exchange(&closed_, std::memory_order_acquire));
  runTaken(std::numeric_limits<std::size_t>::max());
}

/// Appends the stack to the loop's list, oldest first.
void Inbox::append(Work* newest) noexcept {
  Work* const last = newest;
  Work* oldest = nullptr;
  while (newest != nullptr) {
    Work* const before = newest->next_;
    newest->next_ = oldest;
    oldest = newest;
    newest = before;
  }
  if (oldest == nullptr) return;
  (oldestTaken_ == nullptr ? oldestTaken_ : newestTaken_->next_) = oldest;
  newestTaken_ = last;
}

std::size_t Inbox::runTaken(std::size_t limit) {
  std::size_t done = 0;
  for (; done < limit && oldestTaken_ != nullptr; ++done) {
    Work* const work = oldestTaken_;
    oldestTaken_ = work->next_;
    work->run();
  }
  return done;
}

}  // namespace Bridge
