#pragma once

#include <cstddef>

namespace Vesta {

/// How an event loop follows one table that another process writes. For each source, the loop
/// - watches wakeDescriptor() and calls descriptorReadable() when it is readable;
/// - calls maySleep() just before it would sleep, and does not sleep when the answer is false;
/// - then calls awake() and poll(), whether it has slept or not.
/// The descriptor is owned by the source and stays the same from construction to destruction.
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
  /// Notifies the handler of at most `limit` changed keys, oldest first; see ChangeFollower for what it does
  /// when the log has overrun this reader. The writer sees the progress after each handler has returned.
  /// Returns how many. No system call unless the segment was replaced. Within a handler it does nothing.
  virtual std::size_t poll(std::size_t limit) = 0;
  /// Announces sleep to the writer. False when changes are pending: then nothing is announced.
  virtual bool maySleep() = 0;
  /// Takes the announcement back. No system call.
  virtual void awake() = 0;
};

}  // namespace Vesta
