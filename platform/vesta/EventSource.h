#pragma once

#include <cstddef>

namespace Vesta {

/// How an event loop follows one table that another process writes. For each source, the loop
/// - watches wakeDescriptor() for reading and calls descriptorReadable() when it is;
/// - asks maySleep() just before it would sleep, and does not sleep when the answer is false;
/// - after each sleep or non-sleep calls awake() and then poll().
/// The descriptor stays the same, and stays the source's, from construction to destruction.
class EventSource {
 public:
  EventSource() = default;
  EventSource(const EventSource&) = delete;
  EventSource& operator=(const EventSource&) = delete;
  virtual ~EventSource();

  /// Readable when the writer has woken this reader; -1 for a source that never has events.
  virtual int wakeDescriptor() const = 0;
  /// Empties the wake descriptor and follows the writer to a new segment if there is one. Two system calls.
  virtual void descriptorReadable() = 0;
  /// Hands at most `limit` changed keys to the handler, oldest first, each change once; tells the writer of
  /// the progress after each handler has returned. Returns how many. No system call unless the segment was
  /// replaced.
  virtual std::size_t poll(std::size_t limit) = 0;
  /// Announces sleep to the writer. False when changes are pending: then nothing is announced.
  virtual bool maySleep() = 0;
  /// Takes the announcement back. No system call.
  virtual void awake() = 0;
};

}  // namespace Vesta
