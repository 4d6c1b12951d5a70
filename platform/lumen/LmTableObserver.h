// A follower of one table of the row database, at its own pace.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <optional>

#include "lumen/LmIterator.h"

namespace Lumen {

class LmTable;

/// Attached to a table (LmTable::observerIs), an observer is told of changes and consumes them when it likes;
/// the table keeps its changes until the slowest observer has consumed them. It may write rows, drop itself
/// or others and replace the implementation from within its calls. A write made within a call is told after
/// the change that caused it, not within it; an observer that writes on every call is called for ever. Thread
/// safety: none; used on the thread of the table.
class LmTableObserver : public std::enable_shared_from_this<LmTableObserver> {
 public:
  LmTableObserver() = default;
  LmTableObserver(const LmTableObserver&) = delete;
  LmTableObserver& operator=(const LmTableObserver&) = delete;
  virtual ~LmTableObserver();

  /// All rows known so far are void: the observer has just been attached, the table's implementation has been
  /// replaced or dropped, or changes were forgotten before it had consumed them. The rows now present follow,
  /// each as a written change.
  virtual void onReset() = 0;
  /// One row was written or deleted. A change whose call throws is not consumed; it comes again.
  virtual void onChange(const BasicLmTableChange& change) = 0;
  /// Changes are there to be consumed. Consumes all of them; to be overridden for another pace.
  virtual void onChangesWaiting() { consume(); }
  /// An exception left one of the calls above. Writes one line to standard error by default; so does what
  /// leaves this call itself.
  virtual void onException(const std::exception& exception);

  /// Hands waiting changes to onChange, in ascending order of their indices, `limit` at most; the rows after
  /// a reset all at once. Returns how many were handed over; 0 within a call of itself.
  std::size_t consume(std::size_t limit = std::numeric_limits<std::size_t>::max());
  /// Changes up to this index have been consumed.
  std::uint64_t consumedChangeIdx() const noexcept { return consumed_; }
  /// The table that is followed; null before attachment and after the observer was dropped.
  LmTable* table() const noexcept { return table_; }

 private:
  friend class LmTable;
  void startOver() noexcept;
  std::size_t walkRows(LmTable& table);
  std::size_t walkChanges(LmTable& table, std::size_t limit);

  LmTable* table_ = nullptr;           // not owned; clears this when it goes
  std::uint64_t consumed_ = 0;         // of the present implementation
  std::optional<std::uint64_t> told_;  // the latest change at the last call; none: to be called
  bool reset_ = false;                 // the rows are to be walked before any change
  bool consuming_ = false;
};

}  // namespace Lumen
