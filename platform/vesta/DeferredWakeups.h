// Wake-ups of readers, put off while many changes are made in a row.
#pragma once

#include <array>
#include <cstddef>

namespace Vesta {

class SegmentWriter;

/// While one exists, the table writers of its thread wake sleeping readers with the first change, with every
/// 256th after that, and at its end when there were more; without one, with every change that finds a reader
/// asleep. A scope within another does nothing.
///
/// A process that is killed in such a scope leaves up to 255 changes of which no reader has been woken. They
/// are not lost: a reader checks its tables by itself at least once a second (Orrery::EntityManager), and
/// the next writer wakes all readers when it attaches.
/// Thread safety: to be destroyed on the thread that created it.
class DeferredWakeups {
 public:
  DeferredWakeups() noexcept;
  /// Wakes the readers; a wake-up that fails is left to SegmentWriter::monitor().
  ~DeferredWakeups();
  DeferredWakeups(const DeferredWakeups&) = delete;
  DeferredWakeups& operator=(const DeferredWakeups&) = delete;

  /// Whether `writer`, which has made a change and found a reader asleep, is to wake it later.
  static bool defers(SegmentWriter& writer) noexcept;
  /// To be called before `writer` detaches. True when the scope would have woken its readers at its end.
  static bool forget(const SegmentWriter& writer) noexcept;

 private:
  struct Deferring {
    SegmentWriter* writer;  // not owned; null once forgotten
    unsigned changes;       // since it last woke readers
  };

  std::array<Deferring, 16> writers_;  // any more of them wake readers with every change
  std::size_t count_ = 0;
};

}  // namespace Vesta
