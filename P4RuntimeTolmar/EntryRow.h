// Base classes of the row classes: a typed view of a row whose columns are the fields of an entry record.
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

/// Row type number of `rowTypeName` in the row database; loads the metadata if necessary.
std::uint16_t lookUpRowType(std::string_view rowTypeName);

}  // namespace detail

/// Implementation of a row class that does not depend on the number of its columns. `Row` is the row class.
template <class Row, class Entry>
class TypedRow : public Lumen::BaseRow {
 public:
  using Layout = RowLayout<Entry>;
  using EntryType = Entry;
  using KeyRecord = typename Entry::Key;

  /// A row of zeros.
  TypedRow() : BaseRow(Layout::kFixedLength) { storeFreshType(); }
  /// A handle on a generic row; a null row for a null row. Throws LmBadCast if the row has another type,
  /// Cairn::AssertionException if its bytes do not have the layout of the class; `row` is then unchanged.
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
  /// Row type number of the class; looked up once, then cached. Throws LmMetadataError.
  static std::uint16_t protRowType() {
    if (cachedRowType_ == kRowTypeUnknown) [[unlikely]]
      cachedRowType_ = detail::lookUpRowType(rowTypeName());
    return cachedRowType_;
  }
  /// Clears the cached row type number.
  static void reset() noexcept { cachedRowType_ = kRowTypeUnknown; }
  /// The text of a generic row of this class. Throws like the conversion.
  static std::string browToString(const BaseRow& row) { return Row(row).toString(); }

  /// A row with the fields of the entry.
  static Row fromEntry(const Entry& entry);
  /// Replaces the contents of the row by the fields of the entry. Keeps the buffer if it is not shared and
  /// large enough. Throws LmPermissionViolation or Cairn::MemoryResourceException; the row is then unchanged.
  void fill(const Entry& entry);
  /// Reads every column into the field of the same name. Throws LmNullRow, or Cairn::AssertionException if a
  /// slot points outside the row; `entry` may then be partly read.
  void readInto(Entry& entry) const { readColumns<0>(entry, Layout::kColumns); }
  Entry entry() const;
  /// The key of the row. Throws like readInto.
  KeyRecord keyRecord() const;

  /// A writable copy in a buffer of exactly rowLength() bytes; it keeps the row type in the header. Throws
  /// LmNullRow, or Cairn::AssertionException for a row cleared to less than the fixed data of the class.
  Row clone() const;
  /// Hash of the key columns, which operator== and operator< compare. All three throw like readInto.
  std::uint32_t hash() const { return KeyColumns<Entry>::hash(bytes()); }

  std::span<const len_t> vcd() const override { return Layout::kVariableColumns; }
  /// "name = value" of each column, joined by ", "; "len: 0, NULL" for a null row.
  std::string toString() const override;
  std::string toJson() const override;
  /// Compares all columns. False for a row of another type.
  bool rowEqual(const BaseRow& other) const override;
  /// Compares all columns. Throws LmBadCast for a row of another type.
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
  /// An uninitialised row for storeFresh, with `storedSize` bytes for the variable area.
  struct Fresh {
    std::size_t storedSize;
  };
  explicit TypedRow(Fresh row)
      : BaseRow(ToBeFilled{Layout::kFixedLength, lengthWith(row.storedSize), kCount}) {
    storeFreshType();
  }
  /// A row of zeros with the same room, for key columns.
  struct Probe {
    std::size_t storedSize;
  };
  explicit TypedRow(Probe probe) : BaseRow(Layout::kFixedLength, lengthWith(probe.storedSize)) {
    storeFreshType();
  }
  /// Size of a value in the variable area.
  template <class T>
  static std::size_t storedSize(const T& value);
  /// Stores values into the columns from number `First` on. The row is new or cleared, its buffer unshared
  /// and large enough.
  template <std::size_t First, class... T>
  void storeFresh(const T&... value);

 private:
  static constexpr std::uint16_t kRowTypeUnknown = 0xffff;
  /// The counter that a construction from all fields increments.
  static constexpr auto kCount =
      Layout::kVariableCount == 0 ? &Lumen::BaseRowCounters::sized : &Lumen::BaseRowCounters::sizedWithBuffer;

  /// Tag for the constructor that takes a copied row without checks.
  struct Copied {
    BaseRow row;
  };
  explicit TypedRow(Copied copy) : BaseRow(std::move(copy.row)) {}
  static len_t lengthWith(std::size_t storedSize) {
    return static_cast<len_t>(Layout::kFixedLength + storedSize);
  }
  void storeFreshType() { Lumen::storeBytes(freshBytes() + Lumen::kRowTypeOffset, protRowType()); }
  /// Throws unless `row` is null or a row of this class; `contentOffset` is part of the message.
  static void requireConvertible(const BaseRow& row, len_t contentOffset);
  template <class T>
  static void storeFreshColumn(std::byte* row, len_t offset, std::size_t& end, const T& value);
  template <std::size_t First, class Record, class Columns>
  void readColumns(Record& record, const Columns& columns) const;
  /// Prints each column as name in `quote`, `assign`, value; joined by ", ".
  void printColumns(std::ostream& out, std::string_view quote, std::string_view assign) const;

  inline static constinit std::uint16_t cachedRowType_ = kRowTypeUnknown;
};

/// Base of the row classes: TypedRow with the operations that take one argument for each column or key
/// column; their types are `FieldType` and `KeyType`.
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
  /// A row with these fields, in a buffer of exactly its size.
  EntryRow(const FieldType&... field) : Typed(typename Typed::Fresh{(Typed::storedSize(field) + ... + 0)}) {
    this->template storeFresh<0>(field...);
  }
  /// A row with these key columns and zeros in the others; used as a probe in lookups.
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
