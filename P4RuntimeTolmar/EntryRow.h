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

/// All that a row class does; `Row` is the class made of it.
template <class Row, class Entry>
class TypedRow : public Lumen::BaseRow {
 public:
  using Layout = RowLayout<Entry>;
  using EntryType = Entry;
  using KeyRecord = typename Entry::Key;

  /// A zero row.
  TypedRow() : BaseRow(Layout::kFixedLength) { storeFreshType(); }
  /// A handle on a generic row. A null row becomes a null row. Throws LmBadCast if the row is of another
  /// type, Cairn::AssertionException if its bytes are not laid out as the class's are; `row` is then as it
  /// was.
  TypedRow(const BaseRow& row) : BaseRow((requireConvertible(row, row.contentOffset()), row)) {}
  TypedRow(BaseRow&& row) : BaseRow((requireConvertible(row, row.contentOffset()), std::move(row))) {}
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

 protected:
  /// A row to be filled by storeFresh, with room for `storedSize` bytes in the variable area.
  struct Fresh {
    std::size_t storedSize;
  };
  explicit TypedRow(Fresh row)
      : BaseRow(ToBeFilled{Layout::kFixedLength, lengthWith(row.storedSize), kCount}) {
    storeFreshType();
  }
  /// A zero row with the same room, for key columns.
  struct Probe {
    std::size_t storedSize;
  };
  explicit TypedRow(Probe probe) : BaseRow(Layout::kFixedLength, lengthWith(probe.storedSize)) {
    storeFreshType();
  }
  /// Bytes that a value takes in the variable area.
  template <class T>
  static std::size_t storedSize(const T& value);
  /// Stores values into the columns from number `First` on of a row that was just made or cleared, is nobody
  /// else's and has room for them.
  template <std::size_t First, class... T>
  void storeFresh(const T&... value);

 private:
  static constexpr std::uint16_t kRowTypeUnknown = 0xffff;
  /// Rows without variable columns have no more buffer than fixed data and count so.
  static constexpr auto kCount =
      Layout::kVariableCount == 0 ? &Lumen::BaseRowCounters::sized : &Lumen::BaseRowCounters::sizedWithBuffer;

  /// A copy of a row of this class.
  struct Copied {
    BaseRow row;
  };
  explicit TypedRow(Copied copy) : BaseRow(std::move(copy.row)) {}
  static len_t lengthWith(std::size_t storedSize) {
    return static_cast<len_t>(Layout::kFixedLength + storedSize);
  }
  void storeFreshType() { Lumen::storeBytes(freshBytes() + Lumen::kRowTypeOffset, protRowType()); }
  /// Fails unless `row` is null or a row of this class; `contentOffset` goes into the text.
  static void requireConvertible(const BaseRow& row, len_t contentOffset);
  template <class T>
  static void storeFreshColumn(std::byte* row, len_t offset, std::size_t& end, const T& value);
  template <std::size_t First, class Record, class Columns>
  void readColumns(Record& record, const Columns& columns) const;
  /// Prints name and value of each column, `quote` around the name, `assign` between the two, joined by ", ".
  void printColumns(std::ostream& out, std::string_view quote, std::string_view assign) const;

  inline static constinit std::uint16_t cachedRowType_ = kRowTypeUnknown;
};

/// The base of the row classes: TypedRow, and how rows are made of values. `FieldType` and `KeyType` are the
/// types of all columns and of the key columns.
template <class Row, class Entry, class Fields = decltype(detail::columnTypes(RowSchema<Entry>::columns)),
          class Keys = decltype(detail::columnTypes(RowSchema<typename Entry::Key>::columns))>
class EntryRow;

template <class Row, class Entry, class... FieldType, class... KeyType>
class EntryRow<Row, Entry, TypeList<FieldType...>, TypeList<KeyType...>> : public TypedRow<Row, Entry> {
  using Typed = TypedRow<Row, Entry>;

 public:
  using Typed::Typed;
  using Typed::operator=;
  EntryRow() = default;
  /// A row of these fields, in a buffer of just the size.
  EntryRow(const FieldType&... field) : Typed(typename Typed::Fresh{(Typed::storedSize(field) + ... + 0)}) {
    this->template storeFresh<0>(field...);
  }
  /// A row with these key columns, everything else zero: a probe for lookups.
  static Row key(const KeyType&... key) {
    Row row = zero((Typed::storedSize(key) + ... + 0));
    row.template storeFresh<Typed::Layout::kKeyFirst>(key...);
    return row;
  }

 private:
  static Row zero(std::size_t storedSize) {
    if constexpr (Typed::Layout::kVariableCount == 0) {
      return Row();
    } else {
      return Row{typename Typed::Probe{storedSize}};
    }
  }
};

}  // namespace TolmarHwLib

#include "P4RuntimeTolmar/EntryRow-inl.h"
