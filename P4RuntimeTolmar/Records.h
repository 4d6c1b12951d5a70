// Common parts of the records of all table kinds; the records themselves are in kinds/. Each kind has a key,
// a config entry (what the hardware is to be programmed with) and a status entry (the answer of the hardware
// agent). Records are values, initially all zero. Nothing here interprets the hardware fields.
//
// The hash of a key equals the key hash of its rows. Equality and order compare all fields in full width, in
// field order. The text of a key, used in traces, is its fields in order, separated by one blank.
#pragma once

#include <compare>
#include <cstdint>
#include <ostream>
#include <string_view>
#include <tuple>

#include "P4RuntimeTolmar/Schema.h"
#include "cairn/Hash.h"
#include "rows/Encoding.h"

namespace TolmarHwLib {

struct ConfigBookkeeping {
  std::uint64_t genId = 0;        ///< generation of the write that produced the entry
  std::uint64_t entryHandle = 0;  ///< handle under which the agent tracks the entry
  bool valid = false;             ///< the entry is to be programmed

  static constexpr std::string_view side = "Config";
  static constexpr std::tuple headColumns{Column{"genId", &ConfigBookkeeping::genId},
                                          Column{"entryHandle", &ConfigBookkeeping::entryHandle},
                                          Column{"valid", &ConfigBookkeeping::valid}};
};

struct StatusBookkeeping {
  std::uint64_t genId = 0;        ///< generation that the hardware agent has processed
  std::uint64_t entryHandle = 0;  ///< handle of the config entry that this row answers
  std::uint16_t errorCode = 0;    ///< 0 on success, otherwise the hardware agent's code
  bool deleted = false;           ///< the hardware has removed the entry

  static constexpr std::string_view side = "Status";
  static constexpr std::tuple headColumns{
      Column{"genId", &StatusBookkeeping::genId}, Column{"entryHandle", &StatusBookkeeping::entryHandle},
      Column{"errorCode", &StatusBookkeeping::errorCode}, Column{"deleted", &StatusBookkeeping::deleted}};
  static constexpr std::tuple<> dataColumns{};  // a status entry is this and the key
};

/// The key hash of rows with this key.
template <KeyRecord Key>
std::uint32_t hashKey(const Key& key) {
  std::uint32_t hash = 0;
  forEachColumn(Key::keyColumns, [&]<class C>(const C& column) {
    hash = Cairn::Util::hashBlock(hash, Lumen::Encoding<typename C::Type>::hashValue(key.*column.member));
  });
  return hash;
}

namespace detail {

template <class Record, class Columns>
constexpr bool equalIn(const Columns& columns, const Record& a, const Record& b) {
  return std::apply([&](const auto&... column) { return ((a.*column.member == b.*column.member) && ...); },
                    columns);
}

}  // namespace detail

template <KeyRecord Key>
constexpr bool operator==(const Key& a, const Key& b) {
  return detail::equalIn(RowSchema<Key>::columns, a, b);
}
template <KeyRecord Key>
constexpr std::strong_ordering operator<=>(const Key& a, const Key& b) {
  auto order = std::strong_ordering::equal;
  std::apply(
      [&](const auto&... column) {
        static_cast<void>(((order = a.*column.member <=> b.*column.member, order != 0) || ...));
      },
      RowSchema<Key>::columns);
  return order;
}
template <KeyRecord Key>
std::ostream& operator<<(std::ostream& out, const Key& key) {
  std::string_view separator;
  forEachColumn(Key::keyColumns, [&]<class C>(const C& column) {
    out << separator;
    Lumen::Encoding<typename C::Type>::print(out, key.*column.member);
    separator = " ";
  });
  return out;
}

/// Compares all fields.
template <EntryRecord Entry>
constexpr bool operator==(const Entry& a, const Entry& b) {
  return detail::equalIn(RowSchema<Entry>::columns, a, b);
}
// An entry converts to its key; without these, it would be compared and printed as the key alone.
template <EntryRecord Entry, class Other>
bool operator==(const Entry&, const Other&) = delete;
template <EntryRecord Entry, class Other>
std::strong_ordering operator<=>(const Entry&, const Other&) = delete;
template <EntryRecord Entry>
std::ostream& operator<<(std::ostream&, const Entry&) = delete;

}  // namespace TolmarHwLib
