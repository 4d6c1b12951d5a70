// What stands behind a table of the row database: its storage, its rows and its record of changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "lumen/LmIterator.h"

namespace Lumen {

class LumenDB;

/// The side of a registered table that its implementation reports to.
class LmTableInterface {
 public:
  virtual ~LmTableInterface();
  /// Whether the table has observers.
  virtual bool observed() const noexcept = 0;
  /// A change has been recorded: tells the observers, also of earlier changes that they do not know yet.
  /// Returns the smallest change index that all of them have consumed, or nothing when there is no observer.
  /// The row is the caller's and good until an observer writes to the table.
  virtual std::optional<std::uint64_t> notifyObservers(std::uint64_t previousIdx, std::uint64_t latestIdx,
                                                       bool deleted, const BaseRow& row) = 0;
  /// From now on the table is served by `implementation` (null: by none).
  virtual void implementationIs(const std::shared_ptr<LmTableImplementation>& implementation) = 0;
};

/// Thread safety: none; used on the thread that runs the framework's callbacks. An implementation is owned by
/// a shared pointer and stays alive while it is being called, also when it is replaced on the way.
class LmTableImplementation : public std::enable_shared_from_this<LmTableImplementation> {
 public:
  LmTableImplementation(const LmTableImplementation&) = delete;
  LmTableImplementation& operator=(const LmTableImplementation&) = delete;

  // Virtual operations, in slot order. `idx` is the number of a key index of the table, from 0.
  virtual ~LmTableImplementation();

  virtual const std::string& tableTypeName() const = 0;
  virtual const std::string& rowTypeName() const = 0;
  virtual std::uint16_t rowTypeId() const = 0;
  virtual bool isOrdered(unsigned idx) const = 0;
  virtual bool isUnique(unsigned idx) const = 0;
  virtual bool ready() const = 0;
  /// Rows now present.
  virtual std::size_t size() const = 0;
  virtual bool materialized() const = 0;
  virtual bool bounded() const = 0;
  virtual bool readerSupported() const = 0;
  virtual bool modifierSupported() const = 0;
  /// Whether the implementation takes observers of its own, besides those that the row database keeps.
  virtual bool observerSupported() const = 0;
  virtual void activateIndex(unsigned idx) = 0;
  virtual void deactivateIndex(unsigned idx) = 0;
  virtual bool indexActive(unsigned idx) const = 0;
  virtual unsigned indexes() const = 0;

  /// The row with the key of `keyRow`; a row without content when there is none.
  virtual BaseRow row(const BaseRow& keyRow, unsigned idx) = 0;
  virtual std::unique_ptr<LmRowIteratorImpl> begin(unsigned idx) = 0;
  virtual std::unique_ptr<LmRowIteratorImpl> find(const BaseRow& keyRow, unsigned idx) = 0;
  virtual std::unique_ptr<LmRowIteratorImpl> lower_bound(const BaseRow& row, unsigned idx) = 0;
  virtual std::unique_ptr<LmRowIteratorImpl> upper_bound(const BaseRow& row, unsigned idx) = 0;
  virtual std::unique_ptr<LmRowIteratorImpl> end(unsigned idx) = 0;
  virtual std::unique_ptr<LmRowIteratorImpl> rangeBegin(const BaseRow& row, unsigned idx) = 0;
  virtual std::size_t rangeRows(const BaseRow& row, unsigned idx) = 0;

  /// Inserts the row or replaces the one with its key. The flag is for implementations that can defer a
  /// write.
  virtual void rowIs(const BaseRow& row, bool flag) = 0;
  /// Deletes the row with the key of `keyRow`; a missing one is no error.
  virtual void rowDel(const BaseRow& keyRow) = 0;
  virtual void rowDel(const LmRowIteratorImpl& at) = 0;
  virtual void rowDelAll() = 0;

  /// Changes up to this index are forgotten.
  virtual std::uint64_t oldestChangeIdx() const = 0;
  virtual std::uint64_t latestChangeIdx() const = 0;
  /// The first change above `idx`.
  virtual std::unique_ptr<LmChangeIteratorImpl> nextChange(std::uint64_t idx) = 0;
  virtual std::unique_ptr<LmChangeIteratorImpl> endChange() = 0;
  /// For implementations that fill over time: called now and then to let them go on.
  virtual void reportProgress() = 0;

  /// Binds a table of the row database; it is not owned and unbinds itself before it goes.
  virtual void addInterface(LmTableInterface& tableInterface) = 0;
  virtual void removeInterface(LmTableInterface& tableInterface) = 0;
  virtual std::size_t boundInterfacesCount() const = 0;
  /// Hands every bound table over to `implementation` (null: to none).
  virtual void replaceImplementation(const std::shared_ptr<LmTableImplementation>& implementation,
                                     LumenDB& lumenDb) = 0;
  /// Lets go of what outlives the tables; called when the database drops the implementation.
  virtual void cleanup() = 0;

 protected:
  LmTableImplementation() = default;
};

}  // namespace Lumen
