// The table interface: what a collection needs of its table, independent of the implementation.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "cairn/DebugHandler.h"
#include "cairn/Exception.h"
#include "vesta/IterHint.h"
#include "vesta/files/RootPath.h"

namespace Vesta {

/// A row as a collection holds it.
template <class Key, class Entry>
struct Value {
  Key key{};
  Entry entry{};
};

enum class VestaType : int { writer = 0, reader = 1, readOnlyPlaceholder = 2 };
enum class MountStatus : int { mounted = 0, detached = 1 };

struct WriterCounters {
  std::uint64_t writes = 0;         ///< rows inserted or replaced
  std::uint64_t removals = 0;       ///< rows removed
  std::uint64_t wakeups = 0;        ///< bytes written to wake-up files
  std::uint64_t systemCalls = 0;    ///< system calls made by writes and removals, wake-ups included
  std::uint64_t indexRebuilds = 0;  ///< rebuilds of the index, the one at attach left out
  std::uint64_t replacements = 0;   ///< damaged segments that were replaced, at attach or later
};

struct ReaderCounters {
  std::uint64_t lookups = 0;
  std::uint64_t retries = 0;        ///< rows or probes read again because the writer was changing them
  std::uint64_t notifications = 0;  ///< keys handed to the handler
  std::uint64_t overruns = 0;       ///< times the change log has overrun this reader
  std::uint64_t reattached = 0;     ///< times the segment was replaced under this reader
  std::uint64_t replacements = 0;   ///< damaged segments that this reader has replaced for want of a writer
};

/// Names the state of one row at one time.
struct VersionAnchor {
  std::uint32_t slot = 0;
  std::uint64_t version = 0;
};

/// Carries the debug handler of the classes that log. Never null inside.
class VestaDebug {
 public:
  explicit VestaDebug(std::shared_ptr<const Cairn::DebugHandler> handler);
  const std::shared_ptr<const Cairn::DebugHandler>& debugHandler() const noexcept { return handler_; }
  virtual ~VestaDebug();

 private:
  std::shared_ptr<const Cairn::DebugHandler> handler_;
};

/// A keyed table of rows. References returned by reads stay valid until the next read through the same
/// object. Reads may throw Cairn::CorruptionDetectedException, and UnsettledException when a row kept
/// changing. The operations that are not pure behave here as those of a table that can only be read. Keys are
/// equal (==) exactly when they are encoded alike.
template <class Key, class Entry>
class VestaBase {
 public:
  using Row = Value<Key, Entry>;

  VestaBase() = default;
  VestaBase(const VestaBase&) = delete;
  VestaBase& operator=(const VestaBase&) = delete;
  virtual ~VestaBase() = default;

  // Virtual operations, in slot order.

  /// Whether the table is ready for use.
  virtual bool initialize() = 0;
  /// Releases the segment; the files stay. Afterwards reads find nothing and writes throw.
  virtual void detach() = 0;
  /// Checks every row and index cell; throws on the first corruption.
  virtual bool validate() { throw Cairn::NoPermissionException("validate to read-only Vesta table"); }
  /// Checks kind, owner, mode and size of the files.
  virtual bool validateFiles() {
    throw Cairn::NoPermissionException("validateFiles to read-only Vesta table");
  }
  /// Marks the segment retired and removes its files.
  virtual void cleanup() { throw Cairn::NoPermissionException("cleanup to read-only Vesta table"); }
  /// Inserts or replaces the row of `value.key`. With `onlyIfPresent`, stores nothing and returns false when
  /// the key has no row. Throws Cairn::ResourceExhaustedException when a new key finds the table full.
  virtual bool write(const Row& value, bool onlyIfPresent) {
    (void)value, (void)onlyIfPresent;
    throw Cairn::NoPermissionException("write to read-only Vesta table");
  }
  /// Removes the row of `key`; copies it to `removed` first, unless that is null. False when there is none.
  virtual bool remove(const Key& key, Row* removed) {
    (void)key, (void)removed;
    throw Cairn::NoPermissionException("remove to read-only Vesta table");
  }
  /// The row of `key`, or an all-zero one with `found` false. `extra` may be null; set to the row's
  /// position.
  virtual const Row& lookup(const Key& key, bool& found, IterHint* extra) = 0;
  /// Starts a walk in the table's own order; false when the table is empty.
  virtual bool first(Row& value, IterHint& hint) = 0;
  /// Continues with the row after that of `key`; false at the end. A walk visits every row that is present
  /// from its start to its end, and none twice unless it was removed and inserted again.
  virtual bool next(const Key& key, Row& value, IterHint& hint) = 0;
  virtual std::size_t members() = 0;
  virtual std::size_t minSize() = 0;
  virtual std::size_t maxSize() = 0;
  virtual std::size_t capacity() = 0;
  virtual VestaType type() = 0;
  /// A row to fill in place, its key set and the rest zero; directCommit() writes it.
  virtual Row& directWrite(const Key& key) {
    (void)key;
    throw Cairn::NoPermissionException("write to read-only Vesta table");
  }
  /// Like directWrite, but filled with the present row of `key` if there is one.
  virtual Row& directUpdate(const Key& key) {
    (void)key;
    throw Cairn::NoPermissionException("write to read-only Vesta table");
  }
  virtual void directCommit() { throw Cairn::NoPermissionException("write to read-only Vesta table"); }
  /// Like lookup, for the entry alone.
  virtual const Entry& directLookup(const Key& key, bool& found, IterHint* hint) {
    return lookup(key, found, hint).entry;
  }
  virtual WriterCounters writerCounters() {
    throw Cairn::UnimplementedException("writerCounters() not implemented");
  }
  virtual ReaderCounters readerCounters() {
    throw Cairn::UnimplementedException("readerCounters() not implemented");
  }
  /// Whether changes are handed to a handler.
  virtual bool notifying() { return false; }
  /// How long a read may retry a row that keeps changing; throws Cairn::Exception unless 1 ms to 1 minute.
  virtual void yieldTimeIs(std::chrono::milliseconds time) { (void)time; }
  /// Every n-th read to be checked twice, 0 for none. Tables that check every read ignore it.
  virtual void sampleIs(std::uint32_t every) { (void)every; }
  /// Sequence of the newest change: +1 for each write and each removal.
  virtual std::uint64_t sequence() { return 0; }
  /// Whether every reader of this name has handled all changes. A reader that still has to come over from an
  /// earlier segment does not count: its name is not known.
  virtual bool clientQuiesced(const std::string& name) {
    (void)name;
    throw Cairn::UnimplementedException("clientQuiesced() not implemented");
  }
  /// Whether every living reader has handled all changes up to `sequence`.
  virtual bool quiesced(std::uint64_t sequence) {
    (void)sequence;
    return true;
  }
  virtual bool connected() { return false; }
  virtual RootPath rootPath() = 0;
  virtual std::string vestaName() = 0;
  virtual MountStatus mountStatus() = 0;
  /// The process that writes the table; 0 when none does.
  virtual pid_t writerProcess() { return 0; }
  /// Whether the row that `anchor` names is unchanged. Offered by no table so far, like the next.
  virtual bool validateVersionAnchor(const VersionAnchor& anchor) {
    (void)anchor;
    throw Cairn::UnimplementedException("validateVersionAnchor() not implemented");
  }
  /// Names the state of the row last looked up.
  virtual VersionAnchor getCacheVersionAnchor() {
    throw Cairn::UnimplementedException("getCacheVersionAnchor() not implemented");
  }
};

}  // namespace Vesta
