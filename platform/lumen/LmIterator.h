// Iteration over rows and over changes: what a table implementation provides, and the handles that own it.
#pragma once

#include <cstdint>
#include <memory>

#include "rows/BaseRow.h"

namespace Lumen {

class LmTableImplementation;

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
  /// Whether the iterator stands on a row.
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

/// A position in a table's changes, in ascending order of their indices. It stays good when changes are
/// recorded and forgotten: ++ then goes to the next higher index that is there.
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

/// A value that owns an iterator and keeps the table implementation behind it alive.
template <class Impl>
class LmIterator {
 public:
  LmIterator(std::shared_ptr<LmTableImplementation> table, std::unique_ptr<Impl> impl)
      : table_(std::move(table)), impl_(std::move(impl)) {}
  LmIterator(const LmIterator& other) : table_(other.table_), impl_(other.impl_->clone()) {}
  LmIterator(LmIterator&&) noexcept = default;
  LmIterator& operator=(const LmIterator& other) { return *this = LmIterator(other); }
  LmIterator& operator=(LmIterator&& other) noexcept {
    impl_ = std::move(other.impl_);  // before the table that it may look into
    table_ = std::move(other.table_);
    return *this;
  }
  ~LmIterator() = default;

  bool operator==(const LmIterator& other) const { return *impl_ == *other.impl_; }
  explicit operator bool() const requires requires(const Impl& impl) { static_cast<bool>(impl); }
  { return static_cast<bool>(*impl_); }
  auto operator*() const { return **impl_; }
  LmIterator& operator++() {
    ++*impl_;
    return *this;
  }
  const Impl& impl() const noexcept { return *impl_; }

 private:
  std::shared_ptr<LmTableImplementation> table_;
  std::unique_ptr<Impl> impl_;
};

using LmRowIterator = LmIterator<LmRowIteratorImpl>;
using LmChangeIterator = LmIterator<LmChangeIteratorImpl>;

}  // namespace Lumen
