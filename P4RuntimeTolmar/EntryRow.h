// The row classes' common engine: a typed view over a row whose columns are the fields of an entry record.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "P4RuntimeTolmar/RowColumns.h"
#include "rows/BaseRow.h"

namespace TolmarHwLib {

template <class... T>
struct TypeList {};

namespace detail {

template <class... C>
TypeList<typename C::Type...> columnTypes(const std::tuple<C...>&);

/// The number of `rowTypeName` in the row database, which loads the metadata if it has to.
std::uint16_t lookUpRowType(std::string_view rowTypeName);

}  // namespace detail

template <class Entry>
using FieldTypes = decltype(detail::columnTypes(RowLayout<Entry>::kColumns));
template <class Entry>
using KeyTypes = decltype(detail::columnTypes(RowSchema<Entry>::key));

template <class Row, class Entry, class Fields = FieldTypes<Entry>, class Keys = KeyTypes<Entry>>
class EntryRow;

/// `Row` is the class made of it, `FieldType` and `KeyType` are the types of all columns and of the key
/// columns.
template <class Row, class Entry, class... FieldType, class... KeyType>
class EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>> : public Lumen::BaseRow {
 public:
  using Layout = RowLayout<Entry>;
  using EntryType = Entry;
  using KeyRecord = typename RowSchema<Entry>::Key;

  /// A zero row.
  EntryRow() : BaseRow(Layout::kFixedLength) { storeFreshType(); }
  /// A row of these fields, in a buffer of just the size.
  EntryRow(const FieldType&... field);
  /// A handle on a generic row. A null row becomes a null row. Throws LmBadCast if the row is of another
  /// type, Cairn::AssertionException if its bytes are not laid out as the class's are; `row` is then as it
  /// was.
  EntryRow(const BaseRow& row) : BaseRow((requireConvertible(row, row.contentOffset()), row)) {}
  EntryRow(BaseRow&& row) : BaseRow((requireConvertible(row, row.contentOffset()), std::move(row))) {}
  Row& operator=(const BaseRow& row) {
    requireConvertible(row, contentOffset());
    BaseRow::operator=(row);
    return static_cast<Row&>(*this);
  }
  Row& operator=(BaseRow&& row) {
    requireConvertible(row, contentOffset());
    BaseRow::operator=(std::move(row));
    return static_cast<Row&>(*this);
  }

  /// A row with these key columns, everything else zero: a probe for lookups.
  static Row key(const KeyType&... key);

  static constexpr std::string_view rowTypeName() { return RowSchema<Entry>::rowTypeName; }
  static constexpr std::string_view lmTypeSignature() { return Layout::descriptor(); }
  static constexpr bool isBaseRow() { return false; }
  /// The class's row type number, looked up once. Throws LmMetadataError.
  static std::uint16_t protRowType() {
    if (cachedRowType_ == kRowTypeUnknown) [[unlikely]]
      cachedRowType_ = detail::lookUpRowType(rowTypeName());
    return cachedRowType_;
  }
  /// Forgets the row type number.
  static void reset() noexcept { cachedRowType_ = kRowTypeUnknown; }
  /// The text of a generic row of this class. Throws as the conversion does.
  static std::string browToString(const BaseRow& row) { return Row(row).toString(); }

  /// A row of the entry's fields.
  static Row fromEntry(const Entry& entry);
  /// Makes this row one of the entry's fields, in the buffer it has if nobody shares it and it is large
  /// enough. Throws LmPermissionViolation, Cairn::MemoryResourceException; the row is then as it was.
  void fill(const Entry& entry);
  /// Reads every column into the field of the same name. Throws LmNullRow, Cairn::AssertionException if a
  /// slot has been written that points outside the row; `entry` may then be half read.
  void readInto(Entry& entry) const { readColumns<0>(entry, Layout::kColumns); }
  Entry entry() const;
  /// The key record of the row. Throws like readInto.
  KeyRecord keyRecord() const;

  /// A writable copy in a buffer of exactly rowLength() bytes, whatever row type has been written into the
  /// row. Throws LmNullRow, Cairn::AssertionException for a row cleared to less than the class's fixed data.
  Row clone() const;
  /// Hash over the key columns; operator== and < below go by them too. All throw like readInto.
  std::uint32_t hash() const { return KeyColumns<Entry>::hash(bytes()); }

  std::span<const len_t> vcd() const override { return Layout::kVariableColumns; }
  /// name = value, joined by ", "; "len: 0, NULL" for a null row.
  std::string toString() const override;
  std::string toJson() const override;
  /// Over all columns. False for a row of another type.
  bool rowEqual(const BaseRow& other) const override;
  /// Over all columns. Throws LmBadCast for a row of another type.
  bool rowLess(const BaseRow& other) const override;
  std::uint32_t rowHash() const override { return AllColumns<Entry>::hash(bytes()); }
  len_t baseRowLength() const override { return Layout::kFixedLength; }
  bool isFullyDefined() const override { return true; }
  void clearRow() override;

  friend bool operator==(const Row& a, const Row& b) {
    return KeyColumns<Entry>::equal(a.bytes(), b.bytes());
  }
  friend bool operator<(const Row& a, const Row& b) { return KeyColumns<Entry>::less(a.bytes(), b.bytes()); }
  friend std::ostream& operator<<(std::ostream& out, const Row& row) { return out << row.toString(); }

 private:
  static constexpr std::uint16_t kRowTypeUnknown = 0xffff;

  /// Rows without variable columns have no more buffer than fixed data and count so.
  static constexpr auto kCount =
      Layout::kVariableCount == 0 ? &Lumen::BaseRowCounters::sized : &Lumen::BaseRowCounters::sizedWithBuffer;

  /// A zero row with room for key columns of `storedSize` bytes in the variable area.
  struct Probe {
    std::size_t storedSize;
  };
  explicit EntryRow(Probe probe) : BaseRow(Layout::kFixedLength, lengthWith(probe.storedSize)) {
    storeFreshType();
  }
  /// A copy of a row of this class.
  struct Copied {
    BaseRow row;
  };
  explicit EntryRow(Copied copy) : BaseRow(std::move(copy.row)) {}
  static len_t lengthWith(std::size_t storedSize) {
    return static_cast<len_t>(Layout::kFixedLength + storedSize);
  }
  void storeFreshType() { Lumen::storeBytes(freshBytes() + Lumen::kRowTypeOffset, protRowType()); }
  /// Fails unless `row` is null or a row of this class; `contentOffset` goes into the text.
  static void requireConvertible(const BaseRow& row, len_t contentOffset);
  /// Bytes that a value takes in the variable area.
  template <class T>
  static std::size_t storedSize(const T& value);
  /// Stores values into the columns from number `First` on of a row that was just made or cleared, is nobody
  /// else's and has room for them.
  template <std::size_t First, class... T>
  void storeFresh(const T&... value);
  template <class T>
  static void storeFreshColumn(std::byte* row, len_t offset, std::size_t& end, const T& value);
  template <std::size_t First, class Record, class Columns>
  void readColumns(Record& record, const Columns& columns) const;
  /// Prints name and value of each column, `quote` around the name, `assign` between the two, joined by ", ".
  void printColumns(std::ostream& out, std::string_view quote, std::string_view assign) const;

  inline static constinit std::uint16_t cachedRowType_ = kRowTypeUnknown;
};

}  // namespace TolmarHwLib

#include "P4RuntimeTolmar/EntryRow-inl.h"
