// A handle on a row of bytes. Handles share buffers; a write through one of them copies first.
//
// Thread safety: a handle is used by one thread at a time. Handles of several threads may share a buffer.
// Invariants: the bytes of a handle whose buffer is not shared, and which is not a view, are visible through
// that handle only. The buffer of a row class's handle holds the class's fixed data (checked once, when the
// handle is made from a generic row), so its fixed columns are read without further checks; slots are checked
// when followed. Assigning a generic row to a handle of a row class through a BaseRow& bypasses the check and
// is a programming error. A failed operation leaves the row unchanged, except that a copy made before a write
// stays.
#pragma once

#include <concepts>
#include <cstdint>
#include <span>
#include <string>

#include "rows/Encoding.h"
#include "rows/LmRowBuf.h"
#include "rows/RowErrors.h"
#include "rows/RowFormat.h"

namespace Lumen {

/// Rows made by this thread, one count per kind of construction.
struct BaseRowCounters {
  std::uint64_t defaulted = 0;
  std::uint64_t sized = 0;
  std::uint64_t sizedWithBuffer = 0;
  std::uint64_t copied = 0;
  std::uint64_t moved = 0;
  std::uint64_t cloned = 0;
  std::uint64_t fromBytes = 0;
  std::uint64_t subRows = 0;
};

// The library that defines it is always loaded with the program, so the static TLS block has room for it;
// this access model saves a call per row.
[[gnu::tls_model("initial-exec")]] extern thread_local constinit BaseRowCounters baseRowCounters;

class BaseRow;

/// A row class used as the type of a column: a row within a row.
template <class T>
concept NestedRow = std::derived_from<T, BaseRow>;

class BaseRow {
 public:
  /// A null row: no buffer; every read or write fails with LmNullRow.
  BaseRow() noexcept { ++baseRowCounters.defaulted; }
  /// A zero row of `length` bytes of fixed data, header included (at least lm_contentOffset, else
  /// Cairn::AssertionException). Throws Cairn::MemoryResourceException.
  explicit BaseRow(len_t length);
  /// The same in a buffer of `bufferLength` bytes, at least `length`: the rest is for the variable area.
  BaseRow(len_t length, len_t bufferLength);
  /// Another handle on the same buffer, with the same content offset and flags.
  BaseRow(const BaseRow& other) noexcept
      : buffer_(other.buffer_),
        contentOffset_(other.contentOffset_),
        sharedContents_(other.sharedContents_),
        readOnly_(other.readOnly_) {
    ++baseRowCounters.copied;
  }
  /// Takes the buffer; `other` becomes a null row.
  BaseRow(BaseRow&& other) noexcept
      : buffer_(std::move(other.buffer_)),
        contentOffset_(std::exchange(other.contentOffset_, len_t{0})),
        sharedContents_(std::exchange(other.sharedContents_, false)),
        readOnly_(std::exchange(other.readOnly_, false)) {
    ++baseRowCounters.moved;
  }
  BaseRow& operator=(const BaseRow& other) noexcept;
  BaseRow& operator=(BaseRow&& other) noexcept;

  /// Shares `other`'s buffer and takes its content offset and shared-contents flag; this handle keeps its own
  /// read-only flag. A handle of a row class fails with Cairn::AssertionException if that row is too short
  /// for it.
  virtual void shareContents(const BaseRow& other);
  virtual ~BaseRow() = default;
  /// Fixed-data offsets of the variable-length columns. Not for generic rows (assertion "0").
  virtual std::span<const len_t> vcd() const;
  virtual std::string toString() const;
  /// "" for generic rows.
  virtual std::string toJson() const;
  /// Generic rows: same type and same bytes.
  virtual bool rowEqual(const BaseRow& other) const;
  /// Generic rows: LmNotSupported.
  virtual bool rowLess(const BaseRow& other) const;
  /// Generic rows: LmNotSupported.
  virtual std::uint32_t rowHash() const;
  /// Length of the fixed data, header included. Not for generic rows (assertion "0").
  virtual len_t baseRowLength() const;
  /// True for a row class, whose columns are known.
  virtual bool isFullyDefined() const;
  /// Clears the row to its class's fixed data and type; null rows stay as they are.
  virtual void clearRow();

  static constexpr bool isBaseRow() { return true; }
  /// A row over a copy of `bytes`, header included. Only the size (lm_contentOffset to kMaxRowLength) is
  /// checked before the row is converted or read.
  static BaseRow fromBytes(std::span<const std::byte> bytes);
  /// A writable copy in a buffer of exactly rowLength() bytes.
  BaseRow clone() const;

  bool isNull() const noexcept { return !buffer_; }
  len_t rowLength() const { return bytes().rowLength(); }
  std::uint16_t rowType() const { return loadBytes<std::uint16_t>(bytes().data + kRowTypeOffset); }
  /// Writes the row type, with the checks of a column write.
  void rowTypeIs(std::uint16_t type);
  len_t contentOffset() const noexcept { return contentOffset_; }
  /// Set on a view of bytes that must not change in place; a write copies first.
  bool sharedContents() const noexcept { return sharedContents_; }
  /// Set on rows handed out by a read-only table.
  bool readOnly() const noexcept { return readOnly_; }
  void readOnlyIs(bool readOnly) noexcept { readOnly_ = readOnly; }
  /// Bytes in the buffer and handles that share it; 0 for a null row.
  len_t bufferLength() const noexcept { return buffer_ ? buffer_->length() : len_t{0}; }
  std::uint32_t bufferUseCount() const noexcept { return buffer_.useCount(); }

  /// Zeroes `fixedLength` bytes and makes them the row: type 0, nothing in the variable area. A row whose
  /// buffer is shared gets a new one of the same length. `fixedLength` is lm_contentOffset to bufferLength().
  /// A row of a class that is cleared to less than the class's fixed data can be written in place but not
  /// copied.
  void clear(len_t fixedLength);

  /// Writes the column at `offset`. `fixedLength` is the length of the row's fixed data, in which the column
  /// must lie. Throws LmPermissionViolation, LmNullRow, Cairn::MemoryResourceException (copy on write, or a
  /// variable column that needs a larger buffer), Cairn::AssertionException (`fixedLength` 0, row too long,
  /// row length too short for a copy that holds the column).
  /// On a generic row an address that gets longer leaves its place unused, unless it is the row's last value;
  /// rows that are rewritten often should be of a row class.
  template <class T>
  void setColumn(len_t offset, const T& value, len_t fixedLength);
  /// Reads the column at `offset`, which must lie in the row.
  template <class T>
  void getColumn(len_t offset, T& out) const {
    out = Encoding<T>::load(bytes(), offset);
  }
  /// Reads the row of class `Row` that the slot at `offset` refers to: a null row if the column is absent.
  /// Throws LmBadCast, or Cairn::AssertionException if it does not lie inside this row's buffer.
  template <NestedRow Row>
  void getColumnStruct(len_t offset, Row& out) const;

  /// 32-bit hash of the column at `offset`.
  template <class T>
  std::uint32_t columnHash(len_t offset) const;
  /// This row's column at `offset` against that of `other` at `otherOffset`.
  template <class T>
  bool columnEqual(len_t offset, const BaseRow& other, len_t otherOffset) const;
  template <class T>
  bool columnLess(len_t offset, const BaseRow& other, len_t otherOffset) const;

  /// The row's bytes. Throws LmNullRow.
  RowBytes bytes() const {
    if (!buffer_) [[unlikely]]
      throwNullRow();
    return {buffer_->bytes() + contentOffset_, std::size_t{buffer_->length()} - contentOffset_};
  }
  /// Fails with Cairn::AssertionException unless the row has `fixedLength` bytes of fixed data and the values
  /// of its variable columns inside its length, and that inside its buffer. Throws LmNullRow.
  void requireLayout(len_t fixedLength, std::span<const len_t> variableColumns) const;

 protected:
  struct NestedIn {
    const BaseRow& parent;
    VarSlot slot;
  };
  explicit BaseRow(NestedIn place);
  /// For row classes: a row of `length` bytes of fixed data in a buffer of `bufferLength` bytes, in which
  /// only the row length is written; it is counted in `count`. The caller writes all other bytes before the
  /// row is used.
  struct ToBeFilled {
    len_t length;
    len_t bufferLength;
    std::uint64_t BaseRowCounters::*count;
  };
  explicit BaseRow(ToBeFilled row) : buffer_(LmRowBuf::toBeFilled(row.bufferLength)) {
    storeBytes(freshBytes() + kRowLengthOffset, row.length);
    ++(baseRowCounters.*row.count);
  }

  /// The bytes of a new row that no other handle shares yet, to be written without checks.
  std::byte* freshBytes() noexcept { return buffer_->bytes(); }
  /// Makes the row writable in place up to `writeEnd`, or fails as a column write does.
  void prepareWrite(len_t fixedLength, std::size_t writeEnd) {
    if (fixedLength == 0 || !writableInPlace()) [[unlikely]]
      makeWritable(fixedLength, writeEnd);
  }
  /// The bytes of a row after prepareWrite, to be written without checks.
  std::byte* writableBytes() noexcept { return buffer_->bytes() + contentOffset_; }

 private:
  explicit BaseRow(LmRowBufPtr buffer) noexcept : buffer_(std::move(buffer)) {}
  bool writableInPlace() const noexcept {
    return buffer_ && buffer_.unique() && !sharedContents_ && !readOnly_;
  }
  void makeWritable(len_t fixedLength, std::size_t writeEnd);
  /// A buffer of rowLength() bytes that holds a copy of the row.
  LmRowBufPtr copiedBytes() const;
  void installBuffer(LmRowBufPtr buffer) noexcept;
  void storeVariable(len_t offset, std::span<const std::byte> value, len_t fixedLength);
  std::size_t placeLength(len_t offset, VarSlot slot, len_t fixedLength) const;
  bool isLastValue(VarSlot slot, std::size_t fixedEnd) const;
  void endRowAt(std::size_t start, std::size_t end);
  VarSlot nestedSlot(len_t offset) const { return loadBytes<VarSlot>(bytes().data + offset); }

  LmRowBufPtr buffer_;
  len_t contentOffset_ = 0;
  bool sharedContents_ = false;
  bool readOnly_ = false;
};

/// A view of the row that a slot of `parent` refers to, in the parent's buffer. It can be written even if the
/// parent is read-only: a write copies first.
class SubRow : public BaseRow {
 public:
  /// Throws Cairn::AssertionException unless the nested row lies inside the slot's bytes and those inside the
  /// parent's buffer. The parent's row length need not cover them, but copies of the parent lose them then.
  SubRow(const BaseRow& parent, VarSlot slot) : BaseRow(NestedIn{parent, slot}) {}
  ~SubRow() override;
};

}  // namespace Lumen

#include "rows/BaseRow-inl.h"
