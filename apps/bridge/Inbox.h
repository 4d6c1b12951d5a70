// From many threads to the thread of one event loop.
#pragma once

#include <atomic>
#include <cstddef>

#include "cairn/Descriptor.h"

namespace Bridge {

/// Something to be done on the loop's thread, such as a request. The poster keeps it alive until run() is
/// called, which may destroy it.
class Work {
 public:
  virtual void run() noexcept = 0;

 protected:
  Work() = default;
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;
  ~Work() = default;

 private:
  friend class Inbox;
  Work* next_ = nullptr;  // not owned; the one posted before it, and in the loop's own list the one after it
};

/// A queue whose descriptor becomes readable when there is work. It takes no memory of its own, so its bound
/// is that on the objects that are posted (see Quota). The way back needs no queue: what a loop calls on a
/// gRPC reactor may be called on any thread.
///
/// Posted work forms a stack, newest first, which the loop takes as a whole and turns around. Work that finds
/// the stack empty writes to the descriptor; all other work is certain to be taken by a run() that is still
/// to come.
///
/// Thread safety: post() on any thread; everything else on the loop's.
class Inbox {
 public:
  /// Throws Cairn::SystemException when the system refuses.
  Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  /// Readable as long as there is work to run.
  int descriptor() const noexcept { return descriptor_.get(); }

  /// Takes the work and returns true, or returns false after close().
  bool post(Work& work) noexcept;
  /// Runs at most `limit` pieces of work, each thread's in the order in which it has posted them, and returns
  /// how many it has run.
  std::size_t run(std::size_t limit);
  /// Refuses further work and runs what is there.
  void close();

 private:
  void wake() const noexcept;
  void append(Work* newest) noexcept;
  std::size_t runTaken(std::size_t limit);

  struct Closed final : Work {
    void run() noexcept override;
  };

  Closed closed_;
  // Release in post() pairs with acquire in run() and close(): the loop sees what a poster did before it
  // posted. Pushes on top of one another extend its release sequence, so this holds for the whole stack.
  std::atomic<Work*> newest_{nullptr};
  Work* oldestTaken_ = nullptr;
  Work* newestTaken_ = nullptr;
  Cairn::Descriptor descriptor_;
};

}  // namespace Bridge
