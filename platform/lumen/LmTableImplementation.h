// What a table of the row database is implemented by: its storage, and iteration over its rows and changes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "rows/BaseRow.h"

namespace Lumen {

class LmTableImplementation;
class LumenDB;

enum class ChangeKind : std::uint32_t { written = 1, deleted = 2 };

/// One recorded change. A written row is reported with its present content, a deleted one with only its key.
struct BasicLmTableChange {
  std::uint64_t index;
  ChangeKind kind;
  BaseRow row;
};

/// A position in a table's rows. How two positions compare is the implementation's own; an iterator of
/// another class is a bad cast (std::bad_cast).
class LmRowIteratorImpl {
 public:
  virtual ~LmRowIteratorImpl();
  virtual bool operator==(const LmRowIteratorImpl& other) const = 0;
  virtual bool operator!=(const LmRowIteratorImpl& other) const = 0;
  /// Whether the iterator is at a row.
  virtual explicit operator bool() const = 0;
  /// The current row; an assertion failure on an exhausted iterator.
  virtual BaseRow operator*() const = 0;
  virtual LmRowIteratorImpl& operator++() = 0;
  /// An independent copy at the same position.
  virtual std::unique_ptr<LmRowIteratorImpl> clone() const = 0;

 protected:
  LmRowIteratorImpl() = default;
  LmRowIteratorImpl(const LmRowIteratorImpl&) = default;
  LmRowIteratorImpl& operator=(const LmRowIteratorImpl&) = default;
};

/// A position in a table's changes, in ascending order of their indices. It stays valid when changes are
/// recorded and forgotten: ++ then goes to the next higher index.
class LmChangeIteratorImpl {
 public:
  virtual ~LmChangeIteratorImpl();
  virtual bool operator==(const LmChangeIteratorImpl& other) const = 0;
  virtual bool operator!=(const LmChangeIteratorImpl& other) const = 0;
  /// The current change; an assertion failure at the end.
  virtual std::shared_ptr<BasicLmTableChange> operator*() = 0;
  virtual LmChangeIteratorImpl& operator++() = 0;
  virtual std::unique_ptr<LmChangeIteratorImpl> clone() const = 0;

 protected:
  LmChangeIteratorImpl() = default;
  LmChangeIteratorImpl(const LmChangeIteratorImpl&) = default;
  LmChangeIteratorImpl& operator=(const LmChangeIteratorImpl&) = default;
};

/// The registered table as its implementation sees it.
class LmTableInterface {
 public:
  virtual ~LmTableInterface();
  /// From now on the table is served by `implementation` (null: by none).
  virtual void implementationIs(const std::shared_ptr<LmTableImplementation>& implementation) = 0;
};

/// Thread safety: none; used on the thread that runs the framework's callbacks. An implementation is owned by
/// a shared pointer, which the caller holds until the call returns.
class LmTableImplementation {
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
  /// Whether the implementation accepts observers of its own.
  virtual bool observerSupported() const = 0;
  virtual void activateIndex(unsigned idx) = 0;
  virtual void deactivateIndex(unsigned idx) = 0;
  virtual bool indexActive(unsigned idx) const = 0;
  virtual unsigned indexes() const = 0;

  /// The row with the key of `keyRow`; a row of zeros when there is none.
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

  /// Changes up to this index are forgotten: a caller that has seen less reads the rows again.
  virtual std::uint64_t oldestChangeIdx() const = 0;
  virtual std::uint64_t latestChangeIdx() const = 0;
  /// The first change above `idx`.
  virtual std::unique_ptr<LmChangeIteratorImpl> nextChange(std::uint64_t idx) = 0;
  virtual std::unique_ptr<LmChangeIteratorImpl> endChange() = 0;
  /// For implementations that fill over time: called periodically so that they can continue.
  virtual void reportProgress() = 0;

  /// Binds a table of the row database; not owned, it unbinds itself in its destructor.
  virtual void addInterface(LmTableInterface& tableInterface) = 0;
  virtual void removeInterface(LmTableInterface& tableInterface) = 0;
  virtual std::size_t boundInterfacesCount() const = 0;
  /// Has every bound table served by `implementation` from now on (null: by none).
  virtual void replaceImplementation(const std::shared_ptr<LmTableImplementation>& implementation,
                                     LumenDB& lumenDb) = 0;
  /// Releases what outlives the tables; called when the database drops the implementation.
  virtual void cleanup() = 0;

 protected:
  LmTableImplementation() = default;
};

}  // namespace Lumen
